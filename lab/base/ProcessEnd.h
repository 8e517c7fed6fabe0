// SPDX-License-Identifier: Apache-2.0
// Exit statuses of a boot's process that are none of the daemon's own.

#pragma once

#include <stdio.h>
#include <unistd.h>

namespace lab {

constexpr int kStillRunning = 124;  // the scenario ended before the daemon did
constexpr int kCutOff = 125;        // the power did
constexpr int kBrokenLab = 126;  // the lab could not do its part, and has said so on standard error

[[noreturn]] inline void endBroken(const char* why) {
    fprintf(stderr, "%s\n", why);
    _exit(kBrokenLab);
}

}  // namespace lab
