// SPDX-License-Identifier: Apache-2.0
// Reads a copy of the persistent partition, any part of it missing, cut off or damaged.

#pragma once

#include <string>

#include "report/read/Report.h"

namespace report {

// Adds everything that the daemon keeps in the report's partition. A part that can't be read, and
// be it for want of memory, becomes a problem and leaves the others alone.
void readPartition(Report& report);

// Replaces the boots by those of the run log that a lab keeps in its folder, where that has any.
void readRunLog(const Folder& folder, Report& report);

}  // namespace report
