// SPDX-License-Identifier: Apache-2.0
// What split() has to do, told in another way than its own, and how files are cut into lines.

#pragma once

#include <optional>
#include <string>
#include <vector>

namespace fuzz {

// A text has ended the process: it has a blank field.
using Fields = std::optional<std::vector<std::string>>;

// `log`, where given, receives what is logged on the way.
Fields splitModel(const std::string& text, const std::string& pattern,
                  std::vector<std::string>* log = nullptr);

// Each line without its line feed; a last one that lacks it counts.
std::vector<std::string> linesOf(const std::string& text);

}  // namespace fuzz
