// SPDX-License-Identifier: Apache-2.0
// The daemon's own lines in a captured Android log, and the runs they belong to.

#include "report/read/DaemonLog.h"

#include <stdio.h>
#include <time.h>

#include <algorithm>

namespace report {

namespace {

constexpr std::string_view kTag = " BOOTVIGIL_DEBUG: ";
constexpr std::string_view kFirstText = "BOOTVIGIL boot_vigil_service start";
constexpr size_t kClockLength = 18;  // "MM-DD HH:MM:SS.mmm"
constexpr size_t kMaxHead = 60;      // most bytes of a line before its tag

// Milliseconds since the start of the year, -1 if it is not a clock. The year is taken as a leap
// year, which is exact enough for differences within a run.
int64_t parseClock(const std::string& clock) {
    tm date = {};
    date.tm_year = 72;
    const char* end = strptime(clock.c_str(), "%m-%d %H:%M:%S", &date);
    int ms = 0;
    if (end == nullptr || sscanf(end, ".%3d", &ms) != 1) return -1;
    constexpr int64_t kStartOf1972 = 2L * 365 * 24 * 3600;
    return (timegm(&date) - kStartOf1972) * 1000 + ms;
}

bool parseLine(std::string_view line, DaemonLine& parsed) {
    const size_t tag = line.find(kTag);
    if (tag > kMaxHead || tag < kClockLength + 2) return false;  // npos is larger than any
    parsed.clock = line.substr(0, kClockLength);
    parsed.ms = parseClock(parsed.clock);
    if (parsed.ms < 0) return false;
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
    int number = 1;
    size_t counted = 0;
    // Searching for the tag first keeps a large log of others cheap.
    for (size_t tag = log.find(kTag); tag != std::string_view::npos; tag = log.find(kTag, tag)) {
        const size_t before = log.rfind('\n', tag);
        const size_t begin = before == std::string_view::npos ? 0 : before + 1;
        size_t end = log.find('\n', tag);
        if (end == std::string_view::npos) end = log.size();
        number += static_cast<int>(std::count(log.begin() + counted, log.begin() + begin, '\n'));
        counted = begin;
        DaemonLine line;
        line.number = number;
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
    constexpr const char* kForm =
            "errNotifyWithReason type = %3d, phase=%3d, detailPhase=%3d, reason=%3d";
    if (sscanf(text.c_str(), kForm, &type, &phase, &detail, &reason) != 4) return std::nullopt;
    return decodeErrorNumber((phase & 0xfUL) << 20 | (detail & 0xffUL) << 12 | (type & 0xfUL) << 8 |
                             (reason & 0xffUL));
}

}  // namespace report
