// SPDX-License-Identifier: Apache-2.0
// What is asked once the framework has booted: finished, stuck in the set-up wizard, in error?

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
#include "Utils.h"

namespace {

constexpr const char* kCompletionEvent = "Post BOOT_COMPLETED";
constexpr int kOobePhase1 = 6;  // "persist.sys.oobe" is 1
constexpr int kOobePhase2 = 7;  // it is 2, which is also what an unset one counts as
constexpr int kOobeChecks = 2;  // that only count, after the one that first saw a phase

constexpr uint8_t kSystemError = 20;
constexpr uint8_t kSystemErrorBooted = 120;  // the same, once the boot is complete

}  // namespace

// The completion event counts only with the set-up wizard at 2; the completion property always.
static bool checkBootFinished(int* phase) {
    std::string text;
    const std::vector<std::string_view> lines = readLines(kBootProfPath, text);
    if (static_cast<unsigned int>(lines.size()) <= 2) {
        ALOGE("parseBootProf Lines < 3");
        return false;
    }
    char value[PROPERTY_VALUE_MAX] = {};
    property_get("persist.sys.oobe", value, "2");
    const int oobe = atoi(value);
    if (oobe == 1) *phase = kOobePhase1;
    if (oobe == 2) *phase = kOobePhase2;
    Splitter splitter;
    for (auto line = lines.rbegin(); line != lines.rend(); ++line) {
        const std::vector<std::string_view>& pieces = splitter.split(*line, " :");
        if (pieces.size() >= 3 && pieces[2] == kCompletionEvent && oobe == 2 && checkBooted()) {
            return true;
        }
    }
    return isBootComplete();
}

bool Bootvigil::checkBootAllComplete() {
    int phase = 0;
    if (!checkBootFinished(&phase)) return false;

    // A set-up-wizard stall recorded in this run has resolved itself: it was none.
    if (mOobePhase >= 1 && mOobePhase == mErrNumInfo->mMainPhase &&
        (mOobePhase == kOobePhase1 || mOobePhase == kOobePhase2)) {
        mErrNumInfo->revertLastInfo();
        removeFile(kBfFlagPath);
        mOobePhase = 0;
    }

    const std::string flag = getFirstLine(kBfFlagPath);
    const uint8_t flagged = flag.empty() ? 0 : static_cast<uint8_t>(flag[0]);
    if (flagged < '1') return true;
    mErrNumInfo->submitInfo();
    mErrNumInfo->saveRecoveryInfo(mErrNumInfo->mErrType != 0 ? 1 : 2);
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
    if (mErrNumInfo != nullptr) {
        ALOGD("errNotify type = %d, phase=%d, detailPhase=%d", 5, phase, 0);
        errNotifyWithReason(5, static_cast<char>(phase), 0, static_cast<char>(getBFReason()));
    }
    *keepWatching = false;
    return false;
}

bool Bootvigil::checkSystemError() {
    const auto reason = static_cast<uint8_t>(getBFReason());
    ALOGD("BOOTVIGIL checkSystemError reason=%d\n", reason);
    if (reason != kSystemError && reason != kSystemErrorBooted) return false;
    const uint8_t recorded = isBootComplete() ? kSystemErrorBooted : reason;
    errNotifyWithReason(2, 5, 0, static_cast<char>(recorded));
    long type = kCaptureTypeBase;
    int pid = 0;
    std::string ext;
    captureLog(type, pid, ext);
    return true;
}
