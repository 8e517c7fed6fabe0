// SPDX-License-Identifier: Apache-2.0
// Turns sources into rows, several copies at a time, in memory that does not grow with their
// number.

#pragma once

#include <stdint.h>

#include <atomic>
#include <functional>
#include <string>
#include <vector>

#include "fleet/rows/Rows.h"

namespace fleet {

class Intake {
public:
    struct Count {
        uint64_t copies = 0;
        uint64_t unreadable = 0;  // copies without a partition
        uint64_t lines = 0;
        uint64_t refused = 0;  // lines that are no rows
        uint64_t failed = 0;   // paths
    };
    using Take = std::function<void(const Rows& rows)>;
    using Complain = std::function<void(const std::string& what)>;

    // `take` gets the rows of each copy and each line, one after the other, on the caller's thread;
    // `complain` a line for each path that failed, and for the first lines that were refused.
    Intake(int jobs, Take take, Complain complain);

    // What `take` throws ends it. Once stop() is true, what has begun is finished and no more.
    Count run(const std::vector<std::string>& paths);
    void stop() {
        mStopped = true;
    }
    bool stopped() const {
        return mStopped;
    }

private:
    void takeLines(const std::string& path);

    const int mJobs;
    const Take mTake;
    const Complain mComplain;
    std::atomic<bool> mStopped{false};
    Count mCount;
};

}  // namespace fleet
