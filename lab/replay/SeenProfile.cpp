// SPDX-License-Identifier: Apache-2.0
// The boot profile of a recorded boot: what the polls saw of it, and what it may have been.

#include "lab/replay/SeenProfile.h"

#include <stdlib.h>

#include <algorithm>
#include <stdexcept>

#include "bootvigil/BootMilestones.h"
#include "lab/base/Text.h"

namespace lab {

namespace {

const std::string kServerStart = kMilestoneNames[3];
constexpr int kLoopStarts = 5;  // of a milestone, from which on the daemon takes it for a loop

bool isEvent(const std::string& line, const std::string& event) {
    return endsWith(line, ": " + event);
}

// What follows the time of a line with this event.
std::string eventRest(const std::string& event) {
    return ":    1-unknown         : " + event;
}

}  // namespace

SeenProfile::Line SeenProfile::lineOf(int64_t at, const std::string& text) {
    const size_t by = text.find(" :");
    const bool usual = by != std::string::npos && text.find(": ", by + 2) != std::string::npos;
    return {at, text, usual ? text.substr(by + 1) : ""};
}

ProfileScript SeenProfile::scriptOf(const std::vector<Line>& lines, int64_t start) {
    std::string text;
    for (const Line& line : lines) {
        text += std::to_string(std::max<int64_t>(line.at - start, 0)) + ".000 " + line.rest + "\n";
    }
    return text.empty() ? ProfileScript() : ProfileScript::parse(text, "the profile");
}

bool SeenProfile::readLine(const std::string& line, int64_t at) {
    if (after(line, "parseBootProf Last Line key") || contains(line, "Lines < 3")) return true;
    if (const auto last = after(line, "parseBootProf Last Line")) {
        mLast.push_back(lineOf(at, *last));
        return true;
    }
    if (const auto loop = after(line, "parseBootProf reboot reason")) {
        mLoopAt = at;
        mLoopMilestone = loop->substr(0, loop->rfind(", count"));
        return true;
    }
    if (const auto count = after(line, "getRebootReason find Reason key")) {
        const size_t value = count->rfind(", value ");
        if (value == std::string::npos) return false;
        mLoopCounts[count->substr(0, value)] = atoi(count->c_str() + value + 8);
    }
    return false;
}

void SeenProfile::compose(RebuiltBoot& rebuilt, bool beginningKept,
                          std::optional<int64_t> completedAt) const {
    std::vector<Line> lines;
    std::string before;
    bool unusual = false;
    for (const Line& seen : mLast) {
        if (!lines.empty() && seen.text == before) continue;
        before = seen.text;
        unusual |= seen.rest.empty();
        if (seen.rest.empty()) continue;
        lines.push_back(seen);
        if (lines.size() == 1 && !beginningKept) lines.front().at = 0;
    }
    if (unusual) {
        rebuilt.notKnown.emplace_back(
                "what a line of the profile says that has another layout; passed over");
    }
    const Verdict& recorded = rebuilt.recorded;
    if (recorded.error && recorded.error->type == 5 && !recorded.reasonCode.empty()) {
        addServerStart(lines, rebuilt);
    }
    if (mLoopAt) {
        rebuilt.notKnown.emplace_back(
                "the order of the events in the restart loop; taken from the counts in the log");
        addLoop(lines);
    }
    if (completedAt) lines.push_back({*completedAt, "", eventRest("Post BOOT_COMPLETED")});
    rebuilt.scenario.boots[0].profile = scriptOf(lines, 0);
    rebuilt.profile =
            "from the log, which has its last line at " + std::to_string(mLast.size()) + " polls";
    if (lines.empty()) return;
    rebuilt.notKnown.emplace_back(
            "when each event came, and what came between two polls; taken as the last lines, at "
            "the poll that saw each first");
}

// The stall's phase depends on a count that no line of the log gives.
void SeenProfile::addServerStart(std::vector<Line>& lines, RebuiltBoot& rebuilt) {
    rebuilt.notKnown.push_back("how often " + kServerStart +
                               " had come; taken from the recorded detail phase");
    const auto seen = std::count_if(lines.begin(), lines.end(), [](const Line& line) {
        return isEvent(line.text, kServerStart);
    });
    if (lines.empty() || seen != (rebuilt.recorded.reasonCode == "2" ? 0 : 1)) return;
    lines.insert(lines.end() - 1, {lines.back().at, "", eventRest(kServerStart)});
}

// The tail that the daemon counted: the fifth of the milestone from the end comes first.
void SeenProfile::addLoop(std::vector<Line>& lines) const {
    const auto add = [&](const std::string& milestone, int times) {
        lines.insert(lines.end(), std::max(times, 0), {*mLoopAt, "", eventRest(milestone)});
    };
    add(mLoopMilestone, 1);
    for (const auto& [milestone, count] : mLoopCounts) {
        if (milestone != mLoopMilestone) add(milestone, std::min(count, kLoopStarts - 1));
    }
    add(mLoopMilestone, kLoopStarts - 1);
}

void SeenProfile::cut(RebuiltBoot& rebuilt, const std::string& text) const {
    std::vector<Line> lines;
    for (std::string& line : linesOf(text)) {
        line.erase(line.find_last_not_of(" \r") + 1);
        const double ms = strtod(line.c_str(), nullptr);
        const int64_t least = lines.empty() ? 0 : lines.back().at;
        const bool sane = ms >= static_cast<double>(least) && ms < 1e9;
        lines.push_back(lineOf(sane ? static_cast<int64_t>(ms) : least, line));
        if (lines.back().rest.empty()) lines.pop_back();
    }
    if (lines.empty()) throw std::runtime_error("no event line");

    const std::optional<int64_t> start = findStart(lines);
    if (start) {
        rebuilt.profile = "as pulled, cut by time at each poll";
        rebuilt.notKnown.push_back("when the daemon started; taken as " + seconds(*start) +
                                   " after the zero of the profile, which agrees with every poll");
    } else {
        rebuilt.profile = "as pulled, as it stands";
        rebuilt.notKnown.emplace_back(
                "when the events of the profile came; all taken as there from the start, as it "
                "is of another boot than the log, or ends too early");
        for (Line& line : lines) line.at = 0;
    }
    rebuilt.scenario.boots[0].profile = scriptOf(lines, start.value_or(0));
}

// The daemon's start in the profile's own time: every poll sees the line that it recorded, and none
// that is later.
std::optional<int64_t> SeenProfile::findStart(const std::vector<Line>& lines) const {
    int64_t least = INT64_MIN;
    int64_t most = INT64_MAX;
    std::map<std::string, size_t> places;
    for (size_t i = 0; i < lines.size(); ++i) {
        const std::string& text = lines[i].text;
        places.emplace(text.substr(text.find_first_not_of(' ')), i);
    }
    for (const Line& seen : mLast) {
        const auto place = places.find(seen.text);
        if (place == places.end()) return std::nullopt;
        const size_t next = place->second + 1;
        least = std::max(least, lines[next - 1].at - seen.at);
        if (next < lines.size()) most = std::min(most, lines[next].at - seen.at - 1);
    }
    int starts = 0;
    for (const Line& line : lines) {
        if (!mLoopAt || !isEvent(line.rest, mLoopMilestone)) continue;
        if (++starts == kLoopStarts) least = std::max(least, line.at - *mLoopAt);
    }
    if (least > most) return std::nullopt;
    return std::clamp<int64_t>(0, least, most);
}

}  // namespace lab
