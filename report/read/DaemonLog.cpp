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
// liblog cuts what the daemon logs at 1 KiB.
constexpr size_t kLongestLine = kMaxHead + kTag.size() + 1024;
constexpr size_t kMostLines = 4000;  // of one log; a boot has some hundred

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

// Where a line's tag is; npos when it is no line of the daemon.
size_t findTag(std::string_view line) {
    const size_t tag = line.substr(0, kMaxHead + kTag.size()).find(kTag);
    return tag < kClockLength + 2 ? std::string_view::npos : tag;
}

bool parseLine(std::string_view line, DaemonLine& parsed) {
    const size_t tag = findTag(line);
    if (tag == std::string_view::npos) return false;
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
    int number = 0;
    LineCutter cutter(SIZE_MAX, [&](std::string_view line) {
        DaemonLine parsed;
        parsed.number = ++number;
        if (parseLine(line, parsed)) lines.push_back(std::move(parsed));
    });
    cutter.add(log);
    cutter.finish();
    return lines;
}

DaemonLineReader::DaemonLineReader()
    : mCutter(kLongestLine, [this](std::string_view line) {
          ++mNumber;
          if (findTag(line) == std::string_view::npos) return;
          mLines.push_back({mNumber, std::string(line)});
          if (mLines.size() == 2 * kMostLines) mLeftOut += dropMiddle(mLines, kMostLines);
      }) {}

std::vector<DaemonLine> DaemonLineReader::finish() {
    mCutter.finish();
    mLeftOut += dropMiddle(mLines, kMostLines);
    std::vector<DaemonLine> lines;
    for (const auto& [number, text] : mLines) {
        DaemonLine parsed;
        parsed.number = number;
        if (parseLine(text, parsed)) lines.push_back(std::move(parsed));
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
