// SPDX-License-Identifier: Apache-2.0
// A line that shows how far a pool of processes has come, where standard error is a terminal.

#pragma once

#include <stdint.h>

#include <atomic>
#include <string>

#include "lab/base/Shared.h"

namespace lab {

// To be made before the processes are forked. Its functions may be called by each of them.
class Progress {
public:
    // `what` is counted, up to `all`. Throws std::runtime_error without memory.
    Progress(std::string what, uint64_t all);

    // One more is done; of the line's rate `boots` of it count.
    void add(uint64_t boots = 1);
    // It gave reason for an objection.
    void object();
    // Takes the line away, so that another can be printed.
    void clear();

private:
    struct Counts {
        std::atomic<uint64_t> done{0}, boots{0}, objections{0};
        std::atomic<int64_t> shownAt{0};  // ms since mStarted
    };

    const std::string mWhat;
    const uint64_t mAll;
    const bool mShown;
    const int64_t mStarted;  // ms
    Shared<Counts> mCounts;
};

}  // namespace lab
