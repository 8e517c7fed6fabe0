// SPDX-License-Identifier: Apache-2.0
// Text from outside, made safe for a terminal.

#pragma once

#include <string>

namespace report {

// On one line: what can't be printed becomes \xHH.
std::string printable(const std::string& text);

}  // namespace report
