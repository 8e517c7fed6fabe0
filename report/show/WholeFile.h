// SPDX-License-Identifier: Apache-2.0
// Files that appear whole or not at all.

#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace report {

using Append = std::function<void(std::string_view text)>;

// Creates or replaces a file by what `write` appends. Throws std::runtime_error naming the file
// when it can't be written, and leaves it as it was then.
void writeWhole(const std::string& path, const std::function<void(const Append& append)>& write);
void writeWhole(const std::string& path, const std::string& content);

}  // namespace report
