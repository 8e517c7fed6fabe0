// SPDX-License-Identifier: Apache-2.0
// What a device's persistent partition holds, as one value.

#pragma once

#include <optional>
#include <string>
#include <vector>

#include "report/read/Archive.h"
#include "report/read/Boots.h"
#include "report/read/ErrorNumber.h"
#include "report/read/Files.h"
#include "report/read/Recovery.h"

namespace report {

struct Problem {
    std::string file;  // below the partition
    std::string what;
};

// A line of the record file.
struct Failure {
    std::string time;  // as recorded
    ErrorNumber number;
    std::string lastEvent;  // "pid-process | event", may be empty
    std::string country;
    std::string file;
    int line = 0;
};

// A small file and its content.
struct Note {
    std::string file;
    std::string text;
};

struct Capture {
    std::string name;
    std::string path;  // of the archive, below the partition
    ArchiveInfo info;
};

struct Comparison {
    std::string name;
    std::vector<Milestone> milestones;
};

struct Report {
    std::string device;     // the folder's name
    bool readable = false;  // anything at all was
    Folder partition;       // for what is read later
    std::string verdict;    // the last failure and what became of it, in one line
    std::vector<Problem> problems;
    std::optional<std::string> pendingPhase;  // a failure that is not submitted yet
    std::vector<Failure> failures;            // oldest first, stamps included
    Recovery recovery;
    std::vector<Note> uploads;  // not collected yet
    std::vector<Note> notes;    // reason code, power-off reasons, memory and flash
    std::vector<Capture> captures;
    std::vector<std::string> journal;
    std::vector<Boot> boots;
    std::optional<Comparison> comparison;
};

}  // namespace report
