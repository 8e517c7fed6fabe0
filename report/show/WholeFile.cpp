// SPDX-License-Identifier: Apache-2.0
// Files that appear whole or not at all.

#include "report/show/WholeFile.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <stdexcept>

#include "report/read/Files.h"

namespace report {

namespace {

// Holds back what would end the process and leave half a file.
class HeldSignals {
public:
    HeldSignals() {
        sigset_t signals;
        sigemptyset(&signals);
        for (const int signal : {SIGHUP, SIGINT, SIGQUIT, SIGTERM}) {
            sigaddset(&signals, signal);
        }
        pthread_sigmask(SIG_BLOCK, &signals, &mBefore);
    }
    ~HeldSignals() {
        pthread_sigmask(SIG_SETMASK, &mBefore, nullptr);
    }
    HeldSignals(const HeldSignals&) = delete;
    HeldSignals& operator=(const HeldSignals&) = delete;

private:
    sigset_t mBefore = {};
};

// A new file beside another one, which goes unless it takes that one's place.
class NewFile {
public:
    // With the mode of the file to be replaced, where there is one.
    NewFile(const std::string& path, const struct stat* replaced)
        : mPath(std::filesystem::path(path).replace_filename(".bootvigil-report.XXXXXX")) {
        const int fd = mkostemp(mPath.data(), O_CLOEXEC);
        if (fd < 0) {
            mPath.clear();
            return;
        }
        mFile.reset(android::base::Fdopen(android::base::unique_fd(fd), "w"));
        const mode_t mask = umask(0);
        umask(mask);
        fchmod(fd, replaced != nullptr ? replaced->st_mode & 0777 : 0666 & ~mask);
    }
    ~NewFile() {
        if (!mPath.empty()) unlink(mPath.c_str());
    }
    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;

    FILE* file() {
        return mFile.get();
    }
    bool take(const std::string& place) {
        if (fclose(mFile.release()) != 0) return false;
        if (rename(mPath.c_str(), place.c_str()) != 0) return false;
        mPath.clear();
        return true;
    }

private:
    std::string mPath;
    File mFile;
};

class Target {
public:
    explicit Target(const std::string& path) : mPath(path) {}

    void check(bool done) const {
        if (!done) fail(strerror(errno));
    }
    [[noreturn]] void fail(const std::string& why) const {
        throw std::runtime_error("cannot write " + mPath + ": " + why);
    }

    void write(FILE* file, const std::function<void(const Append& append)>& content) const {
        check(file != nullptr);
        content([&](std::string_view text) {
            check(fwrite(text.data(), 1, text.size(), file) == text.size());
        });
        check(fflush(file) == 0);
    }

private:
    const std::string& mPath;
};

}  // namespace

void writeWhole(const std::string& path, const std::function<void(const Append& append)>& write) {
    const Target target(path);
    struct stat info = {};
    const bool there = lstat(path.c_str(), &info) == 0;
    target.check(there || errno == ENOENT);
    if (there && S_ISLNK(info.st_mode)) {
        target.fail("is a symbolic link, which is neither followed nor replaced");
    }
    if (there && (S_ISCHR(info.st_mode) || S_ISFIFO(info.st_mode))) {
        const int fd = open(path.c_str(), O_WRONLY | O_CLOEXEC | O_NOFOLLOW | O_NOCTTY);
        target.check(fd >= 0);
        const File file(android::base::Fdopen(android::base::unique_fd(fd), "w"));
        return target.write(file.get(), write);
    }
    if (there && !S_ISREG(info.st_mode)) target.fail("is not a file");
    const HeldSignals held;
    NewFile part(path, there ? &info : nullptr);
    target.write(part.file(), write);
    target.check(part.take(path));
}

void writeWhole(const std::string& path, const std::string& content) {
    writeWhole(path, [&](const Append& append) { append(content); });
}

}  // namespace report
