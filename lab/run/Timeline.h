// SPDX-License-Identifier: Apache-2.0
// A run as lines of text: for a person, and to be compared with what a scenario expects.

#pragma once

#include <optional>
#include <string>
#include <vector>

#include "lab/device/RunLog.h"
#include "lab/scenario/Scenario.h"

namespace lab {

// "490" or "12.5": seconds without needless places.
std::string formatSeconds(double seconds);

// What the daemon did, as "<seconds> <kind> <fields>", the same on any machine; nothing for records
// of the world's own changes and of log lines.
std::optional<std::string> effectLine(const Record& record);

// The lines of one boot for a person, with device time, world and verdicts; with colour if asked.
std::vector<std::string> describeBoot(const std::vector<Record>& records, int boot, bool colour);

// Where a run differs from what its scenario expects, a line each; empty when it holds.
// `fileAt` gives a device file's host path, `errors` what each boot wrote to standard error.
std::vector<std::string> compareWithScenario(const Scenario& scenario,
                                             const std::vector<Record>& records,
                                             const std::vector<std::string>& errors,
                                             const std::string& rootPath);

}  // namespace lab
