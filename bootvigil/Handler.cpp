// SPDX-License-Identifier: Apache-2.0
// A worker thread with a queue of delayed messages, on top of the platform's Looper.

#define LOG_TAG "BOOTVIGIL_DEBUG"

#include "Handler.h"

#include <log/log.h>

#include "StoragePaths.h"

Handler::Handler(const android::sp<android::Looper>& looper) : mLooper(looper) {}

bool Handler::sendMessageDelayed(long delay, const android::Message& message) {
    if (mLooper == nullptr) return false;
    const android::sp<android::MessageHandler> self(this);
    mLooper->sendMessageDelayed(delay, self, message);
    return true;
}

void Handler::handleMessage(const android::Message& message) {
    ALOGD("BOOTVIGIL father handleMessage what = %d", message.what);
}

HandlerThread::HandlerThread()
    : android::Thread(/* canCallJava= */ true),
      mLooper(new android::Looper(/* allowNonCallbacks= */ false)) {}

android::sp<android::Looper> HandlerThread::getLooper() {
    return mLooper;
}

bool HandlerThread::threadLoop() {
    android::Looper::setForThread(mLooper);
    for (;;) mLooper->pollOnce(-1);
}
