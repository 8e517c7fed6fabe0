// SPDX-License-Identifier: Apache-2.0
// Files that appear whole or not at all.

#include "report/show/WholeFile.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <stdexcept>

#include "report/read/Files.h"

namespace report {

void writeWhole(const std::string& path, const std::function<void(const Append& append)>& write) {
    const std::string part = path + ".part";
    const auto check = [&](bool done) {
        if (!done) throw std::runtime_error("cannot write " + path + ": " + strerror(errno));
    };
    const File file(fopen(part.c_str(), "we"));
    check(file != nullptr);
    try {
        write([&](std::string_view text) {
            check(fwrite(text.data(), 1, text.size(), file.get()) == text.size());
        });
        check(fflush(file.get()) == 0 && rename(part.c_str(), path.c_str()) == 0);
    } catch (...) {
        unlink(part.c_str());
        throw;
    }
}

void writeWhole(const std::string& path, const std::string& content) {
    writeWhole(path, [&](const Append& append) { append(content); });
}

}  // namespace report
