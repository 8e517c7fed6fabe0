// SPDX-License-Identifier: Apache-2.0
// Looks into a captured log: one zstd frame with a content checksum.

#pragma once

#include <stdint.h>

#include <functional>
#include <string>

namespace report {

struct ArchiveInfo {
    int64_t size = 0;     // bytes of the file
    int64_t content = 0;  // bytes that could be decompressed
    std::string error;    // empty when the file is one whole, intact frame
};

// Gets the content piece by piece; false ends the reading.
using ArchiveSink = std::function<bool(const char* data, size_t size)>;

// Reads the file in constant memory, a damaged one as far as it goes; a file that can't be read, or
// is no ordinary one, is an error in the result.
ArchiveInfo readArchive(const std::string& path, const ArchiveSink& sink);

// The same without its content.
ArchiveInfo inspectArchive(const std::string& path);

// The content of an intact archive; throws std::runtime_error naming the file otherwise.
std::string readArchive(const std::string& path);

}  // namespace report
