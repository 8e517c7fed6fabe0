// SPDX-License-Identifier: Apache-2.0
// Small files that survive a power cut: they hold the old content or the new one, whole.

#pragma once

#include <stddef.h>

#include <string>

namespace act {

enum class Read { OK, MISSING, FAILED };

// Reads a file of at most `most` bytes; a larger one, a link and what is no file fail.
Read readFile(const std::string& path, size_t most, std::string& content);

// Writes beside the file, syncs, renames and syncs the folder. False with errno set, and the file
// is then as it was.
bool replaceFile(const std::string& path, const std::string& content, unsigned int mode);

}  // namespace act
