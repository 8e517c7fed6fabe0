// SPDX-License-Identifier: Apache-2.0
// A report as one self-contained HTML page with every captured log in it.

#pragma once

#include <stddef.h>

#include <string>

#include "report/read/Report.h"

namespace report {

constexpr size_t kMostOfPage = 64UL << 20;

// Writes no more than `most` bytes: where they don't fit, the largest logs lose their middle, and a
// line there says how much. The file appears whole or not at all; throws std::runtime_error naming
// it when it can't be written, or not so small.
void writePage(const Report& report, const std::string& path, size_t most = kMostOfPage);

}  // namespace report
