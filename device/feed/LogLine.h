// SPDX-License-Identifier: Apache-2.0
// The lines of the log service's events buffer, as logcat's text or by liblog's reader.

#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <string_view>

// Who logged it comes from the kernel, by way of the log service: no process can lie about it.
struct LogLine {
    uid_t uid = 0;
    pid_t pid = 0;
    std::string tag;
    std::string message;  // "14355", or a list like "[0,1277,10101,com.android.systemui]"
};

using TakeLogLine = std::function<void(const LogLine&)>;

// A line that `logcat -b events -v threadtime,uid` prints; false for anything else.
bool readLogcatLine(const std::string& text, LogLine& line);

// Reads such text until it ends. A line that is cut off or longer than 8 KiB is left out.
void followText(int fd, const TakeLogLine& take);

// Follows the buffer from its oldest line on, until the log service or its reader ends. The build
// chooses how: a device takes liblog's reader, a workstation starts whatever `logcat` it has.
void followLogService(const TakeLogLine& take);
