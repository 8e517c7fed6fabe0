// SPDX-License-Identifier: Apache-2.0
// Reads the kernel's boot profile: restart loops and the last event.

#define LOG_TAG "BOOTVIGIL_DEBUG"

#include <string>
#include <string_view>
#include <vector>

#include <log/log.h>

#include "Bootvigil.h"
#include "Utils.h"

namespace {

constexpr int kLoopOccurrences = 5;  // of one milestone make a restart loop
// While a boot is in progress the kernel prints an "OFF" line and a ruler after the last event.
constexpr size_t kLastEventFromEnd = 3;

}  // namespace

void Bootvigil::parseBootProf() {
    mStuckPID = -1;
    std::string text;
    const std::vector<std::string_view> lines = readLines(kBootProfPath, text);
    if (static_cast<unsigned int>(lines.size()) <= 2) {
        ALOGE("parseBootProf Lines < 3");
        return;
    }

    for (auto& milestone : mMilestones) milestone.second = 0;
    Splitter splitter;
    std::string event;
    for (auto line = lines.rbegin(); line != lines.rend(); ++line) {
        // time, "pid-process", event; what follows the event is ignored
        const std::vector<std::string_view>& pieces = splitter.split(*line, " :");
        if (pieces.size() < 3) continue;
        event = pieces[2];
        const auto milestone = mMilestones.find(event);
        if (milestone == mMilestones.end()) continue;
        if (++milestone->second < kLoopOccurrences) continue;
        ALOGD("parseBootProf reboot reason %s, count %d", milestone->first.c_str(),
              milestone->second);
        mPhaseIndex = milestoneIndex(milestone->first);
        mRestartLoop = true;
        return;
    }

    const std::string last(lines[lines.size() - kLastEventFromEnd]);
    const std::vector<std::string> pieces = split(last, " :");
    if (pieces.size() < 3) return;
    ALOGD("parseBootProf Last Line %s", last.c_str());
    const std::string key = pieces[1] + " | " + pieces[2];
    ALOGD("parseBootProf Last Line key %s", key.c_str());
    if (key == mLastLine) {
        ++mSameLineCount;
    } else {
        mLastLine = key;
        mSameLineCount = 0;
    }
}
