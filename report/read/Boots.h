// SPDX-License-Identifier: Apache-2.0
// Turns log lines into boots: what the daemon decided and when, and the milestones it saw.

#pragma once

#include <stddef.h>

#include <string>
#include <vector>

#include "report/read/DaemonLog.h"

namespace report {

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

// From the daemon's lines in captured logs.
std::vector<Boot> bootsOfLines(const std::vector<DaemonLine>& lines);

// From a lab's run log; `broken` counts the lines that are not records. After so many of them the
// rest of the log is not read.
constexpr size_t kMostBroken = 10000;
std::vector<Boot> bootsOfRunLog(const std::string& jsonLines, size_t& broken);

// The first time of each milestone in a boot profile.
std::vector<Milestone> milestonesOf(const std::string& profile);

}  // namespace report
