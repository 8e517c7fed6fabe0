// SPDX-License-Identifier: Apache-2.0
// Small whole-file helpers of the lab. Failures throw std::runtime_error naming the file.

#include "lab/base/Files.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <stdexcept>

namespace lab {

namespace {

// A pipe that somebody put in the place of a file is an error, and nothing to wait for.
constexpr int kWrite = O_WRONLY | O_CREAT | O_NONBLOCK | O_CLOEXEC;

void writeAll(const std::string& path, const std::string& content, int flags) {
    int fd = open(path.c_str(), kWrite | flags, 0644);
    if (fd < 0 && errno == ENOENT) {
        makeFolders(std::filesystem::path(path).parent_path());
        fd = open(path.c_str(), kWrite | flags, 0644);
    }
    if (fd < 0) failWithErrno("cannot write", path);
    size_t done = 0;
    while (done < content.size()) {
        const ssize_t count = write(fd, content.data() + done, content.size() - done);
        if (count < 0) {
            const int error = errno;
            close(fd);
            errno = error;
            failWithErrno("cannot write", path);
        }
        done += static_cast<size_t>(count);
    }
    close(fd);
}

}  // namespace

void failWithErrno(const std::string& what, const std::string& path) {
    throw std::runtime_error(what + " " + path + ": " + strerror(errno));
}

bool fileExists(const std::string& path) {
    return access(path.c_str(), F_OK) == 0;
}

std::string readFile(const std::string& path, size_t most) {
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) failWithErrno("cannot read", path);
    std::string content;
    char buffer[65536];
    ssize_t count = 0;
    while (content.size() <= most && (count = read(fd, buffer, sizeof(buffer))) > 0) {
        content.append(buffer, static_cast<size_t>(count));
    }
    const int error = errno;
    close(fd);
    errno = error;
    if (count < 0) failWithErrno("cannot read", path);
    if (content.size() > most) {
        throw std::runtime_error(path + ": more than " + std::to_string(most) + " bytes");
    }
    return content;
}

std::string readFileOr(const std::string& path, const std::string& missing) {
    std::error_code none;
    return std::filesystem::is_regular_file(path, none) ? readFile(path) : missing;
}

void writeFile(const std::string& path, const std::string& content) {
    writeAll(path, content, O_TRUNC);
}

void appendFile(const std::string& path, const std::string& content) {
    writeAll(path, content, O_APPEND);
}

void makeFolders(const std::string& path, unsigned int mode) {
    if (path.empty()) return;
    if (mkdir(path.c_str(), mode) != 0) {
        if (errno == EEXIST) return;
        if (errno != ENOENT) failWithErrno("cannot make", path);
        makeFolders(std::filesystem::path(path).parent_path(), mode);
        if (mkdir(path.c_str(), mode) != 0 && errno != EEXIST) failWithErrno("cannot make", path);
    }
    chmod(path.c_str(), mode);
}

}  // namespace lab
