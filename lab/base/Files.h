// SPDX-License-Identifier: Apache-2.0
// Small whole-file helpers of the lab. Failures throw std::runtime_error naming the file.

#pragma once

#include <string>

namespace lab {

bool fileExists(const std::string& path);

// The whole content; of a file that isn't there, `missing`.
std::string readFile(const std::string& path);
std::string readFileOr(const std::string& path, const std::string& missing);

// Replaces or extends the file, making the folders above it.
void writeFile(const std::string& path, const std::string& content);
void appendFile(const std::string& path, const std::string& content);

// Makes the folder and those above it, each with this mode whatever the umask.
void makeFolders(const std::string& path, unsigned int mode = 0755);

// Throws std::runtime_error("`what` `path`: <errno's text>").
[[noreturn]] void failWithErrno(const std::string& what, const std::string& path);

}  // namespace lab
