// SPDX-License-Identifier: Apache-2.0
// Copies a folder that a stranger filled.

#include "lab/base/FolderCopy.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>
#include <stdexcept>
#include <string_view>

#include <android-base/file.h>
#include <android-base/unique_fd.h>

#include "lab/base/Files.h"

namespace lab {

namespace {

using android::base::unique_fd;

constexpr int kRead = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
constexpr mode_t kModes = 01777;  // a program that runs as its owner is none of ours to make

class Copy {
public:
    Copy(const std::string& to, uint64_t most) : mTo(to), mMost(most) {}

    void folder(unique_fd from, int to) {
        const std::unique_ptr<DIR, int (*)(DIR*)> list(android::base::Fdopendir(std::move(from)),
                                                       closedir);
        if (list == nullptr) fail("folder");
        while (const dirent* entry = readdir(list.get())) {
            const std::string_view name = entry->d_name;
            if (name != "." && name != "..") item(dirfd(list.get()), to, entry->d_name);
        }
    }

private:
    [[noreturn]] void fail(const std::string& name) const {
        failWithErrno("cannot copy " + name + " to", mTo);
    }

    void item(int from, int to, const char* name) {
        struct stat info = {};
        if (fstatat(from, name, &info, AT_SYMLINK_NOFOLLOW) != 0) fail(name);
        if (S_ISLNK(info.st_mode)) return link(from, to, name);
        if (!S_ISDIR(info.st_mode) && !S_ISREG(info.st_mode)) return;
        unique_fd source(openat(from, name, kRead));
        if (source < 0) fail(name);
        const bool isFolder = S_ISDIR(info.st_mode);
        if (isFolder && mkdirat(to, name, 0700) != 0 && errno != EEXIST) fail(name);
        const unique_fd target(
                openat(to, name,
                       O_NOFOLLOW | O_CLOEXEC |
                               (isFolder ? O_RDONLY | O_DIRECTORY : O_WRONLY | O_CREAT | O_TRUNC),
                       0600));
        if (target < 0) fail(name);
        if (isFolder) {
            folder(std::move(source), target);
        } else {
            content(source, target, name);
        }
        if (fchmod(target, info.st_mode & kModes) != 0) fail(name);
    }

    void link(int from, int to, const char* name) const {
        char text[PATH_MAX];
        const ssize_t size = readlinkat(from, name, text, sizeof(text) - 1);
        if (size < 0) fail(name);
        text[size] = '\0';
        const std::string_view target = text;
        if (target.front() == '/' || target.find("..") != target.npos) return;
        if (symlinkat(text, to, name) != 0 && errno != EEXIST) fail(name);
    }

    void content(int from, int to, const char* name) {
        char buffer[65536];
        ssize_t count = 0;
        while ((count = TEMP_FAILURE_RETRY(read(from, buffer, sizeof(buffer)))) > 0) {
            mDone += static_cast<uint64_t>(count);
            if (mDone > mMost) throw std::runtime_error("there is too much to copy to " + mTo);
            if (!android::base::WriteFully(to, buffer, static_cast<size_t>(count))) fail(name);
        }
        if (count < 0) fail(name);
    }

    const std::string& mTo;
    const uint64_t mMost;
    uint64_t mDone = 0;
};

}  // namespace

void copyFolder(int parent, const std::string& name, const std::string& to, uint64_t most) {
    unique_fd from(openat(parent, name.c_str(), kRead | O_DIRECTORY));
    if (from < 0 && errno == ENOENT) return;
    if (from < 0) failWithErrno("cannot read", name);
    makeFolders(to);
    const unique_fd target(open(to.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (target < 0) failWithErrno("cannot write", to);
    Copy(to, most).folder(std::move(from), target);
}

}  // namespace lab
