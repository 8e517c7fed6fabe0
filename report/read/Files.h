// SPDX-License-Identifier: Apache-2.0
// Files of a copied partition, which comes from outside: only regular files and folders that really
// lie in it are opened, whatever links it holds.

#pragma once

#include <stdio.h>
#include <sys/types.h>

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <android-base/unique_fd.h>

namespace report {

struct FileCloser {
    void operator()(FILE* file) const {
        fclose(file);
    }
};
using File = std::unique_ptr<FILE, FileCloser>;

// Opens a regular file that is no link; the folders above it may be links. On failure returns null
// and says why in `error`.
File openRegular(const std::string& path, std::string& error);

// An open folder. Names of what is below it may have several parts, "SDD/bfRecord.txt"; a part that
// is a link is an error and is not followed.
class Folder {
public:
    // Holds nothing.
    Folder() = default;
    // The folder that a user names; links are followed. `error` says why it can't be opened, and
    // the folder then holds nothing.
    Folder(const std::string& path, std::string& error);

    // Whether there is anything of that name, or may be: that can't be told of every folder.
    bool has(const std::string& name) const;

    // Both say in `error` why nothing was opened; it stays empty when there is no such thing.
    Folder open(const std::string& name, std::string& error) const;
    File openFile(const std::string& name, std::string& error) const;

    // The names in this folder, without "." and ".."; no more than `most`, and then `error` says
    // so.
    std::vector<std::string> names(size_t most, std::string& error) const;

private:
    android::base::unique_fd openKind(const std::string& name, mode_t kind,
                                      std::string& error) const;

    std::shared_ptr<const android::base::unique_fd> mDescriptor;
};

// The lines of a text without their line feeds.
std::vector<std::string> linesOf(const std::string& text);

// Cuts text that comes piece by piece into lines, of which no more than `longest` bytes are kept.
class LineCutter {
public:
    using Take = std::function<void(std::string_view line)>;

    LineCutter(size_t longest, Take take) : mLongest(longest), mTake(std::move(take)) {}

    void add(std::string_view piece);
    // Gives the last line, where it has no line feed.
    void finish();

private:
    void keep(std::string_view part);

    const size_t mLongest;
    const Take mTake;
    std::string mBegun;  // of a line whose end has not come
    bool mOpen = false;  // there is such a line
};

// Drops the middle of a list so that its first and last `most` / 2 stay; gives how many went.
template <typename Value>
size_t dropMiddle(std::vector<Value>& list, size_t most) {
    if (list.size() <= most) return 0;
    const auto begin = list.begin() + static_cast<ptrdiff_t>(most / 2);
    const auto end = list.end() - static_cast<ptrdiff_t>(most - most / 2);
    const auto dropped = static_cast<size_t>(end - begin);
    list.erase(begin, end);
    return dropped;
}

}  // namespace report
