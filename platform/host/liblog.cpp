// SPDX-License-Identifier: Apache-2.0
// liblog on a workstation drops lines below info until it is told not to; a device shows them all.

#include <android/log.h>

namespace {

[[maybe_unused]] const int gPreviousPriority =
        __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);

}  // namespace
