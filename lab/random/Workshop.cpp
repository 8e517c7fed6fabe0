// SPDX-License-Identifier: Apache-2.0
// Runs scenarios, one after the other, in a folder in memory.

#include "lab/random/Workshop.h"

#include <errno.h>
#include <sched.h>
#include <sys/mount.h>

#include <filesystem>

#include "lab/base/DevicePaths.h"
#include "lab/base/Files.h"
#include "lab/device/DeviceRoot.h"

namespace lab {

Workshop::Workshop() {
    const char* folder = mFolder.path().c_str();
    if (unshare(CLONE_NEWNS) != 0 ||
        (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 && errno != EINVAL) ||
        mount("workshop", folder, "tmpfs", 0, nullptr) != 0) {
        failWithErrno("cannot mount a file system in memory at", folder);
    }
    copyDeviceTools(mFolder.path() + "/tools");
}

Workshop::~Workshop() {
    mRun.reset();
    umount2(mFolder.path().c_str(), MNT_DETACH);
}

const ScenarioRun& Workshop::run(const Scenario& scenario, Keep keep) {
    mRun.reset();
    const std::string folder = mFolder.path() + "/run";
    // A run that could not go on may have left its partition.
    umount2((folder + "/root" + kPartition).c_str(), MNT_DETACH);
    std::filesystem::remove_all(folder);
    makeFolders(folder);
    mRun.emplace(scenario, folder, keep, mFolder.path() + "/tools");
    mRun->run();
    return *mRun;
}

}  // namespace lab
