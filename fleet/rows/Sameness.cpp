// SPDX-License-Identifier: Apache-2.0
// One failure may come as a copy's episode, as the upload of its last record, which has only the
// hour, and as the upload of its recovery's success.

#include "fleet/rows/Sameness.h"

#include "report/read/Times.h"

namespace fleet {

namespace {

constexpr int64_t kLongestJudging =
        600;  // seconds from a stamp to the check that judges a recovery
constexpr int64_t kDay = 24 * 3600;

bool isUploadOf(const EpisodeRow& upload, const EpisodeRow& copy) {
    constexpr size_t kHour = 13;  // "2026-11-15T11"
    return !upload.number.empty() && upload.number == copy.lastNumber && !copy.lastTime.empty() &&
           upload.begin.compare(0, kHour, copy.lastTime, 0, kHour) == 0;
}

// Whether the second time is no earlier than the first, and no more than this later.
bool follows(const std::string& first, const std::string& second, int64_t most) {
    const auto one = report::secondsOfIso(first);
    const auto other = report::secondsOfIso(second);
    return one && other && *other >= *one && *other <= *one + most;
}

}  // namespace

bool tellsTheSame(const EpisodeRow& less, const EpisodeRow& more) {
    if (less.source == "upload" && more.source == "partition") return isUploadOf(less, more);
    if (less.source != "recovery" || more.outcome != "cured") return false;
    if (more.source == "partition") return follows(more.end, less.begin, kLongestJudging);
    // An upload doesn't tell when its boot completed, but why its recovery was begun.
    return more.source == "upload" && more.reason == less.reason &&
           follows(more.begin, less.begin, kDay);
}

}  // namespace fleet
