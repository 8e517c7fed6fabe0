// SPDX-License-Identifier: Apache-2.0
// The cage: where the boots of a stranger's scenario run, out of reach of the workstation.

#pragma once

#include <sys/types.h>

#include <functional>
#include <optional>
#include <string>

#include <android-base/unique_fd.h>

#include "lab/base/TemporaryFolder.h"

namespace lab {

// Exit status of a program whose own part failed; nothing is said about the daemon.
constexpr int kLabFailed = 3;

struct CageOptions {
    int megabytes = 1024;   // MiB of files in it
    bool none = false;      // no cage: what a scenario names is the workstation's own
    int bootSeconds = 300;  // of real time for one boot
};

// The limit of the cage that this process is in, or has made.
int bootSeconds();

// One process, and those that it forks, with nothing but a folder in memory: it sees no file, no
// process and no network of the workstation, and has no rights there. When it ends, or the process
// that made the cage does, every process in it is killed and all its files go.
class Cage {
public:
    // `jobs` is how many boots there are at a time.
    Cage(const CageOptions& options, int jobs) : mOptions(options), mJobs(jobs) {}

    // Calls `work` in the cage and gives what it gives. `work` gets a folder for its files, in
    // which "tools" is what copyDeviceTools() makes; what it needs from outside it must have read
    // before. What goes wrong, an exception of `work` included, is said in one line, and
    // kLabFailed given. To be called once.
    int run(const std::function<int(const std::string& folder)>& work);

    // After run(): copies what that folder holds under `name`, if anything, to the folder `to`:
    // folders, files and links that lead nowhere else. Throws std::runtime_error.
    void copyOut(const std::string& name, const std::string& to) const;

private:
    using Work = std::function<int(const std::string&)>;

    int runInside(const Work& work);
    int runWithout(const Work& work);
    [[noreturn]] void becomeCaged(int outside, const Work& work) const;
    void enter(int outside) const;
    void makeFiles() const;
    void setLimits() const;

    const CageOptions mOptions;
    const int mJobs;
    android::base::unique_fd mFiles;  // the folder of `work`, which outlives the cage
    std::optional<TemporaryFolder> mUncaged;
};

// Calls `work` and gives its status; where it throws, says so as the lab's failure.
int orLabFailed(const std::function<int()>& work);

}  // namespace lab
