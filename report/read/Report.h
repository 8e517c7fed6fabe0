// SPDX-License-Identifier: Apache-2.0
// What a device's persistent partition holds, as one value: facts, and no judgement of them.

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
    int line = 0;  // 0: the file as a whole
};

// Who logged a boot event, "1113-system_server  | AMS:systemReady".
struct BootEvent {
    std::string pid;
    std::string process;
    std::string name;
};
BootEvent parseBootEvent(const std::string& text);

// A line of the record file, or a failure that only a log or the reason code tells of.
struct Failure {
    std::string time;  // as recorded; of a log its clock
    std::string iso;   // empty where it can't be read
    ErrorNumber number;
    std::string lastEvent;  // as recorded, may be empty
    std::string country;
    std::string file;
    int line = 0;
    bool recorded = true;
    bool afterDamage = false;  // the line before it is damaged
};

// The milestone that a restart loop never reaches, or the one after a stall's last event; empty
// where it can't be told.
std::string missingMilestone(const Failure& failure);

// A small file and its content.
struct Note {
    std::string file;
    std::string text;
};

// A line of the capture journal.
struct JournalLine {
    std::string text;
    std::string iso;  // of its time; empty where it can't be read
    std::string what;
};

// What the platform did not do although the daemon asked for it.
struct Refusal {
    std::string time;  // as it stands
    std::string iso;
    std::string action;  // "reboot" or "reset"
    std::string why;     // a code, such as "spent"
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
    std::string path;           // of the folder, as given
    std::string device;         // a name for it
    std::string partitionPath;  // the path of the partition found in it
    Folder partition;           // the same, for what is read later
    bool isPartition = false;   // or a lab's run
    std::vector<Problem> problems;
    std::optional<std::string> flag;  // phase of a failure that is not submitted yet
    std::vector<Failure> failures;    // oldest first, stamps included
    bool recordsEndDamaged = false;   // the last line is damaged or cut off
    RecoveryFiles recoveryFiles;
    Recovery recovery;
    std::vector<Note> uploads;  // not collected yet
    std::vector<Note> notes;    // reason code, power-off reasons, memory and flash
    std::vector<Capture> captures;
    std::vector<JournalLine> journal;
    std::vector<Refusal> refusals;  // oldest first
    std::vector<Boot> boots;        // of the run log, else of the captured logs
    std::vector<Boot> captured;     // where there is a run log: those of the captured logs
    bool hasRunLog = false;
    std::optional<Comparison> comparison;
};

}  // namespace report
