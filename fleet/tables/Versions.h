// SPDX-License-Identifier: Apache-2.0
// The order of names of software.

#pragma once

#include <string_view>

namespace fleet {

// Whether one name comes before another: numbers in them are compared as numbers, "3.9" before
// "3.10", the rest byte by byte; of two names the one that goes on is the later one.
bool isOlder(std::string_view one, std::string_view other);

}  // namespace fleet
