// SPDX-License-Identifier: Apache-2.0
// Process entry: starts the monitor and lends the main thread to the binder pool.

#define LOG_TAG "BOOTVIGIL_DEBUG"

// The binder headers use both without including them.
#include <limits>
#include <memory>

#include <binder/IPCThreadState.h>
#include <binder/Parcel.h>
#include <binder/ProcessState.h>
#include <log/log.h>

#include "Bootvigil.h"

int main() {
    ALOGD("BOOTVIGIL boot_vigil_service start \n");
    Bootvigil::createInstance()->Start();

    // No service is published: the pool only keeps the process alive while the monitor works.
    const android::sp<android::ProcessState> process(android::ProcessState::self());
    process->startThreadPool();
    android::IPCThreadState::self()->joinThreadPool(true);
    return 0;
}
