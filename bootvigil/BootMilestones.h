// SPDX-License-Identifier: Apache-2.0
// The boot events by which progress, and a restart loop, are told.

#pragma once

#include <algorithm>
#include <iterator>
#include <string>

constexpr int kMilestoneCount = 11;

// In the table's own order; index + kFirstMilestoneDetail is a restart loop's detail phase.
inline const std::string kBootMilestones[kMilestoneCount] = {
        "vold:fbeEnable:START",
        "Zygote:Preload Start",
        "Zygote:Preload End",
        "Android:SysServerInit_START",
        "Android:PackageManagerService_Start",
        "Android:PMS_scan_START",
        "Android:PMS_scan_END",
        "Android:PMS_READY",
        "AMS:systemReady",
        "AMS:AMS_READY",
        "Android:SysServerInit_END",  // last, though it ends before some of those above
};

constexpr int kFirstMilestoneDetail = 4;

// The event's place in the table, -1 when it is no milestone.
inline int milestoneIndex(const std::string& event) {
    const auto* const end = std::end(kBootMilestones);
    const auto* const found = std::find(std::begin(kBootMilestones), end, event);
    return found == end ? -1 : static_cast<int>(found - std::begin(kBootMilestones));
}
