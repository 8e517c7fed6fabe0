// SPDX-License-Identifier: Apache-2.0
// Reads the kernel's boot profile: restart loops and the last event.

#define LOG_TAG "BOOTVIGIL_DEBUG"

#include <string>
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
    const std::vector<std::string> lines = getFileLines(kBootProfPath);
    if (static_cast<unsigned int>(lines.size()) <= 2) {
        ALOGE("parseBootProf Lines < 3");
        return;
    }

    for (auto& milestone : mMilestones) milestone.second = 0;
    for (auto line = lines.rbegin(); line != lines.rend(); ++line) {
        // time, "pid-process", event; whatever follows the event is not looked at
        const std::vector<std::string> pieces = split(*line, " :");
        if (pieces.size() < 3) continue;
        const auto milestone = mMilestones.find(pieces[2]);
        if (milestone == mMilestones.end()) continue;
        if (++milestone->second < kLoopOccurrences) continue;
        ALOGD("parseBootProf reboot reason %s, count %d", milestone->first.c_str(),
              milestone->second);
        mPhaseIndex = milestoneIndex(milestone->first);
        mRestartLoop = true;
        return;
    }

    const std::string& last = lines[lines.size() - kLastEventFromEnd];
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
