// SPDX-License-Identifier: Apache-2.0
// The boot events that show progress, and a restart loop.

#pragma once

#include <algorithm>
#include <iterator>
#include <string_view>

constexpr int kMilestoneCount = 11;

// In the table's own order; index + kFirstMilestoneDetail is a restart loop's detail phase.
constexpr const char* kMilestoneNames[kMilestoneCount] = {
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
inline int milestoneIndex(std::string_view event) {
    const auto* const end = std::end(kMilestoneNames);
    const auto* const found = std::find(std::begin(kMilestoneNames), end, event);
    return found == end ? -1 : static_cast<int>(found - std::begin(kMilestoneNames));
}
