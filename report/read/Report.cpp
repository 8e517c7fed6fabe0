// SPDX-License-Identifier: Apache-2.0
// What a device's persistent partition holds, as one value: facts, and no judgement of them.

#include "report/read/Report.h"

#include "bootvigil/BootMilestones.h"

namespace report {

BootEvent parseBootEvent(const std::string& text) {
    const auto trimmed = [](const std::string& part) {
        const size_t begin = part.find_first_not_of(' ');
        if (begin == std::string::npos) return std::string();
        return part.substr(begin, part.find_last_not_of(' ') + 1 - begin);
    };
    BootEvent event;
    const size_t bar = text.find(" | ");
    const std::string by = text.substr(0, bar);
    if (bar != std::string::npos) event.name = trimmed(text.substr(bar + 3));
    const size_t dash = by.find('-');
    const bool hasPid =
            dash != std::string::npos && dash > 0 && by.find_first_not_of("0123456789") == dash;
    if (hasPid) event.pid = by.substr(0, dash);
    event.process = trimmed(hasPid ? by.substr(dash + 1) : by);
    return event;
}

std::string missingMilestone(const Failure& failure) {
    if (!isStall(failure.number)) return missingMilestone(failure.number);
    const int index = milestoneIndex(parseBootEvent(failure.lastEvent).name);
    // The last of the table ends before some of those above it.
    return index < 0 || index + 2 >= kMilestoneCount ? "" : kMilestoneNames[index + 1];
}

}  // namespace report
