// SPDX-License-Identifier: Apache-2.0
// The checks once the framework has booted: finished, stuck in the set-up wizard, in error?

#define LOG_TAG "BOOTVIGIL_DEBUG"

#include <stdint.h>
#include <stdlib.h>

#include <string>
#include <string_view>
#include <vector>

#include <cutils/properties.h>
#include <log/log.h>

#include "BootState.h"
#include "Bootvigil.h"
#include "FailureCodes.h"
#include "StoragePaths.h"
#include "Utils.h"

namespace {

constexpr const char* kCompletionEvent = "Post BOOT_COMPLETED";
constexpr int kOobeChecks = 2;  // further ones that see the same phase and only count

}  // namespace

// The completion event counts only with the set-up wizard at 2; the completion property always.
static bool checkBootFinished(int* phase) {
    static LinesFromEnd lines;
    lines.read(kBootProfPath);
    std::string_view line;
    if (!lines.next(line) || !lines.next(line) || !lines.next(line)) {
        ALOGE("parseBootProf Lines < 3");
        return false;
    }
    char value[PROPERTY_VALUE_MAX] = {};
    property_get("persist.sys.oobe", value, "2");
    const int oobe = atoi(value);
    if (oobe == 1) *phase = PHASE_OOBE;
    if (oobe == 2) *phase = PHASE_KEY_LOCK;
    lines.rewind();
    while (lines.next(line)) {
        if (eventOf(line) == kCompletionEvent && oobe == 2 && checkBooted()) {
            return true;
        }
    }
    return isBootComplete();
}

bool Bootvigil::checkBootAllComplete() {
    int ignored = 0;
    if (!checkBootFinished(&ignored)) return false;

    // A set-up-wizard stall recorded in this run has resolved itself, so it was no failure.
    if (mOobePhase >= 1 && mOobePhase == mErrNumInfo->mMainPhase &&
        (mOobePhase == PHASE_OOBE || mOobePhase == PHASE_KEY_LOCK)) {
        mErrNumInfo->revertLastInfo();
        removeFile(kBfFlagPath);
        mOobePhase = 0;
    }

    const std::string flag = getFirstLine(kBfFlagPath);
    const uint8_t flagged = flag.empty() ? 0 : static_cast<uint8_t>(flag[0]);
    if (flagged < '1') return true;
    mErrNumInfo->submitInfo();
    mErrNumInfo->saveRecoveryInfo(mErrNumInfo->mErrType != TYPE_NONE ? 1 : 2);
    removeFile(kBfFlagPath);
    return true;
}

bool Bootvigil::checkStuckOOBE(bool* keepWatching) {
    int phase = 0;
    *keepWatching = true;
    if (checkBootFinished(&phase)) return true;
    if (phase == 0 || phase != mOobePhase) {
        mOobePhase = phase;
        mOobeCheckCount = 0;
        return false;
    }
    if (mOobeCheckCount < kOobeChecks) {
        ++mOobeCheckCount;
        return false;
    }
    notifyAfterBoot(static_cast<char>(phase));
    *keepWatching = false;
    return false;
}

bool Bootvigil::checkSystemError() {
    auto reason = static_cast<uint8_t>(getBFReason());
    ALOGD("BOOTVIGIL checkSystemError reason=%d\n", reason);
    if (reason != REASON_SYSTEM_ERROR && reason != REASON_SYSTEM_ERROR_BOOTED) return false;
    if (isBootComplete()) reason = REASON_SYSTEM_ERROR_BOOTED;
    errNotifyWithReason(TYPE_SYSTEM, PHASE_SYSTEM_SERVER, DETAIL_NONE, static_cast<char>(reason));
    captureSystem();
    return true;
}
