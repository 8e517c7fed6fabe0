// SPDX-License-Identifier: Apache-2.0
// Files of a copied partition, which comes from outside: nothing but regular files is opened.

#pragma once

#include <stdio.h>

#include <memory>
#include <string>
#include <vector>

namespace report {

struct FileCloser {
    void operator()(FILE* file) const {
        fclose(file);
    }
};
using File = std::unique_ptr<FILE, FileCloser>;

// Opens a file for reading. On failure returns null and says why in `error`, which stays empty when
// `mayBeMissing` is set and there is no such file.
File openRegular(const std::string& path, std::string& error, bool mayBeMissing = false);

// The lines of a text without their line feeds.
std::vector<std::string> linesOf(const std::string& text);

}  // namespace report
