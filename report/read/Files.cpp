// SPDX-License-Identifier: Apache-2.0
// Files of a copied partition, which comes from outside: only regular files and folders that really
// lie in it are opened, whatever links it holds.

#include "report/read/Files.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>

#include <algorithm>
#include <sstream>

#include "common/text/Printable.h"

namespace report {

namespace {

using android::base::unique_fd;

// A pipe that nobody writes to must not block, nor a terminal become this process's own.
constexpr int kFlags = O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;

// What speaks against a file of this mode where one of `kind` is wanted; null when nothing does.
const char* objection(mode_t mode, mode_t kind) {
    if ((mode & S_IFMT) == kind) return nullptr;
    if (S_ISLNK(mode)) return "is a symbolic link, which is not followed";
    return kind == S_IFDIR ? "is not a folder" : "is not a regular file";
}

// Opens one name of a folder; no device is opened even for a moment. -1 without an error: there is
// no such name.
unique_fd openOne(int folder, const std::string& name, mode_t kind, std::string& error) {
    struct stat info = {};
    if (fstatat(folder, name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0) {
        if (errno != ENOENT) error = strerror(errno);
        return {};
    }
    const char* wrong = objection(info.st_mode, kind);
    unique_fd fd;
    if (wrong == nullptr) {
        fd.reset(openat(folder, name.c_str(), kFlags | O_NOFOLLOW));
        // It may have been replaced meanwhile.
        if (fd < 0 || fstat(fd, &info) != 0) {
            error = strerror(errno);
            return {};
        }
        wrong = objection(info.st_mode, kind);
    }
    if (wrong == nullptr) return fd;
    error = wrong;
    return {};
}

File fileOf(unique_fd fd, std::string& error) {
    if (fd < 0) return nullptr;
    File file(android::base::Fdopen(std::move(fd), "rb"));
    if (!file) error = strerror(errno);
    return file;
}

}  // namespace

File openRegular(const std::string& path, std::string& error) {
    unique_fd fd = openOne(AT_FDCWD, path, S_IFREG, error);
    if (fd < 0 && error.empty()) error = strerror(ENOENT);
    return fileOf(std::move(fd), error);
}

Folder::Folder(const std::string& path, std::string& error) {
    auto fd = std::make_shared<unique_fd>(::open(path.c_str(), kFlags | O_DIRECTORY));
    if (*fd < 0) {
        error = errno == ENOTDIR ? "is not a folder" : strerror(errno);
    } else {
        mDescriptor = std::move(fd);
    }
}

// Part by part, so that a link is found at every place of the name.
unique_fd Folder::openKind(const std::string& name, mode_t kind, std::string& error) const {
    unique_fd folder;
    int from = mDescriptor ? mDescriptor->get() : -1;
    size_t begin = 0;
    for (size_t end = 0; from >= 0 && end < name.size(); begin = end + 1) {
        end = std::min(name.find('/', begin), name.size());
        const bool last = end == name.size();
        folder = openOne(from, name.substr(begin, end - begin), last ? kind : S_IFDIR, error);
        if (!last && !error.empty()) error = name.substr(0, end) + " " + error;
        from = folder;
    }
    return folder;
}

bool Folder::has(const std::string& name) const {
    struct stat info = {};
    if (!mDescriptor) return false;
    return fstatat(*mDescriptor, name.c_str(), &info, AT_SYMLINK_NOFOLLOW) == 0 || errno != ENOENT;
}

Folder Folder::open(const std::string& name, std::string& error) const {
    Folder folder;
    unique_fd fd = openKind(name, S_IFDIR, error);
    if (fd >= 0) folder.mDescriptor = std::make_shared<unique_fd>(std::move(fd));
    return folder;
}

File Folder::openFile(const std::string& name, std::string& error) const {
    return fileOf(openKind(name, S_IFREG, error), error);
}

std::vector<std::string> Folder::names(size_t most, std::string& error) const {
    std::vector<std::string> names;
    if (!mDescriptor) return names;
    // Its own descriptor, because reading moves its position.
    unique_fd fd(openat(*mDescriptor, ".", kFlags | O_DIRECTORY));
    const std::unique_ptr<DIR, int (*)(DIR*)> folder(fd < 0 ? nullptr
                                                            : android::base::Fdopendir(
                                                                      std::move(fd)),
                                                     closedir);
    if (!folder) {
        error = strerror(errno);
        return names;
    }
    errno = 0;
    for (const dirent* entry = nullptr; (entry = readdir(folder.get())) != nullptr;) {
        const std::string name = entry->d_name;
        if (name == "." || name == "..") continue;
        if (names.size() == most) {
            error = "holds more than " + text::grouped(most) + " files; only these were looked at";
            return names;
        }
        names.push_back(name);
    }
    if (errno != 0) error = strerror(errno);
    return names;
}

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    std::string line;
    while (std::getline(in, line)) lines.push_back(line);
    return lines;
}

void LineCutter::keep(std::string_view part) {
    mOpen = true;
    mBegun.append(part.substr(0, mLongest - std::min(mLongest, mBegun.size())));
}

void LineCutter::add(std::string_view piece) {
    for (size_t feed = 0; (feed = piece.find('\n')) != std::string_view::npos;) {
        if (mOpen) {
            keep(piece.substr(0, feed));
            finish();
        } else {
            mTake(piece.substr(0, std::min(feed, mLongest)));
        }
        piece.remove_prefix(feed + 1);
    }
    if (!piece.empty()) keep(piece);
}

void LineCutter::finish() {
    if (mOpen) mTake(mBegun);
    mBegun.clear();
    mOpen = false;
}

}  // namespace report
