// SPDX-License-Identifier: Apache-2.0
// The monitor object: start-up, the storage layout and the notification of failures.

#define LOG_TAG "BOOTVIGIL_DEBUG"

#include "Bootvigil.h"

#include <errno.h>
#include <fcntl.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>

#include <cutils/properties.h>
#include <log/log.h>

#include "BootState.h"
#include "Utils.h"
#include "compress/CompressZstd.h"

const std::string kReasonPath = "/velafs/boot_vigil/reason.txt";
const std::string kPmicInfoPath = "/velafs/boot_vigil/pmic_info";
const std::string kMemHwInfoPath = "/velafs/boot_vigil/mem_hwinfo";
// Without a leading "/", as this system has it: it resolves against the working directory.
const std::string kHealthInfoPath = "proc/vela_healthinfo/healthinfo_show";
const std::string kLogInfoPath = "/velafs/boot_vigil/log/info";

const std::string kBootMilestones[kMilestoneCount] = {
        kMilestoneNames[0], kMilestoneNames[1], kMilestoneNames[2],  kMilestoneNames[3],
        kMilestoneNames[4], kMilestoneNames[5], kMilestoneNames[6],  kMilestoneNames[7],
        kMilestoneNames[8], kMilestoneNames[9], kMilestoneNames[10],
};

std::string kBootProfPath = "/proc/bootprof";

namespace {

constexpr const char* kKernelMonitor = "/dev/bootvigilk";
constexpr unsigned long kCancelInitMonitor = _IOWR('b', 2, int);
static_assert(kCancelInitMonitor == 0xC0046202, "the kernel driver's request number");

constexpr char kStallType = 5;  // the failure type whose record carries the last boot event

Bootvigil* gInstance = nullptr;

bool createDirectory(const char* path) {
    if (mkdir(path, 0777) != 0) {
        ALOGE("BOOTVIGIL create %s failed(%s)", path, strerror(errno));
        return false;
    }
    chmod(path, 0777);
    return true;
}

}  // namespace

Bootvigil::Bootvigil() = default;

Bootvigil::~Bootvigil() {
    delete mCompressor;
    delete mErrNumInfo;
    delete mBfRecovery;
}

Bootvigil* Bootvigil::createInstance() {
    if (gInstance != nullptr) return gInstance;

    auto* monitor = new Bootvigil();
    monitor->mHandlerThread = new HandlerThread();
    monitor->mHandlerThread->run("BootvigilHandleThread", 0, 0);
    monitor->mHandler = new BootvigilHandler(monitor->mHandlerThread->getLooper(), monitor);

    auto* compressor = new bootvigil::CompressZstd();
    compressor->mOutputDir = kLogDir;
    compressor->mFileSuffix = ".zs";
    monitor->mCompressor = compressor;

    monitor->mMilestones.clear();
    for (const std::string& milestone : kBootMilestones) monitor->mMilestones.emplace(milestone, 0);

    std::ifstream reasonFile(kReasonPath);
    if (reasonFile.is_open()) {
        std::getline(reasonFile, monitor->mStuckReason);
        ALOGD("Bootvigil reason is %s", monitor->mStuckReason.c_str());
    }

    monitor->mErrNumInfo = new ErrNumInfo();
    monitor->mBfRecovery = new BfRecovery();
    gInstance = monitor;
    return gInstance;
}

void Bootvigil::Start() {
    mHandler->sendMessageDelayed(kShortDelay, android::Message(MSG_START));
    char debug[PROPERTY_VALUE_MAX] = {};
    property_get("persist.sys.bootvigil.debug.startbootvigil", debug, "0");
    ALOGD("BOOTVIGIL Start persist.sys.bootvigil.debug.startbootvigil %s \n", debug);
    if (atoi(debug) == 0) NotifyCancelBootvigilMonitor();
}

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
        if (!createDirectory(kBootVigilDir)) return false;
    }
    if (!exists(kSddDir)) {
        ALOGE("BOOTVIGIL velafs/SDD not exist \n");
        if (!createDirectory(kSddDir)) return false;
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
    if (type == kStallType) mErrNumInfo->setCoreErrInfo(mLastLine);
    mErrNumInfo->mReason = reasonByte;
    setBFReason(reasonByte);
    if (checkVelafs()) mErrNumInfo->saveLogInfo();
}

int NotifyCancelBootvigilMonitor() {
    const int fd = open(kKernelMonitor, O_RDWR);  // NOLINT: closed before anything can exec
    if (fd < 0) {
        ALOGD("bootvigil Failed to open /dev/bootvigilk %d", fd);
        return -1;
    }
    int arg = 0;
    const int result = ioctl(fd, kCancelInitMonitor, &arg);
    if (result != 0) ALOGD("bootvigil Failed to Cancel kernel init Monitor %d", result);
    close(fd);
    return 0;
}
