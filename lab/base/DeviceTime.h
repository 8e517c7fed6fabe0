// SPDX-License-Identifier: Apache-2.0
// Device time: milliseconds since the start of the daemon.

#pragma once

#include <stdint.h>

namespace lab {

constexpr int64_t kNever = INT64_MAX;

}  // namespace lab
