// SPDX-License-Identifier: Apache-2.0
// A line that shows how far a pool of processes has come, where standard error is a terminal.

#include "lab/base/Progress.h"

#include <inttypes.h>
#include <stdio.h>
#include <unistd.h>

#include <chrono>
#include <utility>

namespace lab {

namespace {

constexpr int64_t kEvery = 200;  // ms

int64_t nowMs() {
    const auto time = std::chrono::steady_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::milliseconds>(time).count();
}

}  // namespace

Progress::Progress(std::string what, uint64_t all)
    : mWhat(std::move(what)), mAll(all), mShown(isatty(STDERR_FILENO) != 0), mStarted(nowMs()) {}

void Progress::add(uint64_t boots) {
    const uint64_t done = ++mCounts->done;
    mCounts->boots += boots;
    if (!mShown) return;
    const int64_t now = nowMs() - mStarted;
    int64_t before = mCounts->shownAt;
    // One of the processes shows it.
    if (now < before + kEvery || !mCounts->shownAt.compare_exchange_strong(before, now)) return;
    const uint64_t rate = mCounts->boots * 1000 / static_cast<uint64_t>(now);
    const uint64_t objections = mCounts->objections;
    fprintf(stderr,
            "\r\033[K%" PRIu64 " of %" PRIu64 " %s, %" PRIu64 " boots a second, %" PRIu64
            " objection%s",
            done, mAll, mWhat.c_str(), rate, objections, objections == 1 ? "" : "s");
}

void Progress::object() {
    ++mCounts->objections;
}

void Progress::clear() {
    if (mShown) fprintf(stderr, "\r\033[K");
}

}  // namespace lab
