// SPDX-License-Identifier: Apache-2.0
// The boot events by which progress, and a restart loop, are told.

#pragma once

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
