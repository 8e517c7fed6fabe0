// SPDX-License-Identifier: Apache-2.0
// A report as plain text for a person.

#pragma once

#include <string>

#include "report/read/Report.h"

namespace report {

std::string toText(const Report& report);

// Text from outside for a terminal, on one line: what can't be printed becomes \xHH.
std::string printable(const std::string& text);

}  // namespace report
