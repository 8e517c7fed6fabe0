// SPDX-License-Identifier: Apache-2.0
// The milestones of a boot as the rules name them. The lab's own list: what is held against the
// daemon must not come from the daemon.

#pragma once

#include <string>
#include <vector>

namespace lab {

// In the rules' order; a device that starts again logs them again. The detail phase of a restart
// loop is the place of the first one missing, counted from kFirstMilestoneDetail.
inline const std::vector<std::string> kMilestones = {
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
        "Android:SysServerInit_END",
};

constexpr int kFirstMilestoneDetail = 4;

}  // namespace lab
