// SPDX-License-Identifier: Apache-2.0
// The daemon's own lines in a captured Android log, and the runs they belong to.

#pragma once

#include <stdint.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "report/read/ErrorNumber.h"

namespace report {

// One line "MM-DD HH:MM:SS.mmm  PID  TID P BOOTVIGIL_DEBUG: text" of a log in threadtime layout.
struct DaemonLine {
    std::string clock;  // "11-15 11:00:10.000"
    int64_t ms = 0;     // the same in milliseconds since the start of the year
    std::string text;   // without trailing blanks
    int number = 0;     // its place in the log, from 1
    std::string file;   // the log's name, for the reader to set
};

// One run of the daemon, as far as the log keeps it.
struct DaemonRun {
    bool beginningKept = false;  // the daemon's first line is there
    std::vector<DaemonLine> lines;

    // Seconds since the daemon's start, or since the first line kept when the start is lost.
    double secondsOf(const DaemonLine& line) const;
};

// The daemon's lines in a log, in the log's order. Lines in any other layout are skipped.
std::vector<DaemonLine> daemonLines(std::string_view log);

// Cuts lines into runs: one begins with the daemon's first line, or where the clock goes back.
std::vector<DaemonRun> daemonRuns(const std::vector<DaemonLine>& lines);

// The failure that a line of the daemon gives notice of, if it does.
std::optional<ErrorNumber> parseNotice(const std::string& text);

}  // namespace report
