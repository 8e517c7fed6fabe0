// SPDX-License-Identifier: Apache-2.0
// Turns log lines into boots: what the daemon decided, when, and the milestones it saw.

#pragma once

#include <string>
#include <vector>

#include "DaemonLog.h"
#include "Report.h"

namespace report {

// From the daemon's lines in captured logs.
std::vector<Boot> bootsOfLines(const std::vector<DaemonLine>& lines);

// From a lab's run log; `broken` counts the lines that are no records.
std::vector<Boot> bootsOfRunLog(const std::string& jsonLines, size_t& broken);

// The first time of each milestone in lines of a boot profile.
std::vector<Milestone> milestonesOf(const std::string& profile);

}  // namespace report
