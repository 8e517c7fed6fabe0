// SPDX-License-Identifier: Apache-2.0
// Looks into a captured log: one zstd frame with a content checksum.

#pragma once

#include <stdint.h>

#include <string>

namespace report {

struct ArchiveInfo {
    int64_t size = 0;     // bytes of the file
    int64_t content = 0;  // bytes that could be decompressed
    std::string error;    // empty when the file is one whole, intact frame
};

// Reads the whole file in constant memory; a file that can't be read is an error in the result.
ArchiveInfo inspectArchive(const std::string& path);

// The content of an intact archive; throws std::runtime_error naming the file otherwise.
std::string readArchive(const std::string& path);

}  // namespace report
