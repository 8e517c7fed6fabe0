// SPDX-License-Identifier: Apache-2.0
// Handles the six messages that drive a run from the start to exit(0). They are posted here, except
// MSG_START, which Bootvigil::Start() posts, and MSG_RECOVERY after a stall or a restart loop,
// which Bootvigil::checkReason() posts.

#define LOG_TAG "BOOTVIGIL_DEBUG"

#include "BootvigilHandler.h"

#include <stdint.h>
#include <stdlib.h>

#include <string>

#include <VelaLogRaw.h>
#include <cutils/properties.h>
#include <log/log.h>

#include "BootState.h"
#include "FailureCodes.h"
#include "Messages.h"
#include "StoragePaths.h"
#include "Utils.h"

namespace {

constexpr const char* kVelaBootProf = "/proc/velabootprof";
constexpr const char* kVersion = "3.365";

}  // namespace

BootvigilHandler::BootvigilHandler(const android::sp<android::Looper>& looper,
                                   const android::sp<Bootvigil>& monitor)
    : Handler(looper), mMonitor(monitor) {}

void BootvigilHandler::handleMessage(const android::Message& message) {
    ALOGD("handleMessage 2 what = %x", message.what);
    switch (message.what) {
        case MSG_POLL:
            onPoll(message);
            break;
        case MSG_BOOT_TIMEOUT:
            onBootTimeout(message);
            break;
        case MSG_START:
            onStart();
            break;
        case MSG_RECOVERY:
            onRecovery();
            break;
        case MSG_EXIT:
            ALOGD("bootvigil exit.");
            exit(0);
        case MSG_AFTER_BOOT:
            onAfterBoot();
            break;
        default:
            break;
    }
}

void BootvigilHandler::onStart() {
    if (!checkNormalBootMode()) exit(0);

    if (exists(kVelaBootProf)) {
        ALOGD("access %s OK", kVelaBootProf);
        kBootProfPath = kVelaBootProf;
    } else {
        ALOGD("BOOTVIGIL not found velaboot prof \n");
    }
    property_set("sys.bootvigil.version", kVersion);

    sendMessageDelayed(kPollPeriod, android::Message(MSG_POLL));
    if (checkFirstBootInNative()) {
        mFirstBootTimer = true;
        ALOGD("first timer 8m");
        sendMessageDelayed(kFirstBootTimeout, android::Message(MSG_BOOT_TIMEOUT));
    } else {
        sendMessageDelayed(kBootTimeout, android::Message(MSG_BOOT_TIMEOUT));
    }
}

void BootvigilHandler::onPoll(const android::Message& message) {
    if (!mBooted) mBooted = checkBooted();
    followUpCapture();

    if (mMonitor->checkSystemError()) {
        sendMessageDelayed(kShortDelay, android::Message(MSG_RECOVERY));
        return;
    }

    if (mBooted) {
        pollBooted(message);
    } else {
        pollBooting(message);
    }
}

void BootvigilHandler::pollBooting(const android::Message& message) {
    if (mMonitor->mErrNumInfo->mErrType == TYPE_NONE) {
        mMonitor->parseBootProf();
        if (mMonitor->mRestartLoop) {
            long type = 0;
            int pid = -1;
            std::string ext;
            if (mMonitor->checkReason(type, pid, ext)) mMonitor->captureLog(type, pid, ext);
        }
    }
    sendMessageDelayed(kPollPeriod, message);
}

void BootvigilHandler::pollBooted(const android::Message& message) {
    ALOGD("handleMessage booted, Anim closed.");
    if (!mRawLogDone) {
        handleRawLogs();
        mRawLogDone = true;
    }

    if (mMonitor->checkBootAllComplete()) {
        if (mMonitor->mBfRecovery->checkIfRecoverySuccess(1)) ALOGD("Have recoveryed.");
        ALOGD("boot finished, enter launcher.");
        sendMessageDelayed(kAfterBoot, android::Message(MSG_AFTER_BOOT));
        return;
    }

    if (exists(kPmicInfoPath)) removeFile(kPmicInfoPath);
    if (static_cast<uint8_t>(getBFReason()) != REASON_AFTER_BOOT) {
        sendMessageDelayed(kPollPeriod, message);
        return;
    }
    mMonitor->notifyAfterBoot(PHASE_KEY_LOCK);
    mMonitor->captureSystem();
    sendMessageDelayed(kShortDelay, android::Message(MSG_RECOVERY));
}

