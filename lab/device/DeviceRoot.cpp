// SPDX-License-Identifier: Apache-2.0
// The device root: a folder that holds what the daemon sees of a device, made into "/" by chroot.

#include "lab/device/DeviceRoot.h"

#include <errno.h>
#include <fcntl.h>
#include <sched.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <stdexcept>
#include <vector>

#include "lab/base/DevicePaths.h"
#include "lab/base/Files.h"
#include "lab/base/Text.h"

namespace lab {

namespace {

bool gInside = false;

// The workstation's.
constexpr const char* kBusybox = "/bin/busybox";
// Small enough that a capture's many shells don't outweigh the daemon: they start in a third of the
// time that busybox takes.
constexpr const char* kSmallShell = "/usr/lib/klibc/bin/sh";
constexpr const char* kSmallCat = "/usr/lib/klibc/bin/cat";
constexpr const char* kInNamespace = "BOOTVIGIL_LAB_IN_NAMESPACE";

constexpr const char* kBusyboxTools[] = {"rm", "tar", "printf", "head", "yes", "sleep"};

// The library that is the interpreter of both: its name holds a version, and the shell names it. An
// emulator of programs may show another /lib to one that looks around there.
std::string shellLibrary(const std::string& tools) {
    const std::string shell = readFile(tools + kSmallShell);
    const size_t name = shell.find("/lib/klibc-");
    if (name == std::string::npos) {
        throw std::runtime_error(std::string(kSmallShell) +
                                 " is not klibc's (package klibc-utils)");
    }
    return shell.c_str() + name;
}

// The first program that is missing of those that a device root is made of, as a line.
std::string missingTool() {
    for (const auto& [program, package] :
         {std::pair{kBusybox, "busybox-static"}, std::pair{kSmallShell, "klibc-utils"}}) {
        if (!fileExists(program)) return format("%s is missing (package %s)", program, package);
    }
    return "";
}

// Adds a program to the root; like a device's, these print what the simulated buffers hold.
void writeScript(const std::string& path, const std::string& text) {
    writeFile(path, "#!" + kShell + "\n" + text);
    chmod(path.c_str(), 0755);
}

}  // namespace

void takeOwnMounts() {
    if (unshare(CLONE_NEWNS) != 0) {
        if (errno == EPERM) return;
        failWithErrno("cannot make a mount namespace for", "device roots");
    }
    // Inside a chroot "/" is no mount that could be made private, and so none of ours to worry
    // about.
    if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 && errno != EINVAL) {
        failWithErrno("cannot make private", "the mounts");
    }
}

void requireDeviceRoot(char** argv) {
    if (const std::string missing = missingTool(); !missing.empty()) {
        fprintf(stderr, "%s: %s\n", argv[0], missing.c_str());
        exit(1);
    }
    if (geteuid() == 0) return takeOwnMounts();
    if (getenv(kInNamespace) != nullptr ||
        system("unshare --user --map-root-user --mount true 2>/dev/null") != 0) {
        fprintf(stderr,
                "%s: a device root needs root, or a user namespace (unshare --user --mount), and "
                "this system allows neither\n",
                argv[0]);
        exit(1);
    }
    setenv(kInNamespace, "1", 1);
    std::vector<const char*> arguments = {"unshare", "--user", "--map-root-user", "--mount"};
    for (char** argument = argv; *argument != nullptr; ++argument) arguments.push_back(*argument);
    arguments.push_back(nullptr);
    execvp("unshare", const_cast<char**>(arguments.data()));
    perror("unshare");
    exit(1);
}

void copyDeviceTools(const std::string& folder) {
    if (const std::string missing = missingTool(); !missing.empty()) {
        throw std::runtime_error(missing);
    }
    for (const std::string& path : {std::string(kBusybox), std::string(kSmallShell),
                                    std::string(kSmallCat), shellLibrary("")}) {
        makeFolders(std::filesystem::path(folder + path).parent_path());
        std::filesystem::copy_file(path, folder + path);
    }
}

