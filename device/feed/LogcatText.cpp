// SPDX-License-Identifier: Apache-2.0
// Reads the events buffer from the text that logcat prints.

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "device/feed/LogLine.h"

namespace {

constexpr size_t kLongestLine = 8192;  // the log service keeps 4068 bytes of a message

}  // namespace

bool readLogcatLine(const std::string& text, LogLine& line) {
    char user[16];
    int tag = 0;
    // "11-15 11:05:18.123  1000  1113  1113 I boot_progress_ams_ready: 14361"
    if (sscanf(text.c_str(), "%*2d-%*2d %*2d:%*2d:%*2d.%*3d %15s %7d %*7d %*1[A-Z] %n", user,
               &line.pid, &tag) != 2 ||
        tag == 0) {
        return false;
    }
    const size_t end = text.find(": ", static_cast<size_t>(tag));
    char* rest = nullptr;
    const bool isRoot = strcmp(user, "root") == 0;  // logcat names only users of five letters
    line.uid = isRoot ? 0 : static_cast<uid_t>(strtoul(user, &rest, 10));
    if (end == std::string::npos || line.pid <= 0 || (!isRoot && *rest != '\0')) return false;
    line.tag = text.substr(static_cast<size_t>(tag), end - static_cast<size_t>(tag));
    line.tag.erase(line.tag.find_last_not_of(' ') + 1);  // short tags are padded
    line.message = text.substr(end + 2);
    return true;
}

void followText(int fd, const TakeLogLine& take) {
    std::string rest;
    bool tooLong = false;
    char bytes[4096];
    for (;;) {
        const ssize_t size = TEMP_FAILURE_RETRY(read(fd, bytes, sizeof(bytes)));
        if (size <= 0) return;
        const char* const stop = bytes + size;
        for (const char* at = bytes; at != stop;) {
            const auto* const end =
                    static_cast<const char*>(memchr(at, '\n', static_cast<size_t>(stop - at)));
            rest.append(at, end == nullptr ? stop : end);
            tooLong = tooLong || rest.size() > kLongestLine;
            if (tooLong) rest.clear();
            if (end == nullptr) break;
            LogLine line;
            if (!tooLong && readLogcatLine(rest, line)) take(line);
            rest.clear();
            tooLong = false;
            at = end + 1;
        }
    }
}
