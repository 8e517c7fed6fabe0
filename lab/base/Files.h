// SPDX-License-Identifier: Apache-2.0
// Small whole-file helpers of the lab. Failures throw std::runtime_error naming the file.

#pragma once

#include <stddef.h>
#include <stdint.h>

#include <string>

namespace lab {

bool fileExists(const std::string& path);

// The whole content; of a file that isn't there, `missing`. More than `most` bytes are an error.
std::string readFile(const std::string& path, size_t most = SIZE_MAX);
std::string readFileOr(const std::string& path, const std::string& missing);

// Replaces or extends the file, making the folders above it.
void writeFile(const std::string& path, const std::string& content);
void appendFile(const std::string& path, const std::string& content);

// Makes the folder and those above it, each with this mode whatever the umask.
void makeFolders(const std::string& path, unsigned int mode = 0755);

// Throws std::runtime_error("`what` `path`: <errno's text>").
[[noreturn]] void failWithErrno(const std::string& what, const std::string& path);

}  // namespace lab
