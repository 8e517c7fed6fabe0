// SPDX-License-Identifier: Apache-2.0
// Text from outside, made safe for whoever reads it.

#pragma once

#include <stddef.h>

#include <string>
#include <string_view>

namespace text {

// On one line: controls, line separators, invisible formatting such as the bidirectional controls,
// and bytes that are not UTF-8 become \xHH, each byte on its own. Everything else stays, so that a
// second call changes nothing.
std::string printable(std::string_view text);

// Cut to `most` bytes where it is longer, between two characters, with "…" at its end.
std::string shortened(std::string_view text, size_t most);

// "1,234,567"
std::string grouped(size_t number);

}  // namespace text
