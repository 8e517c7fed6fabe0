// SPDX-License-Identifier: Apache-2.0
// Reads a copy of the persistent partition, any part of it missing, cut off or damaged.

#pragma once

#include <string>

#include "report/read/Report.h"

namespace report {

// Adds everything that the daemon keeps in the folder `partition`.
void readPartition(const std::string& partition, Report& report);

// Replaces the boots by those of the run log that a lab keeps beside the device root.
void readRunLog(const std::string& path, Report& report);

}  // namespace report
