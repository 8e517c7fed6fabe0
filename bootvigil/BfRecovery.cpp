// SPDX-License-Identifier: Apache-2.0
// The recovery policy: whether recovery is allowed, which action comes next, and whether it worked.

#define LOG_TAG "BOOTVIGIL_DEBUG"

#include "BfRecovery.h"

#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <fstream>
#include <string>
#include <vector>

#include <cutils/properties.h>
#include <log/log.h>

#include "BootState.h"
#include "FailureCodes.h"
#include "StoragePaths.h"
#include "Uploads.h"
#include "Utils.h"

namespace {

// Three characters: index of the next list entry, mode of the last action, its reason as a byte.
const std::string kHistoryPath = "/velafs/boot_vigil/recovery_flag.txt";
const std::string kDisablePath = "/velafs/boot_vigil/bfEnable";           // pushed from outside
const std::string kOverridePath = "/velafs/boot_vigil/recoveryList";      // pushed from outside
const std::string kReportPath = "/velafs/SDD/bf_upload/recovery_record";  // for the uploader
// By design: nobody reads this one.
[[maybe_unused]] const std::string kRecoverInfoPath = "/velafs/boot_vigil/RecoverInfo";

constexpr const char* kRebootRequest = "sys.velas_recovery_reboot";
constexpr const char* kResetRequest = "sys.velas_recovery_reset";

constexpr int kLastEarlyReason = REASON_STUCK;  // only the check after boot judges larger ones

// By design: where no line of the override file fills it, it keeps what an earlier failure of the
// same run has left.
int gOverrideModes[kRecoveryListSize] = {};

uint8_t byteAt(const std::string& text, size_t index) {
    return static_cast<uint8_t>(text[index]);
}

// Looks `errCode` up in the override file, from its last line to its first.
void readOverrideModes(int errCode) {
    const std::vector<std::string> lines = getFileLines(kOverridePath);
    for (auto line = lines.rbegin(); line != lines.rend(); ++line) {
        const std::vector<std::string> fields = split(*line, "|");
        const OverrideLine kind = readOverrideLine(fields, errCode, gOverrideModes);
        if (kind == OverrideLine::OTHER_REASON) {
            ALOGI("getRecoveryList from result[0].c_str:%s", fields[0].c_str());
        } else if (kind == OverrideLine::TAKEN) {
            ALOGI("getRecoveryList from recoveryList:%s", fields[1].c_str());
            return;
        }
    }
}

// The list's entry that the history points at; 0 when it points nowhere.
int nextMode(const int* list) {
    const std::string history = getFirstLine(kHistoryPath);
    if (history.empty() || history[0] < '0' || history[0] >= '0' + kRecoveryListSize) return 0;
    return list[history[0] - '0'];
}

void saveRecoveryFlag(int mode) {
    const std::string history = getFirstLine(kHistoryPath);
    const int next = history.empty() ? 0 : byteAt(history, 0) - '0' + 1;
    std::ofstream file(kHistoryPath);
    if (!file.is_open()) {
        ALOGE("Save file path %s fail, open fail.", kHistoryPath.c_str());
        ALOGE("not set recovery log");
        return;
    }
    char text[10] = {};
    snprintf(text, sizeof(text), "%d%d%c", next, mode, static_cast<uint8_t>(getBFReason()));
    ALOGE("saveRecoveryFlag info = %s.", text);
    file << text;
    file.close();
    ALOGE("saveRecoveryFlag write flag.");
}

bool isVelaReboot() {
    char reason[PROPERTY_VALUE_MAX] = {};
    property_get("sys.boot.reason", reason, "0");
    ALOGD("checkFirstBoot  sys.boot.reason = %s ", reason);
    return strcmp(reason, "reboot,velarecovery") == 0;
}

// Whether the boot that just succeeded came from the last action, `mode`.
bool judgeAction(int mode) {
    if (mode == RECOVERY_REBOOT) {
        if (isVelaReboot()) {
            BfRecovery::submitSuccessInfo(RECOVERY_REBOOT);
            return true;
        }
        ALOGE("Not vela reboot.");
        return false;
    }
    if (mode == RECOVERY_DATA_RESET) {
        if (checkFirstBoot()) {
            BfRecovery::submitSuccessInfo(RECOVERY_DATA_RESET);
            return true;
        }
        ALOGE("Not factory reset.");
        return false;
    }
    return true;  // the user has rebooted; that is not reported
}

}  // namespace

