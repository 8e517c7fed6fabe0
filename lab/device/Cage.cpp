// SPDX-License-Identifier: Apache-2.0
// The cage: where the boots of a stranger's scenario run, out of reach of the workstation.

#include "lab/device/Cage.h"

#include <errno.h>
#include <fcntl.h>
#include <grp.h>
#include <sched.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <new>
#include <stdexcept>

#include "lab/base/Files.h"
#include "lab/base/FolderCopy.h"
#include "lab/base/Sanitizers.h"
#include "lab/base/Text.h"
#include "lab/device/DeviceRoot.h"

namespace lab {

namespace {

using android::base::unique_fd;

// Where the cage's file system is mounted until it is all there is: each system has this folder,
// and once the limits are set nothing more is needed from it.
const std::string kPlace = "/proc";
const std::string kFolder = "/lab";  // in the cage

int gBootSeconds = CageOptions().bootSeconds;

constexpr size_t kMemory = size_t{1} << 30;  // bytes for each process
constexpr int kNobody = 65534;

[[noreturn]] void failToCage(const std::string& step) {
    throw std::runtime_error(
            "cannot make a cage: " + step + ": " + strerror(errno) +
            "; allow user namespaces (user.max_user_namespaces above 0, "
            "kernel.unprivileged_userns_clone=1, kernel.apparmor_restrict_unprivileged_userns=0, "
            "in a container a seccomp profile that lets clone and mount pass), or give --no-cage");
}

// The two sides take turns: each waits for a byte of the other. False when the other has ended.
bool awaitOther(int other) {
    char byte = 0;
    return TEMP_FAILURE_RETRY(read(other, &byte, 1)) == 1;
}

void tellOther(int other) {
    send(other, "", 1, MSG_NOSIGNAL);
}

// Inside there is one user, who is root there. Outside that is nobody where this process may say
// so, because the kernel doesn't count root's processes; else this process's own user.
void mapUser(pid_t child) {
    const std::string process = "/proc/" + std::to_string(child);
    const auto map = [&](uid_t user, gid_t group) {
        writeFile(process + "/uid_map", format("0 %u 1", user));
        writeFile(process + "/gid_map", format("0 %u 1", group));
    };
    if (geteuid() == 0) {
        try {
            return map(kNobody, kNobody);
        } catch (const std::runtime_error&) {
            // It is root of a user namespace that has no nobody.
        }
    }
    writeFile(process + "/setgroups", "deny");
    map(geteuid(), getegid());
}

// Programs that a scenario brings along get no rights at all; the lab itself must mount and chroot.
void leaveNoRightsToPrograms() {
    for (int capability = 0; prctl(PR_CAPBSET_READ, capability) >= 0; ++capability) {
        if (prctl(PR_CAPBSET_DROP, capability) != 0) failToCage("capabilities");
    }
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) failToCage("no_new_privs");
}

int exitStatus(int status) {
    if (WIFEXITED(status)) return WEXITSTATUS(status);
    throw std::runtime_error(format("signal %d ended the cage", WTERMSIG(status)));
}

}  // namespace

int orLabFailed(const std::function<int()>& work) {
    std::string error;
    try {
        return work();
    } catch (const std::bad_alloc&) {
        error = "out of memory";
    } catch (const std::exception& thrown) {
        error = thrown.what();
    }
    for (char& c : error) {
        if (static_cast<unsigned char>(c) < ' ' || c == 0x7f) c = '?';
    }
    fprintf(stderr, "bootvigil-lab: the lab failed: %s\n", error.c_str());
    return kLabFailed;
}

int bootSeconds() {
    return gBootSeconds;
}

int Cage::run(const Work& work) {
    gBootSeconds = mOptions.bootSeconds;
    return orLabFailed([&] { return mOptions.none ? runWithout(work) : runInside(work); });
}

