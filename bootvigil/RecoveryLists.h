// SPDX-License-Identifier: Apache-2.0
// The recovery actions, and their order for each reason of a failure.

#pragma once

#include <stdlib.h>

#include <string>
#include <vector>

#include "FailureCodes.h"

// Values of a recovery list.
enum RecoveryMode {
    RECOVERY_NONE = 0,  // end of the list
    RECOVERY_REBOOT = 1,
    RECOVERY_WAIT_USER = 2,
    RECOVERY_DATA_RESET = 5,
};

constexpr int kRecoveryListSize = 5;

struct RecoveryList {
    int reason;
    int modes[kRecoveryListSize];  // the rest is RECOVERY_NONE
};

// Used where no override list was pushed to the device. Reasons without a name are the platform's.
constexpr RecoveryList kDefaultRecoveryLists[] = {
        {REASON_STUCK, {RECOVERY_REBOOT, RECOVERY_WAIT_USER, RECOVERY_DATA_RESET}},
        {REASON_SYSTEM_ERROR, {RECOVERY_REBOOT, RECOVERY_WAIT_USER, RECOVERY_DATA_RESET}},
        {21, {RECOVERY_REBOOT, RECOVERY_DATA_RESET}},
        {23, {RECOVERY_REBOOT, RECOVERY_DATA_RESET}},
        {REASON_AFTER_BOOT, {RECOVERY_REBOOT, RECOVERY_DATA_RESET}},
        {99, {RECOVERY_DATA_RESET, RECOVERY_REBOOT}},
        {REASON_SYSTEM_ERROR_BOOTED, {RECOVERY_REBOOT, RECOVERY_WAIT_USER, RECOVERY_DATA_RESET}},
};

// What a line of the override list, "reason|modes", says of a reason.
enum class OverrideLine {
    INVALID,
    OTHER_REASON,
    TAKEN,  // also where its modes are too few to be used
};

// Reads a line that is cut at each "|". By design: only a line that matches and is long enough
// changes `modes`, and five bytes of it count, digits or not.
inline OverrideLine readOverrideLine(const std::vector<std::string>& fields, int reason,
                                     int* modes) {
    if (fields.size() < 2) return OverrideLine::INVALID;
    if (atoi(fields[0].c_str()) != reason) return OverrideLine::OTHER_REASON;
    for (size_t i = 0; fields[1].size() >= kRecoveryListSize && i < kRecoveryListSize; ++i) {
        modes[i] = static_cast<unsigned char>(fields[1][i]) - '0';
    }
    return OverrideLine::TAKEN;
}
