// SPDX-License-Identifier: Apache-2.0
// Files that appear whole or not at all.

#pragma once

#include <stdio.h>

#include <string>
#include <string_view>

namespace report {

// Is written under another name until finish(). Everything here throws std::runtime_error naming
// the file when it can't be written; nothing of it is left then.
class NewFile {
public:
    explicit NewFile(const std::string& path);
    ~NewFile();
    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;

    void add(std::string_view text);
    void finish();

private:
    [[noreturn]] void fail() const;

    const std::string mPath;
    const std::string mTemporary;
    FILE* mFile;
};

// Writes a whole file.
void writeWhole(const std::string& path, const std::string& content);

}  // namespace report
