// SPDX-License-Identifier: Apache-2.0
// A daemon that does nothing: the looper, the thread and the messages of a healthy boot.

#include <stdlib.h>
#include <unistd.h>

#include <utils/Looper.h>
#include <utils/Thread.h>

int bootvigilMain();

namespace {

using android::Looper;
using android::Message;
using android::MessageHandler;
using android::sp;

constexpr nsecs_t kSecond = 1'000'000'000;
enum { START, POLL, TIMEOUT, AFTER_BOOT, EXIT };

class Handler : public MessageHandler {
public:
    explicit Handler(const sp<Looper>& looper) : mLooper(looper) {}

    void post(nsecs_t delay, int what) {
        mLooper->sendMessageDelayed(delay, this, Message(what));
    }

    void handleMessage(const Message& message) override {
        switch (message.what) {
            case START:
                post(30 * kSecond, POLL);
                post(240 * kSecond, TIMEOUT);
                break;
            case POLL:
                post(120 * kSecond, AFTER_BOOT);
                break;
            case AFTER_BOOT:
                post(10 * kSecond, EXIT);
                break;
            default:
                exit(0);
        }
    }

private:
    const sp<Looper> mLooper;
};

class HandlerThread : public android::Thread {
public:
    const sp<Looper> mLooper = new Looper(false);

private:
    bool threadLoop() override {
        Looper::setForThread(mLooper);
        for (;;) mLooper->pollOnce(-1);
    }
};

}  // namespace

int bootvigilMain() {
    const sp<HandlerThread> thread = new HandlerThread();
    thread->run("empty", 0, 0);
    const sp<Handler> handler = new Handler(thread->mLooper);
    handler->post(10 * kSecond, START);
    for (;;) pause();
}
