// SPDX-License-Identifier: Apache-2.0
// Process entry: follows the events buffer and writes the boot's events to the driver.

#define LOG_TAG "bootvigil_feed"

#include <errno.h>
#include <fcntl.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <string>

#include <log/log.h>

#include "device/feed/Feed.h"
#include "device/feed/LogLine.h"

namespace {

constexpr const char* kProfile = "/proc/velabootprof";
constexpr size_t kLargestProfile = 4 << 20;  // the driver's has 1.3 MiB at most
constexpr unsigned int kRestartDelay = 1;    // s
constexpr unsigned int kLongestDelay = 32;   // s, where it can't be read at all

constexpr const char* kUsage =
        "usage: bootvigil-feed [--stdin]\n"
        "Follows the events buffer of the log service and writes the boot's events to\n"
        "/proc/velabootprof.\n"
        "  --stdin  reads what `logcat -b events -v threadtime,uid` prints, to its end\n";

std::string readProfile() {
    std::string text;
    const int fd = open(kProfile, O_RDONLY | O_CLOEXEC);
    char bytes[4096];
    ssize_t size = 0;
    while (text.size() < kLargestProfile &&
           (size = TEMP_FAILURE_RETRY(read(fd, bytes, sizeof(bytes)))) > 0) {
        text.append(bytes, static_cast<size_t>(size));
    }
    if (size < 0) ALOGE("%s: %s", kProfile, strerror(errno));
    close(fd);
    return text;
}

uint64_t uptimeMs() {
    struct timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_nsec) / 1000000;
}

}  // namespace

int main(int argc, char** argv) {
    const std::string option = argc == 2 ? argv[1] : "";
    if (option == "--help") {
        fputs(kUsage, stdout);
        return 0;
    }
    if (argc > 1 && option != "--stdin") {
        fputs(kUsage, stderr);
        return 2;
    }
    const int profile = open(kProfile, O_WRONLY | O_CLOEXEC);
    if (profile < 0) {
        ALOGE("%s: %s", kProfile, strerror(errno));
        return 1;
    }
    bool failed = false;
    unsigned int delay = kRestartDelay;
    Feed feed(readProfile());
    const auto take = [&](const LogLine& line) {
        delay = kRestartDelay;
        for (const std::string& event : feed.eventsOf(line, uptimeMs())) {
            if (write(profile, event.data(), event.size()) == static_cast<ssize_t>(event.size())) {
                continue;
            }
            failed = true;
            ALOGE("%s: %s: %s", kProfile, strerror(errno), event.c_str());
        }
    };
    if (option == "--stdin") {
        followText(STDIN_FILENO, take);
        return failed ? 1 : 0;
    }
    // A log service that has been started again shows again what it has kept, or nothing.
    for (;; delay = std::min(delay * 2, kLongestDelay)) {
        followLogService(take);
        sleep(delay);
    }
}