DeviceRoot::DeviceRoot(std::string path, const std::string& tools) : mPath(std::move(path)) {
    if (fileExists(mPath) && !std::filesystem::is_empty(mPath)) {
        throw std::runtime_error("cannot make a device root of " + mPath + ": it is not empty");
    }
    for (const std::string& folder : {kDev, kData, kProc, kPstore, kToolFolder}) {
        makeFolders(at(folder));
    }
    makeFolders(at("/lib"));
    makeFolders(at(kLogs), 0777);
    makeFolders(at(kRecordFolder), 0777);
    std::filesystem::create_directory_symlink("system/bin", at("/bin"));
    const std::string library = shellLibrary(tools);
    for (const auto& [tool, place] : {std::pair<std::string, std::string>{kSmallShell, kShell},
                                      {kSmallCat, kToolFolder + "cat"},
                                      {library, library},
                                      {kBusybox, kToolFolder + "busybox"}}) {
        // Never a link to the workstation's own, which a boot could write to.
        if (tools.empty()) {
            std::filesystem::copy_file(tool, at(place));
        } else {
            std::filesystem::create_hard_link(tools + tool, at(place));
        }
    }
    for (const char* tool : kBusyboxTools) {
        std::filesystem::create_symlink("busybox", at(kToolFolder + tool));
    }
    const std::string buffer = kLogBuffers + "$buffer";
    writeScript(at(kToolFolder + "logcat"),
                "while [ $# -gt 0 ]; do [ \"$1\" = -b ] && buffer=$2; shift; done\n"
                "[ -e " +
                        buffer + kEndlessMark + " ] && while cat " + buffer +
                        "; do :; done\n"
                        "exec cat " +
                        buffer + "\n");
    writeScript(at(kToolFolder + "dmesg"), "exec cat " + kKernelLogBuffer + "\n");
}

std::string DeviceRoot::at(const std::string& devicePath) const {
    return mPath + devicePath;
}

void DeviceRoot::mountPartition(size_t bytes) const {
    const auto most = std::filesystem::space(mPath).capacity;
    if (bytes > most) {
        throw std::runtime_error(
                format("a partition of %zu bytes is larger than the %ju there are", bytes, most));
    }
    const std::string options = format("mode=0777,nr_inodes=64k,size=%zu", bytes);
    if (mount("velafs", at(kPartition).c_str(), "tmpfs", 0, options.c_str()) != 0) {
        failWithErrno("cannot mount a partition at", at(kPartition));
    }
}

void DeviceRoot::makePartitionWritable() const {
    if (mount(nullptr, at(kPartition).c_str(), nullptr, MS_REMOUNT, nullptr) != 0) {
        failWithErrno("cannot make writable", at(kPartition));
    }
}

void DeviceRoot::unmountPartition() const {
    namespace fs = std::filesystem;
    const fs::path partition = at(kPartition);
    const fs::path copy = at(kPartition + ".copy");
    fs::copy(partition, copy, fs::copy_options::recursive);
    // A command that was killed a moment ago may still hold a file.
    if (umount2(partition.c_str(), MNT_DETACH) != 0) failWithErrno("cannot unmount", partition);
    fs::remove_all(partition);
    fs::rename(copy, partition);
}

void DeviceRoot::enter() const {
    if (chroot(mPath.c_str()) != 0 || chdir("/") != 0) failWithErrno("cannot chroot to", mPath);
    gInside = true;
}

namespace {

// Not opened by its name, for which an emulator opens the folder of its libraries.
int openRoot() {
    return chdir("/") == 0 ? open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC) : -1;
}

}  // namespace

InsideRoot::InsideRoot(const DeviceRoot& root)
    : mWasInside(gInside),
      mOldFolder(open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC)),
      mOldRoot(openRoot()) {
    root.enter();
}

InsideRoot::~InsideRoot() {
    if (fchdir(mOldRoot) != 0 || chroot(".") != 0 || fchdir(mOldFolder) != 0) abort();
    close(mOldRoot);
    close(mOldFolder);
    gInside = mWasInside;
}

}  // namespace lab

// Asked by the sanitizers, under their own names.
extern "C" {

int __lsan_is_turned_off();
const char* __tsan_default_options();

// Inside a device root the leak checker could not look at /proc/self.
int __lsan_is_turned_off() {
    return lab::gInside ? 1 : 0;
}

// A boot's process waits a second at its end otherwise.
const char* __tsan_default_options() {
    return "atexit_sleep_ms=0";
}

}  // extern "C"
