// SPDX-License-Identifier: Apache-2.0
// The daemon's own lines in a captured Android log, and the runs they belong to.

#include "report/read/DaemonLog.h"

#include <stdio.h>

namespace report {

namespace {

constexpr std::string_view kTag = " BOOTVIGIL_DEBUG: ";
constexpr std::string_view kFirstText = "BOOTVIGIL boot_vigil_service start";
constexpr size_t kClockLength = 18;  // "MM-DD HH:MM:SS.mmm"
constexpr size_t kMaxHead = 60;      // most bytes of a line before its tag

// Milliseconds since the start of the year, -1 if it is not a clock. Every February has 29 days,
// which is exact enough for differences within a run.
int64_t parseClock(const std::string& clock) {
    static constexpr int kDaysBefore[] = {0, 31, 60, 91, 121, 152, 182, 213, 244, 274, 305, 335};
    int month = 0;
    int day = 0;
    int hour = 0;
    int minute = 0;
    int second = 0;
    int ms = 0;
    if (sscanf(clock.c_str(), "%2d-%2d %2d:%2d:%2d.%3d", &month, &day, &hour, &minute, &second,
               &ms) != 6 ||
        month < 1 || month > 12) {
        return -1;
    }
    const int64_t days = kDaysBefore[month - 1] + day - 1;
    return (((days * 24 + hour) * 60 + minute) * 60 + second) * 1000 + ms;
}

bool parseLine(std::string_view line, DaemonLine& parsed) {
    const size_t tag = line.find(kTag);
    if (tag > kMaxHead || tag < kClockLength + 2) return false;  // npos is larger than any
    parsed.clock = line.substr(0, kClockLength);
    parsed.ms = parseClock(parsed.clock);
    if (parsed.ms < 0) return false;
    parsed.priority = line[tag - 1];
    const std::string_view text = line.substr(tag + kTag.size());
    parsed.text = text.substr(0, text.find_last_not_of(" \r") + 1);
    return true;
}

}  // namespace

double DaemonRun::secondsOf(const DaemonLine& line) const {
    return static_cast<double>(line.ms - lines.front().ms) / 1000;
}

std::vector<DaemonLine> daemonLines(std::string_view log) {
    std::vector<DaemonLine> lines;
    // Searching for the tag first keeps a large log of others cheap.
    for (size_t tag = log.find(kTag); tag != std::string_view::npos; tag = log.find(kTag, tag)) {
        const size_t before = log.rfind('\n', tag);
        const size_t begin = before == std::string_view::npos ? 0 : before + 1;
        size_t end = log.find('\n', tag);
        if (end == std::string_view::npos) end = log.size();
        DaemonLine line;
        if (parseLine(log.substr(begin, end - begin), line)) lines.push_back(std::move(line));
        tag = end;
    }
    return lines;
}

std::vector<DaemonRun> daemonRuns(const std::vector<DaemonLine>& lines) {
    std::vector<DaemonRun> runs;
    for (const DaemonLine& line : lines) {
        const bool first = line.text == kFirstText;
        if (runs.empty() || first || line.ms < runs.back().lines.back().ms) {
            runs.push_back({first, {}});
        }
        runs.back().lines.push_back(line);
    }
    return runs;
}

std::optional<ErrorNumber> parseNotice(const std::string& text) {
    int type = 0;
    int phase = 0;
    int detail = 0;
    int reason = 0;
    if (sscanf(text.c_str(),
               "errNotifyWithReason type = %3d, phase=%3d, detailPhase=%3d, reason=%3d", &type,
               &phase, &detail, &reason) != 4) {
        return std::nullopt;
    }
    return decodeErrorNumber((phase & 0xfUL) << 20 | (detail & 0xffUL) << 12 | (type & 0xfUL) << 8 |
                             (reason & 0xffUL));
}

}  // namespace report
