// SPDX-License-Identifier: Apache-2.0
// Files of a copied partition, which comes from outside: nothing but regular files is opened.

#include "report/read/Files.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <sstream>

namespace report {

File openRegular(const std::string& path, std::string& error, bool mayBeMissing) {
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
    struct stat info = {};
    if (fd < 0 || fstat(fd, &info) != 0) {
        if (!mayBeMissing || errno != ENOENT) error = strerror(errno);
    } else if (!S_ISREG(info.st_mode)) {
        error = "is not a regular file";
    } else {
        return File(fdopen(fd, "rb"));
    }
    if (fd >= 0) close(fd);
    return nullptr;
}

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    std::string line;
    while (std::getline(in, line)) lines.push_back(line);
    return lines;
}

}  // namespace report
