// SPDX-License-Identifier: Apache-2.0
// Files that appear whole or not at all.

#include "report/show/NewFile.h"

#include <errno.h>
#include <string.h>
#include <unistd.h>

#include <stdexcept>

namespace report {

NewFile::NewFile(const std::string& path)
    : mPath(path), mTemporary(path + ".part"), mFile(fopen(mTemporary.c_str(), "we")) {
    if (mFile == nullptr) fail();
}

NewFile::~NewFile() {
    if (mFile == nullptr) return;
    fclose(mFile);
    unlink(mTemporary.c_str());
}

void NewFile::add(std::string_view text) {
    if (fwrite(text.data(), 1, text.size(), mFile) < text.size()) fail();
}

void NewFile::finish() {
    if (fflush(mFile) != 0 || rename(mTemporary.c_str(), mPath.c_str()) != 0) fail();
    fclose(mFile);
    mFile = nullptr;
}

void NewFile::fail() const {
    throw std::runtime_error("cannot write " + mPath + ": " + strerror(errno));
}

void writeWhole(const std::string& path, const std::string& content) {
    NewFile file(path);
    file.add(content);
    file.finish();
}

}  // namespace report
