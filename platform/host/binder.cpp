// SPDX-License-Identifier: Apache-2.0
// What the daemon uses of libbinder, on a workstation: there is no binder driver, so joining the
// thread pool parks the calling thread for ever.

// The binder headers use both without including them.
#include <limits>
#include <memory>

#include <binder/IPCThreadState.h>
#include <binder/Parcel.h>
#include <binder/ProcessState.h>

#include <unistd.h>

namespace android {

// The headers' classes don't link without these; no parcel is ever used.
Parcel::Parcel() = default;
Parcel::~Parcel() = default;  // NOLINT(performance-trivially-destructible): declared elsewhere

ProcessState::ProcessState(const char* driver)
    : mDriverName(driver),
      mDriverFD(-1),
      mVMStart(nullptr),
      mThreadCountLock(PTHREAD_MUTEX_INITIALIZER),
      mThreadCountDecrement(PTHREAD_COND_INITIALIZER),
      mExecutingThreadsCount(0),
      mMaxThreads(0),
      mStarvationStartTimeMs(0),
      mBinderContextCheckFunc(nullptr),
      mBinderContextUserData(nullptr),
      mThreadPoolStarted(false),
      mThreadPoolSeq(1),
      mCallRestriction(CallRestriction::NONE) {}

ProcessState::~ProcessState() = default;

sp<ProcessState> ProcessState::self() {
    static const sp<ProcessState> process = new ProcessState("none");
    return process;
}

void ProcessState::startThreadPool() {
    mThreadPoolStarted = true;
}

IPCThreadState::IPCThreadState()
    : mProcess(ProcessState::self()),
      mLastError(0),
      mServingStackPointer(nullptr),
      mCallingPid(getpid()),
      mCallingSid(nullptr),
      mCallingUid(getuid()),
      mWorkSource(-1),
      mPropagateWorkSource(false),
      mStrictModePolicy(0),
      mLastTransactionBinderFlags(0),
      mCallRestriction(ProcessState::CallRestriction::NONE) {}

IPCThreadState::~IPCThreadState() = default;

IPCThreadState* IPCThreadState::self() {
    static auto* const thread = new IPCThreadState();
    return thread;
}

// Sends away all threads but the main one.
void IPCThreadState::joinThreadPool(bool isMain) {
    if (!isMain) return;
    for (;;) pause();
}

}  // namespace android
