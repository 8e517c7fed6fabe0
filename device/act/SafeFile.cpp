// SPDX-License-Identifier: Apache-2.0
// Small files that survive a power cut.

#include "device/act/SafeFile.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

namespace act {

namespace {

// What the file holds is on the disk when this is true.
bool writeWhole(const std::string& path, const std::string& content, mode_t mode) {
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode);
    if (fd < 0) return false;
    size_t done = 0;
    while (done < content.size()) {
        const ssize_t size =
                TEMP_FAILURE_RETRY(write(fd, content.data() + done, content.size() - done));
        if (size <= 0) break;
        done += static_cast<size_t>(size);
    }
    const bool synced = done == content.size() && fsync(fd) == 0;
    const int error = errno;
    const bool closed = close(fd) == 0;
    if (!synced) errno = error;
    return synced && closed;
}

bool syncFolderOf(const std::string& path) {
    const std::string folder = path.substr(0, path.rfind('/') + 1);
    const int fd = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) return false;
    const bool synced = fsync(fd) == 0;
    const int error = errno;
    close(fd);
    errno = error;
    return synced;
}

}  // namespace

Read readFile(const std::string& path, size_t most, std::string& content) {
    content.clear();
    // O_NONBLOCK: a pipe in its place must not hold us up.
    const int fd = open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) return errno == ENOENT ? Read::MISSING : Read::FAILED;
    struct stat info = {};
    bool good = fstat(fd, &info) == 0 && S_ISREG(info.st_mode);
    char buffer[4096];
    while (good && content.size() <= most) {
        const ssize_t size = TEMP_FAILURE_RETRY(read(fd, buffer, sizeof(buffer)));
        good = size >= 0;
        if (size <= 0) break;
        content.append(buffer, static_cast<size_t>(size));
    }
    close(fd);
    return good && content.size() <= most ? Read::OK : Read::FAILED;
}

bool replaceFile(const std::string& path, const std::string& content, unsigned int mode) {
    const std::string beside = path + ".new";
    remove(beside.c_str());  // of a power cut
    if (writeWhole(beside, content, mode) && rename(beside.c_str(), path.c_str()) == 0) {
        return syncFolderOf(path);
    }
    const int error = errno;
    remove(beside.c_str());
    errno = error;
    return false;
}

}  // namespace act
