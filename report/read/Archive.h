// SPDX-License-Identifier: Apache-2.0
// Looks into a captured log: one zstd frame with a content checksum.

#pragma once

#include <stddef.h>
#include <stdint.h>

#include <functional>
#include <string>

#include "report/read/Files.h"

namespace report {

struct ArchiveInfo {
    int64_t size = 0;     // bytes of the file
    int64_t content = 0;  // bytes that were decompressed
    std::string error;    // empty when the file is one whole, intact frame

    // How well the content compresses, 0 when that is not known.
    double ratio() const {
        return size > 0 ? static_cast<double>(content) / static_cast<double>(size) : 0;
    }
};

// The error of an archive without a byte: the daemon leaves one for a log that it could not open.
constexpr const char* kEmptyArchive = "empty file";

// Gets the content piece by piece; returns false to stop reading.
using ArchiveSink = std::function<bool(const char* data, size_t size)>;

// Reads an archive of the user's own in constant memory, a damaged one as far as possible. A file
// that can't be read or is not a regular one is an error in the result.
ArchiveInfo readArchive(const std::string& path, const ArchiveSink& sink);

// The same of a stranger's: no more than this is read or unpacked, and an archive that has more is
// an error in the result.
constexpr int64_t kMostOfArchive = 256L << 20;
ArchiveInfo readArchive(const Folder& folder, const std::string& name, const ArchiveSink& sink);

// The same without the content.
ArchiveInfo inspectArchive(const std::string& path);

// The content of an intact archive; throws std::runtime_error naming the file otherwise.
std::string readArchive(const std::string& path);

}  // namespace report
