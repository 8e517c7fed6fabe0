// SPDX-License-Identifier: Apache-2.0
// What a device's persistent partition tells, as one value; reading it from a copy of the
// partition.

#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Archive.h"
#include "ErrorNumber.h"

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

struct Recovery {
    std::string history;    // the history file's text
    int lastMode = 0;       // 0: none
    int lastReason = 0;     // 0: none
    int reason = 0;         // that the list below is for; 0: no failure is known
    std::vector<int> list;  // modes up to the first 0
    bool override = false;  // the list was pushed to the device
    bool disabled = false;  // from outside
    std::string next;       // what the next failure for that reason leads to, in words
};

// A small file and what it holds.
struct Note {
    std::string file;
    std::string text;
};

struct Capture {
    std::string name;
    std::string path;  // of the archive, on this machine
    ArchiveInfo info;
};

// Something that the daemon decided or did.
struct Event {
    double t = 0;       // seconds since the daemon's start
    std::string clock;  // "11-15 11:00:40.000"
    std::string kind;   // start, poll, timeout, verdict, record, capture, request, recovery, ...
    std::string text;
};

struct Milestone {
    double t = 0;  // seconds since the kernel's start
    std::string name;
};

struct Boot {
    std::string title;
    std::string begin;  // clock of the first event
    std::vector<Event> events;
    std::vector<Milestone> milestones;
};

struct Comparison {
    std::string name;
    std::vector<Milestone> milestones;
};

struct Report {
    std::string device;     // the folder's name
    bool readable = false;  // anything at all was
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

// Reads a copy of the partition: `folder` itself, its "velafs", or a lab run's "root/velafs", whose
// run log is then read too. Whatever is missing or damaged becomes a problem; nothing throws.
Report readReport(const std::string& folder);

// The first time of each milestone in a boot profile as a kernel prints it; throws
// std::runtime_error naming the file when it can't be read or has none.
Comparison readComparison(const std::string& profile);

// "reboot", "wait for the user to reboot", "factory data reset"; "mode N" for others.
std::string describeMode(int mode);

}  // namespace report
