// SPDX-License-Identifier: Apache-2.0
// A report as one self-contained HTML page with every captured log in it.

#pragma once

#include <string>

#include "report/read/Report.h"

namespace report {

// The file appears whole or not at all; throws std::runtime_error naming it when it can't be
// written.
void writePage(const Report& report, const std::string& path);

}  // namespace report
