// SPDX-License-Identifier: Apache-2.0
// What the rules remember of a device from one boot to the next.

#pragma once

#include <set>
#include <string>

#include "lab/base/DevicePaths.h"

namespace lab {

// Beside its files.
struct Books {
    std::set<std::string> folders = {kPartition, kOwnFolder, kLogs, kRecordFolder,
                                     "/data/vela_dfr"};
    std::set<std::string> unsureFolders;  // of these, whether they were made is not known
    std::set<std::string> submitted;      // record lines
    bool firstBoot = true;
};

}  // namespace lab