// Checks that an earlier capture has left its files. Where the service has failed, the logs are
// captured here instead.
void BootvigilHandler::followUpCapture() {
    if (mMonitor->mCaptureState == 1 && !isFileExitInPath(kBootVigilDir, kKelId)) {
        ALOGD("kel dont capture log in boot vigil");
        saveInfoWithTime(kLogInfoPath, "kel dont capture log in boot vigil");
        removeFile(kReasonPath);
        mMonitor->compressLogs();
        mMonitor->mCaptureState = 2;
    } else if (mMonitor->mCaptureState == 2 && !isFileExitInPath(kLogDir, "android_main_log")) {
        ALOGD("user capture log fail in boot vigil");
        saveInfoWithTime(kLogInfoPath, "user capture log fail in boot vigil");
        mMonitor->mCaptureState = 3;
    }
}

// Records and captures the raw logs that the platform has kept from a failed earlier boot.
void BootvigilHandler::handleRawLogs() {
    if (VelaLogRaw::HasInitLog()) {
        mMonitor->errNotifyWithReason(TYPE_STALL, PHASE_INIT, DETAIL_RAW_LOG, REASON_STUCK);
        if (VelaLogRaw::GetInitLogMsg()) {
            ALOGD("init:get log.");
            mMonitor->captureRawLog(kInitMsgPath);
        } else {
            ALOGE("Init:Get log fail.");
        }
        if (!VelaLogRaw::CleanInitLog()) ALOGE("Init:Clean log tag fail.");
    } else {
        ALOGE("Init:Not found log.");
    }

    if (VelaLogRaw::HasKernelLog()) {
        mMonitor->errNotifyWithReason(TYPE_KERNEL, PHASE_KERNEL, DETAIL_RAW_LOG, REASON_STUCK);
        std::string path;
        if (VelaLogRaw::GetKernelLogMsgAndPath(path)) {
            ALOGD("kernel:get log: %s.", path.c_str());
            mMonitor->captureRawLog(path);
        } else {
            ALOGE("kernel:Get log fail.");
        }
        if (!VelaLogRaw::CleanKernelLog()) ALOGE("kernel:Clean log tag fail.");
    } else {
        ALOGE("kernel:Not found log.");
    }
}

void BootvigilHandler::onBootTimeout(const android::Message& message) {
    if (mMonitor->mErrNumInfo->mErrType != TYPE_NONE) return;
    if (mMonitor->checkBootAllComplete()) return;
    if (!mBooted) mBooted = checkBooted();

    if (mBooted) {
        bool keepWatching = false;
        if (mMonitor->checkStuckOOBE(&keepWatching) || !keepWatching) return;
        sendMessageDelayed(kBootTimeout, message);
        return;
    }

    // Package optimisation is slow, not stuck: its time-outs are not counted.
    if (mMonitor->mLastLine.find(kDexOptMark) == std::string::npos) ++mMonitor->mTimeoutCount;

    long type = 0;
    int pid = -1;
    std::string ext;
    if (mMonitor->checkReason(type, pid, ext)) {
        mMonitor->captureLog(type, pid, ext);
        ALOGD("handleMessage is boot timeout so start kel");
        return;
    }
    if (mMonitor->mStuckPID == -1) {
        ALOGD("handleMessage is boot timeout, boot slowly, check again.");
        sendMessageDelayed(kBootTimeout, message);
        return;
    }
    ALOGD("handleMessage is boot timeout, but KEL has saved befor.");
}

void BootvigilHandler::onRecovery() {
    const int reason = mMonitor->mErrNumInfo->mReason;
    if (mMonitor->mBfRecovery->runRecovery(reason, mFirstBootTimer)) {
        ALOGD("Have found error number.");
    } else {
        ALOGE("BOOTVIGIL wrong reason to run recovery, %d \n", reason);
    }
    sendMessageDelayed(kShortDelay, android::Message(MSG_EXIT));
}

void BootvigilHandler::onAfterBoot() {
    ALOGD("bootvigil check err after booted.");
    if (mMonitor->checkSystemError()) {
        sendMessageDelayed(kShortDelay, android::Message(MSG_RECOVERY));
        return;
    }
    if (mMonitor->mBfRecovery->checkIfRecoverySuccess(2)) ALOGD("Have recoveryed.");
    sendMessageDelayed(kShortDelay, android::Message(MSG_EXIT));
}
