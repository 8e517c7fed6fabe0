// SPDX-License-Identifier: Apache-2.0
// The recovery actions, and their order for each reason of a failure.

#pragma once

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
