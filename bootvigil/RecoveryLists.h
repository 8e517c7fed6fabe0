// SPDX-License-Identifier: Apache-2.0
// The recovery actions, and which of them follow each other for a failure's reason.

#pragma once

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
    int modes[kRecoveryListSize];
};

// Used where no override list was pushed to the device.
constexpr RecoveryList kDefaultRecoveryLists[] = {
        {100, {1, 2, 5, 0, 0}}, {20, {1, 2, 5, 0, 0}}, {21, {1, 5, 0, 0, 0}},
        {23, {1, 5, 0, 0, 0}},  {22, {1, 5, 0, 0, 0}}, {99, {5, 1, 0, 0, 0}},
        {120, {1, 2, 5, 0, 0}},
};
