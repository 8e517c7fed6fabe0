// SPDX-License-Identifier: Apache-2.0
// Where the lab's own data lie: scenarios and profiles.

#include "lab/base/DataFolder.h"

#include <filesystem>

namespace lab {

namespace {

namespace fs = std::filesystem;

// An installed program's data lie in PREFIX/share beside PREFIX/bin.
std::string dataFolder() {
    std::error_code error;
    const fs::path program = fs::read_symlink("/proc/self/exe", error);
    const fs::path installed = program.parent_path().parent_path() / "share/bootvigil";
    return fs::is_directory(installed, error) ? installed.string() : LAB_DATA_DIR;
}

}  // namespace

std::string dataPath(const std::string& name) {
    static const std::string folder = dataFolder();
    return folder + "/" + name;
}

}  // namespace lab
