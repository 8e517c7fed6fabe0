// SPDX-License-Identifier: Apache-2.0
// Finds the partition in a folder, and says in one line what it tells.

#pragma once

#include <string>

#include "report/read/Report.h"

namespace report {

// Reads a copy of the partition: `folder` itself, its "velafs", or a lab run's "root/velafs", whose
// run log is then read too. Whatever is missing or damaged becomes a problem; nothing throws.
Report readReport(const std::string& folder);

// The first time of each milestone in a boot profile as a kernel prints it. Throws
// std::runtime_error naming the file when it can't be read or has no milestone.
Comparison readComparison(const std::string& profile);

}  // namespace report