bool BfRecovery::runRecovery(int errCode, bool firstBoot) {
    ALOGE("runRecovery errCode=%d", errCode);
    const bool disabled = checkIfDisable();
    if (errCode == 0 || disabled) return false;
    // A failure in a boot after the one that followed a reset starts at the top of the list again.
    if (!firstBoot && getCurrentRecoveryMode() == RECOVERY_DATA_RESET) cleanRecoveryHistory();

    chooseRecoveryList(errCode);
    if (mRecoveryList == nullptr) {
        ALOGE("not found recovery list");
        return false;
    }
    const int mode = nextMode(mRecoveryList);
    if (mode <= 0) {
        ALOGE("not found next recovery mode");
        return false;
    }
    saveRecoveryFlag(mode);
    return act(mode, firstBoot);
}

void BfRecovery::chooseRecoveryList(int errCode) {
    ALOGD("enter getRecoveryList errcode=%d", errCode);
    if (exists(kOverridePath)) {
        readOverrideModes(errCode);
        mRecoveryList = gOverrideModes;
        return;
    }
    ALOGD("use defalt RecoveryList");
    for (const RecoveryList& entry : kDefaultRecoveryLists) {
        if (entry.reason == errCode) {
            mRecoveryList = entry.modes;
            return;
        }
    }
    // An unknown reason keeps the list of an earlier failure of the same run, if any.
}

bool BfRecovery::act(int mode, bool firstBoot) {
    switch (mode) {
        case RECOVERY_DATA_RESET:
            ALOGE("try to data reset");
            if (firstBoot) {
                cleanRecoveryHistory();  // /data is fresh already
            } else {
                property_set(kResetRequest, "1");
            }
            return true;
        case RECOVERY_WAIT_USER:
            ALOGE("waite user reboot");
            return true;
        case RECOVERY_REBOOT:
            ALOGE("try to reboot");
            property_set(kRebootRequest, "1");
            return true;
        default:
            return false;  // only from the override file; the history has advanced all the same
    }
}

bool BfRecovery::checkIfRecoverySuccess(int kind) {
    ALOGE("enter isRecoverySuccess");
    if (checkIfDisable()) return false;
    const uint8_t mode = static_cast<uint8_t>(getCurrentRecoveryMode());
    if (mode == 0) {
        ALOGD("Not occue recovery");
        return false;
    }
    const uint8_t reason = static_cast<uint8_t>(getLastBfReason());
    if (kind == 1 && reason > kLastEarlyReason) return false;
    ALOGE("isRecoverySuccess mode=%d .", mode);
    const bool success = judgeAction(mode);
    cleanRecoveryHistory();
    return success;
}

bool BfRecovery::checkIfDisable() {
    const uint8_t reason = static_cast<uint8_t>(getBFReason());
    if (isRescueEnable() &&
        (reason == REASON_SYSTEM_ERROR_BOOTED || reason == REASON_SYSTEM_ERROR)) {
        ALOGE("recovery is disable for rescue.");
        return true;
    }
    if (mDisableState == 1) return true;
    if (mDisableState == 0) return false;
    mDisableState = 1;
    char support[PROPERTY_VALUE_MAX] = {};
    property_get("ro.vela.bfRecovery.support", support, "1");
    if (atoi(support) != 1) {
        ALOGD("recovery is disable in config.");
        return true;
    }
    if (exists(kDisablePath)) {
        ALOGD("recovery is disable in network");  // logged before the file is read, whatever it
                                                  // holds
        const std::vector<std::string> lines = getFileLines(kDisablePath);
        for (auto line = lines.rbegin(); line != lines.rend(); ++line) {
            ALOGD("recovery disable info %s", line->c_str());
            if (*line == "BfRecover=NO") return true;
        }
    }
    ALOGD("not found disable file, is Enable.");
    mDisableState = 0;
    return false;
}

void BfRecovery::cleanRecoveryHistory() {
    ALOGE("clean Recovery History.");
    if (exists(kHistoryPath) && remove(kHistoryPath.c_str()) != 0) {
        ALOGE("file %s remove failed.", kHistoryPath.c_str());
    }
}

int BfRecovery::getCurrentRecoveryMode() {
    const std::string history = getFirstLine(kHistoryPath);
    return history.size() >= 2 ? byteAt(history, 1) - '0' : 0;
}

int BfRecovery::getLastBfReason() {
    const std::string history = getFirstLine(kHistoryPath);
    return history.size() >= 3 ? static_cast<signed char>(history[2]) : 0;
}

void BfRecovery::submitSuccessInfo(int mode) {
    ALOGE("enter submitSuccessInfo");
    std::string report = std::to_string(mode) + "|" + getLocalTime() + "|";
    report += std::to_string(static_cast<uint8_t>(getLastBfReason()));
    leaveUpload(kReportPath, "BFRECOVERY|" + report, ANDROID_LOG_ERROR);
}
