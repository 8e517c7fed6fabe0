// SPDX-License-Identifier: Apache-2.0
// Makes events of the boot profile out of what a stock framework logs about its own boot.

#pragma once

#include <stddef.h>
#include <stdint.h>
#include <sys/types.h>

#include <deque>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "device/feed/LogLine.h"

class Feed {
public:
    // `profile` is what the boot profile holds already: nothing in it is written a second time.
    explicit Feed(const std::string& profile);

    // What to write to the profile for a line, each in one call; mostly nothing. `now` is in
    // milliseconds of CLOCK_MONOTONIC.
    //
    // The framework's own milestones carry their time and are all written, once each. Other signs
    // of progress get the time `now`, at most one a second, and each only once for a process: what
    // goes round in circles is no progress.
    std::vector<std::string> eventsOf(const LogLine& line, uint64_t now);

private:
    // False when it is known; the oldest is forgotten when there are too many.
    bool isNew(uint64_t ms, pid_t pid, std::string_view event);

    std::unordered_set<size_t> mKnown;
    std::deque<size_t> mInOrder;
    uint64_t mNextSign = 0;
};
