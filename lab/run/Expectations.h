// SPDX-License-Identifier: Apache-2.0
// Compares a run with what its scenario expects.

#pragma once

#include <string>
#include <vector>

#include "lab/device/RunLog.h"
#include "lab/scenario/Scenario.h"

namespace lab {

// Where a run differs from what its scenario expects, one line per difference; empty when it holds.
// `errors` is what each boot wrote to standard error, `rootPath` the host's path of the device.
std::vector<std::string> compareWithScenario(const Scenario& scenario,
                                             const std::vector<Record>& records,
                                             const std::vector<std::string>& errors,
                                             const std::string& rootPath);

}  // namespace lab
