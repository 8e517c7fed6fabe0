// SPDX-License-Identifier: Apache-2.0
// Reads the kernel's boot profile: restart loops and the last event.

#define LOG_TAG "BOOTVIGIL_DEBUG"

#include <bitset>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include <log/log.h>

#include "Bootvigil.h"
#include "Utils.h"

namespace {

constexpr int kLoopOccurrences = 5;  // of one milestone make a restart loop
// While a boot is in progress the kernel prints an "OFF" line and a ruler after the last event.
constexpr int kLastEventFromEnd = 3;

// Tells most events from the names in a map without comparing texts.
class NameFilter {
public:
    explicit NameFilter(const std::map<std::string, int>& names) {
        for (const auto& [name, count] : names) {
            if (!name.empty()) mMarks.set(mark(name));
        }
    }

    // False for what is certainly none of them.
    bool mayBe(std::string_view event) const {
        return mMarks[mark(event)];
    }

private:
    // Of a text that isn't empty; no field is.
    static size_t mark(std::string_view text) {
        return (static_cast<unsigned char>(text[0]) ^ (text.size() << 3)) % kMarks;
    }

    static constexpr size_t kMarks = 1024;
    std::bitset<kMarks> mMarks;
};

}  // namespace

void Bootvigil::parseBootProf() {
    mStuckPID = -1;
    static LinesFromEnd lines;  // used again, so that a poll asks for no memory
    lines.read(kBootProfPath);
    std::string_view line;
    for (int i = 0; i < kLastEventFromEnd; ++i) {
        if (lines.next(line)) continue;
        ALOGE("parseBootProf Lines < 3");
        return;
    }
    const std::string last(line);

    for (auto& milestone : mMilestones) milestone.second = 0;
    const NameFilter filter(mMilestones);
    lines.rewind();
    while (lines.next(line)) {
        const std::string_view event = eventOf(line);
        if (event.empty() || !filter.mayBe(event)) continue;
        const auto milestone = mMilestones.find(std::string(event));
        if (milestone == mMilestones.end()) continue;
        if (++milestone->second < kLoopOccurrences) continue;
        ALOGD("parseBootProf reboot reason %s, count %d", milestone->first.c_str(),
              milestone->second);
        mPhaseIndex = milestoneIndex(milestone->first);
        mRestartLoop = true;
        return;
    }

    // time, "pid-process", event; what follows the event is ignored
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