int Cage::runWithout(const Work& work) {
    if (geteuid() != 0) throw std::runtime_error("--no-cage needs root");
    takeOwnMounts();
    mUncaged.emplace(TemporaryFolder::inMemory());
    copyDeviceTools(mUncaged->path() + "/tools");
    mFiles.reset(open(mUncaged->path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return work(mUncaged->path());
}

int Cage::runInside(const Work& work) {
    fflush(nullptr);  // else the child has it too
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) failToCage("socketpair");
    unique_fd inside(ends[0]);
    // Not by fork(): the thread sanitizer's has a second thread in the child, and a process with
    // threads may not enter a user namespace.
    const long child = syscall(SYS_clone,
                               CLONE_NEWUSER | CLONE_NEWPID | CLONE_NEWNET | CLONE_NEWIPC |
                                       CLONE_NEWUTS | SIGCHLD,
                               nullptr, nullptr, nullptr, nullptr);
    if (child == 0) becomeCaged(ends[1], work);
    close(ends[1]);
    if (child < 0) failToCage("clone");
    const auto wait = [&] {
        inside.reset();  // it ends, should it still wait for this side
        int status = 0;
        TEMP_FAILURE_RETRY(waitpid(static_cast<pid_t>(child), &status, 0));
        return status;
    };
    try {
        mapUser(static_cast<pid_t>(child));
    } catch (const std::runtime_error&) {
        wait();
        throw;
    }
    tellOther(inside);
    if (awaitOther(inside)) {
        const std::string files = "/proc/" + std::to_string(child) + "/root" + kFolder;
        mFiles.reset(open(files.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        if (mFiles < 0) {
            const int error = errno;
            wait();
            errno = error;
            failWithErrno("cannot see into the cage:", files);
        }
        tellOther(inside);
    }
    return exitStatus(wait());
}

// In the cage's first process, whose end is that of all others.
void Cage::becomeCaged(int outside, const Work& work) const {
    const int status = orLabFailed([&] {
        enter(outside);
        return work(kFolder);
    });
    fflush(nullptr);
    _exit(status);
}

void Cage::enter(int outside) const {
    // Whatever else is open here must not be there: no file, and no terminal to type into.
    if (dup2(outside, STDERR_FILENO + 1) < 0 || close_range(STDERR_FILENO + 2, ~0U, 0) != 0 ||
        fcntl(STDERR_FILENO + 1, F_SETFD, FD_CLOEXEC) != 0) {
        failToCage("descriptors");
    }
    unique_fd other(STDERR_FILENO + 1);
    const unique_fd null(open("/dev/null", O_RDWR | O_CLOEXEC));
    if (dup2(null, STDIN_FILENO) < 0 || setsid() < 0) failToCage("/dev/null");
    if (!awaitOther(other)) _exit(kLabFailed);

    setLimits();
    setgroups(0, nullptr);  // where it is allowed; a user keeps those that are his anyway
    if (setresgid(0, 0, 0) != 0 || setresuid(0, 0, 0) != 0) failToCage("setuid");
    makeFiles();
    leaveNoRightsToPrograms();
    // After the last change of the user, which takes it back; whoever made the cage may be gone.
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    tellOther(other);
    if (!awaitOther(other)) _exit(kLabFailed);
}

// A file system in memory with the tools, and nothing else.
void Cage::makeFiles() const {
    takeOwnMounts();
    const std::string options =
            format("mode=0755,size=%dm,nr_inodes=%dk", mOptions.megabytes, mOptions.megabytes);
    if (mount("cage", kPlace.c_str(), "tmpfs", MS_NOSUID | MS_NODEV, options.c_str()) != 0) {
        failToCage("mount");
    }
    copyDeviceTools(kPlace + kFolder + "/tools");
    const std::string null = kPlace + "/dev/null";
    writeFile(null, "");
    if (mount("/dev/null", null.c_str(), nullptr, MS_BIND, nullptr) != 0) failToCage("bind mount");
    // The old root comes to lie on the new one, from where it is taken away.
    if (chdir(kPlace.c_str()) != 0 || syscall(SYS_pivot_root, ".", ".") != 0 ||
        umount2(".", MNT_DETACH) != 0 || chdir("/") != 0) {
        failToCage("pivot_root");
    }
}

void Cage::setLimits() const {
    // Where memory runs out all the same, the kernel is to take it from here first; and a program
    // in a namespace of its own could mount what has no limit. Where /proc can't be written,
    // neither.
    for (const auto& [file, value] : {std::pair{"/proc/self/oom_score_adj", "1000"},
                                      {"/proc/sys/user/max_user_namespaces", "0"}}) {
        const unique_fd fd(open(file, O_WRONLY | O_CLOEXEC));
        if (fd >= 0 && write(fd, value, strlen(value)) < 0) failToCage(file);
    }
    const rlim_t size = static_cast<rlim_t>(mOptions.megabytes) << 20;
    const struct {
        __rlimit_resource resource;
        rlim_t least, most;
        const char* what;
    } limits[] = {{RLIMIT_CORE, 0, 0, "core files"},
                  {RLIMIT_FSIZE, 0, size, "file size"},
                  {RLIMIT_NOFILE, 64, 1024, "open files"},
                  {RLIMIT_NPROC, 0, 64 + 16 * static_cast<rlim_t>(mJobs), "processes"},
                  {RLIMIT_DATA, 0, kSanitized ? RLIM_INFINITY : kMemory, "memory"}};
    for (const auto& [resource, least, most, what] : limits) {
        rlimit limit = {};
        getrlimit(resource, &limit);
        limit.rlim_cur = limit.rlim_max = std::min(most, limit.rlim_max);
        if (limit.rlim_cur < least || setrlimit(resource, &limit) != 0) {
            throw std::runtime_error(
                    format("a limit of %ju is too low for %s", limit.rlim_cur, what));
        }
    }
    signal(SIGXFSZ, SIG_IGN);  // a file that is too large is an error
}

void Cage::copyOut(const std::string& name, const std::string& to) const {
    // A partition of its own lies beside the cage's files until it is copied among them.
    copyFolder(mFiles, name, to, static_cast<uint64_t>(mOptions.megabytes) << 20);
}

}  // namespace lab
