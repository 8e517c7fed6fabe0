// SPDX-License-Identifier: Apache-2.0
// Runs scenarios, one after the other, in the cage.

#include "lab/run/Workshop.h"

#include <sys/mount.h>
#include <unistd.h>

#include <filesystem>

#include "lab/base/DevicePaths.h"
#include "lab/base/Files.h"

namespace lab {

Workshop::Workshop(const std::string& folder)
    : mTools(folder + "/tools"), mFolder(folder + "/job-" + std::to_string(getpid())) {}

const ScenarioRun& Workshop::run(const Scenario& scenario, Keep keep) {
    mRun.reset();
    // A run that could not go on may have left its partition.
    umount2((mFolder + "/root" + kPartition).c_str(), MNT_DETACH);
    std::filesystem::remove_all(mFolder);
    makeFolders(mFolder);
    mRun.emplace(scenario, mFolder, keep, mTools);
    mRun->run();
    return *mRun;
}

}  // namespace lab
