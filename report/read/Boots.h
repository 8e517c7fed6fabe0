// SPDX-License-Identifier: Apache-2.0
// Turns log lines into boots: what the daemon decided and when, and the milestones it saw.

#pragma once

#include <stddef.h>

#include <optional>
#include <string>
#include <vector>

#include "report/read/DaemonLog.h"

namespace report {

// What a line of the daemon says, as far as a judgement asks.
enum class Said {
    POLL,
    TIMEOUT,
    STUCK_PID,
    LOOP,       // one milestone came five times
    ANIMATION,  // stays: captured without a record
    NOTICE,     // of a failure
    DISABLED,   // recovery, and by whom
    NO_STEP,    // the list has none, or there is none for the reason
    REBOOT,
    WAIT,
    RESET,
    JUDGED,       // the last action by a good boot
    NOT_BY_THAT,  // the good boot isn't the action's
    NO_RECOVERY,  // to judge
    COMPLETE,     // the boot is
    ENDED_EARLY,  // the daemon, by a signal or with a status
    OTHER,
};

// A line of a captured log, or of a lab's.
struct Place {
    std::string file;  // "android_main_log"; empty: none
    int line = 0;      // from 1
};

// Something that the daemon decided or did. Polls in a row that see the same last event are one.
struct Event {
    double t = 0;       // seconds since the daemon's start
    double until = 0;   // the same of the last poll; t for anything else
    int count = 1;      // of polls
    std::string clock;  // "11-15 11:00:40.000"
    std::string iso;    // of the clock; empty where the year is not known
    std::string kind;   // start, poll, timeout, verdict, record, capture, request, recovery, ...
    std::string text;
    Said said = Said::OTHER;
    std::string rest;                  // what follows in the line; of a poll the last event
    std::optional<ErrorNumber> error;  // of a notice
    Place place;                       // of its first line
};

struct Milestone {
    double t = 0;  // seconds since the kernel's start
    std::string name;
};

struct Boot {
    std::string title;
    std::string begin;     // clock of the first event
    std::string beginIso;  // empty where the year is not known
    int year = 0;          // 0: not known
    bool first = false;    // since a wipe
    // The kernel's start on the daemon's clock, in seconds.
    std::optional<double> kernelStart;
    std::vector<Event> events;
    std::vector<Milestone> milestones;
    std::vector<double> rounds;  // when the framework started again, in seconds of the kernel
    int lastMilestone = -1;      // by its index; of no interest once all lines are in
};

// From the daemon's lines in captured logs. Such a log has no year.
std::vector<Boot> bootsOfLines(const std::vector<DaemonLine>& lines);

// Sets the ISO times of boots of unknown year that came before `last`, "2026-11-15T11:08:12".
void giveYears(std::vector<Boot>& boots, const std::string& last);

// From a lab's run log; `broken` counts the lines that are not records. After so many of them the
// rest of the log is not read.
constexpr size_t kMostBroken = 10000;
std::vector<Boot> bootsOfRunLog(const std::string& jsonLines, size_t& broken);

// The first time of each milestone in a boot profile.
std::vector<Milestone> milestonesOf(const std::string& profile);

}  // namespace report
