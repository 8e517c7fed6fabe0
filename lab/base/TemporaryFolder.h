// SPDX-License-Identifier: Apache-2.0
// A folder that goes with its object.

#pragma once

#include <string>

namespace lab {

class TemporaryFolder {
public:
    // In TMPDIR, else in /tmp.
    static std::string onDisk();
    // In memory where the workstation has such a folder: for thousands of small files, and for
    // what must not depend on the disk's file system.
    static std::string inMemory();

    // A new folder in `base`; throws std::runtime_error.
    explicit TemporaryFolder(const std::string& base = onDisk());
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    const std::string& path() const {
        return mPath;
    }

    // Leaves the folder to whoever knows its path.
    void keep() {
        mKept = true;
    }

private:
    std::string mPath;
    bool mKept = false;
};

}  // namespace lab
