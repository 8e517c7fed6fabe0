// SPDX-License-Identifier: Apache-2.0
// The storage layout and the notification of failures.

#define LOG_TAG "BOOTVIGIL_DEBUG"

#include "Bootvigil.h"

#include <stdint.h>

#include <log/log.h>

#include "BootState.h"
#include "FailureCodes.h"
#include "StoragePaths.h"
#include "Utils.h"

const std::string kReasonPath = "/velafs/boot_vigil/reason.txt";
const std::string kPmicInfoPath = "/velafs/boot_vigil/pmic_info";
const std::string kMemHwInfoPath = "/velafs/boot_vigil/mem_hwinfo";
// By design: without a leading "/", so it is looked up from the working directory.
const std::string kHealthInfoPath = "proc/vela_healthinfo/healthinfo_show";
const std::string kLogInfoPath = "/velafs/boot_vigil/log/info";

const std::string kBootMilestones[kMilestoneCount] = {
        kMilestoneNames[0], kMilestoneNames[1], kMilestoneNames[2],  kMilestoneNames[3],
        kMilestoneNames[4], kMilestoneNames[5], kMilestoneNames[6],  kMilestoneNames[7],
        kMilestoneNames[8], kMilestoneNames[9], kMilestoneNames[10],
};

std::string kBootProfPath = "/proc/bootprof";

bool Bootvigil::checkVelafs() {
    if (!exists(kVelafsDir)) {
        ALOGE("BOOTVIGIL velafs not exist \n");
        return false;
    }
    if (!getAvailableSize(kVelafsDir)) {
        ALOGE("BOOTVIGIL velafs AvailableSize not enough \n");
        return false;
    }
    if (!exists(kBootVigilDir)) {
        ALOGE("BOOTVIGIL velafs/boot_vigil not exist \n");
        if (!makeDirectory(kBootVigilDir)) return false;
    }
    if (!exists(kSddDir)) {
        ALOGE("BOOTVIGIL velafs/SDD not exist \n");
        if (!makeDirectory(kSddDir)) return false;
    }
    return true;
}

void Bootvigil::errNotifyWithReason(char type, char phase, char detailPhase, char reason) {
    if (mErrNumInfo == nullptr) return;
    const auto reasonByte = static_cast<uint8_t>(reason);
    ALOGD("errNotifyWithReason type = %d, phase=%d, detailPhase=%d, reason=%d",
          static_cast<uint8_t>(type), static_cast<uint8_t>(phase),
          static_cast<uint8_t>(detailPhase), reasonByte);
    mErrNumInfo->mErrType = static_cast<uint8_t>(type);
    mErrNumInfo->setLocalTimeStamp();
    mErrNumInfo->mMainPhase = static_cast<uint8_t>(phase);
    mErrNumInfo->mDetailPhase = static_cast<uint8_t>(detailPhase);
    // Other types keep whatever text an earlier failure left.
    if (type == TYPE_STALL) mErrNumInfo->setCoreErrInfo(mLastLine);
    mErrNumInfo->mReason = reasonByte;
    setBFReason(reasonByte);
    if (checkVelafs()) mErrNumInfo->saveLogInfo();
}

void Bootvigil::notifyAfterBoot(char phase) {
    if (mErrNumInfo == nullptr) return;
    ALOGD("errNotify type = %d, phase=%d, detailPhase=%d", TYPE_STALL, phase, DETAIL_NONE);
    errNotifyWithReason(TYPE_STALL, phase, DETAIL_NONE, static_cast<char>(getBFReason()));
}
