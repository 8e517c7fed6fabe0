// SPDX-License-Identifier: Apache-2.0
// Makes the monitor with everything that it owns, and starts it.

#define LOG_TAG "BOOTVIGIL_DEBUG"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/ioctl.h>

#include <fstream>

#include <android-base/unique_fd.h>
#include <cutils/properties.h>
#include <log/log.h>

#include "Bootvigil.h"
#include "BootvigilHandler.h"
#include "Messages.h"
#include "StoragePaths.h"
#include "compress/CompressZstd.h"

namespace {

constexpr const char* kKernelMonitor = "/dev/bootvigilk";
constexpr unsigned long kCancelInitMonitor = _IOWR('b', 2, int);
static_assert(kCancelInitMonitor == 0xC0046202, "the kernel driver's request number");

Bootvigil* gInstance = nullptr;

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

int NotifyCancelBootvigilMonitor() {
    const android::base::unique_fd fd(open(kKernelMonitor, O_RDWR));
    if (fd < 0) {
        ALOGD("bootvigil Failed to open /dev/bootvigilk %d", fd.get());
        return -1;
    }
    int arg = 0;
    const int result = ioctl(fd.get(), kCancelInitMonitor, &arg);
    if (result != 0) ALOGD("bootvigil Failed to Cancel kernel init Monitor %d", result);
    return 0;
}
