// SPDX-License-Identifier: Apache-2.0
// The device root: a folder that holds what the daemon sees of a device, made into "/" by chroot.

#pragma once

#include <string>

namespace lab {

// Gives this process mounts of its own, unless it may not mount at all. Throws std::runtime_error.
void takeOwnMounts();

// For programs that boot without a cage: makes sure that this process may chroot, and mount where
// nobody else sees it. Root may; another user is moved into a user namespace by running the program
// again under unshare(1), which does not return. Ends the process with one line and status 1 where
// neither works. To be called first in main.
void requireDeviceRoot(char** argv);

// Copies what the device roots' shell and tools are made of to `folder`, under the paths that they
// have on the workstation; throws std::runtime_error.
void copyDeviceTools(const std::string& folder);

// Builds and describes a device root below `path`. It survives the object.
class DeviceRoot {
public:
    // Makes the folder (which must be missing or empty) with shell, log commands and an empty
    // persistent partition; throws std::runtime_error. `tools` is a folder of the same file system
    // where copyDeviceTools() was, whose files the root then shares; without it, it has its own.
    explicit DeviceRoot(std::string path, const std::string& tools = "");

    // The host's path of a device path ("/velafs/SDD"). Where the path or what lies on the way is
    // not the lab's own, it must be used by InsideRoot instead, or leads anywhere.
    std::string at(const std::string& devicePath) const;

    const std::string& path() const {
        return mPath;
    }

    // Makes /velafs a file system of its own of `bytes`, empty, in this process's mounts.
    void mountPartition(size_t bytes) const;

    // After it was made read-only.
    void makePartitionWritable() const;

    // Takes that file system away again and leaves what it held in an ordinary folder.
    void unmountPartition() const;

    // Makes it this process's "/" and working directory.
    void enter() const;

private:
    std::string mPath;
};

// Enters a device root, and leaves it again at the end of its life. Inside, every path is the
// device's, "..", links and all.
class InsideRoot {
public:
    explicit InsideRoot(const DeviceRoot& root);
    ~InsideRoot();
    InsideRoot(const InsideRoot&) = delete;
    InsideRoot& operator=(const InsideRoot&) = delete;

private:
    bool mWasInside;
    int mOldFolder;
    int mOldRoot;
};

}  // namespace lab
