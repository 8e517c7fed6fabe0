// SPDX-License-Identifier: Apache-2.0
// A worker thread with a queue of delayed messages, on top of the platform's Looper.

#pragma once

#include <utils/Looper.h>
#include <utils/RefBase.h>
#include <utils/Thread.h>

// Receives the messages that it posts to itself. Its Looper never changes.
class Handler : public android::MessageHandler {
public:
    explicit Handler(const android::sp<android::Looper>& looper);

    // Posts a copy of `message` for `delay` nanoseconds from now, from any thread. Equal messages
    // do not replace each other. False, and nothing posted, when built with a null Looper.
    bool sendMessageDelayed(long delay, const android::Message& message);

    void handleMessage(const android::Message& message) override;

    android::sp<android::Looper> mLooper;

protected:
    ~Handler() override = default;
};

// Owns a Looper and, once run, delivers its messages for ever: there is no stop.
class HandlerThread : public android::Thread {
public:
    HandlerThread();

    // Valid before the thread runs too.
    android::sp<android::Looper> getLooper();

    android::sp<android::Looper> mLooper;

private:
    bool threadLoop() override;
};
