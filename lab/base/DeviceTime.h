// SPDX-License-Identifier: Apache-2.0
// Device time: milliseconds since the start of the daemon.

#pragma once

#include <stdint.h>

#include <stdexcept>
#include <string>

namespace lab {

constexpr int64_t kNever = INT64_MAX;

// Time of day, UTC: the last second of the year 9999, beyond which libc's own texts fail.
constexpr int64_t kLastDate = 253402300799;

inline void requireDate(int64_t time) {
    if (time >= 0 && time <= kLastDate) return;
    throw std::runtime_error("no clock shows the second " + std::to_string(time));
}

}  // namespace lab
