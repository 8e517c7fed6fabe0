// SPDX-License-Identifier: Apache-2.0
// Copies a folder that a stranger filled.

#pragma once

#include <stdint.h>

#include <string>

namespace lab {

// Copies what the folder `name` below the descriptor `parent` holds, if there is one, to the folder
// `to`, which is made if needed: folders, regular files with their modes, and links that lead to no
// other folder than their own; nothing else. No link is followed. Throws std::runtime_error, also
// for more than `most` bytes.
void copyFolder(int parent, const std::string& name, const std::string& to, uint64_t most);

}  // namespace lab
