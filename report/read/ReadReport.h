// SPDX-License-Identifier: Apache-2.0
// Finds the partition in a folder, and names its device.

#pragma once

#include <string>
#include <vector>

#include "report/read/Report.h"

namespace report {

// Reads a copy of the partition: `folder` itself, its "velafs", or a lab run's "root/velafs", whose
// run log is then read too. Whatever is missing or damaged becomes a problem; nothing throws.
Report readReport(const std::string& folder);

// A name for the device of each folder: the part of the path in which they differ, and for a single
// one its last part that is no folder of the device itself.
std::vector<std::string> deviceNames(const std::vector<std::string>& folders);

// The first time of each milestone in a boot profile as a kernel prints it. Throws
// std::runtime_error naming the file when it can't be read or has no milestone.
Comparison readComparison(const std::string& profile);

}  // namespace report
