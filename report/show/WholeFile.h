// SPDX-License-Identifier: Apache-2.0
// Files that appear whole or not at all.

#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace report {

using Append = std::function<void(std::string_view text)>;

// Creates a file, or replaces an ordinary one, by what `write` appends; a pipe or a device that is
// read character by character gets it as it is. Throws std::runtime_error naming the file when it
// can't be written; an ordinary one is then as it was. Signals that would end the process wait
// meanwhile. A link is refused: in a folder that others may write to, somebody else may have put it
// there to have another file overwritten.
void writeWhole(const std::string& path, const std::function<void(const Append& append)>& write);
void writeWhole(const std::string& path, const std::string& content);

}  // namespace report
