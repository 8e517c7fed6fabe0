// SPDX-License-Identifier: Apache-2.0
// The recovery policy: whether recovery is allowed, which action comes next, and whether it worked.

#pragma once

#include "RecoveryLists.h"

class BfRecovery {
public:
    // Takes the next action of the list for the failure reason `errCode`: remembers it in the
    // history, then sets the platform's request property. `firstBoot` is true in the first boot
    // after a wipe, where a data reset is never requested. False when there was nothing to do:
    // reason 0, recovery disabled, no list, list exhausted or an unknown mode.
    bool runRecovery(int errCode, bool firstBoot);

    // Judges the last action after a good boot, reports a success for upload and clears the
    // history. `kind` is 1 at boot completion, 2 at the check after it; only kind 2
    // judges reasons above 100.
    bool checkIfRecoverySuccess(int kind);

    // True when recovery must not run. The property and the disable file decide once per process;
    // the rescue mode is read every time.
    bool checkIfDisable();

    static void cleanRecoveryHistory();

    // Mode and reason of the last action, 0 when none. Any character of the history file is taken,
    // so the mode may lie outside 0 to 9, and only the reason's low byte counts.
    static int getCurrentRecoveryMode();
    static int getLastBfReason();

    // Leaves the success report for the uploader, unless an earlier one is still uncollected.
    static void submitSuccessInfo(int mode);

    const int* mRecoveryList = nullptr;  // the kRecoveryListSize modes chosen last
    int mDisableState = -1;              // -1 not decided, 0 enabled, 1 disabled

private:
    void chooseRecoveryList(int errCode);
    bool act(int mode, bool firstBoot);
};
