// SPDX-License-Identifier: Apache-2.0
// A folder that goes with its object.

#include "lab/base/TemporaryFolder.h"

#include <stdlib.h>
#include <unistd.h>

#include <filesystem>

#include "lab/base/Files.h"

namespace lab {

std::string TemporaryFolder::onDisk() {
    const char* base = getenv("TMPDIR");
    return base != nullptr && *base != '\0' ? base : "/tmp";
}

std::string TemporaryFolder::inMemory() {
    return access("/dev/shm", W_OK) == 0 ? "/dev/shm" : onDisk();
}

TemporaryFolder::TemporaryFolder(const std::string& base) : mPath(base + "/bootvigil-XXXXXX") {
    if (mkdtemp(mPath.data()) == nullptr) failWithErrno("cannot make", mPath);
}

TemporaryFolder::~TemporaryFolder() {
    std::error_code ignored;
    if (!mKept) std::filesystem::remove_all(mPath, ignored);
}

}  // namespace lab
