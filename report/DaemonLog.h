// SPDX-License-Identifier: Apache-2.0
// The daemon's own lines inside a captured Android log, and the boots they tell of.

#pragma once

#include <stdint.h>

#include <string>
#include <string_view>
#include <vector>

namespace report {

// One line "MM-DD HH:MM:SS.mmm  PID  TID P BOOTVIGIL_DEBUG: text" of a log in threadtime layout.
struct DaemonLine {
    std::string clock;  // "11-15 11:00:10.000"
    int64_t ms = 0;     // the same as milliseconds since the year's beginning
    char priority = '?';
    std::string text;  // without blanks at its end
};

// One run of the daemon, as far as the log keeps it.
struct DaemonRun {
    bool beginningKept = false;  // the daemon's first line is there
    std::vector<DaemonLine> lines;

    // Seconds of a line since the daemon's start; since the first line that was kept, without it.
    double secondsOf(const DaemonLine& line) const;
};

// The lines of the daemon in a log, in the log's order. Lines in any other layout are passed over.
std::vector<DaemonLine> daemonLines(std::string_view log);

// Cuts lines into runs: one begins with the daemon's first line, or where the clock goes back.
std::vector<DaemonRun> daemonRuns(const std::vector<DaemonLine>& lines);

}  // namespace report
