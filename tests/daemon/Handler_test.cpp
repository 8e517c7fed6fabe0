// SPDX-License-Identifier: Apache-2.0
// Tests of the delayed messages, with the real looper in virtual time.

#include "bootvigil/Handler.h"

#include <future>
#include <utility>

#include "tests/daemon/DeviceTest.h"

namespace {

using Delivery = std::pair<int, int64_t>;  // message, ms

constexpr int kChain = 9;  // posts itself once more, with the message it was given

class Recorder : public Handler {
public:
    using Handler::Handler;

    void handleMessage(const android::Message& message) override {
        EXPECT_EQ(android::Looper::getForThread(), mLooper);
        if (message.what == kChain && mChained++ == 0) sendMessageDelayed(30000000000, message);
        mDeliveries.emplace_back(message.what, lab::vtime::now());
        if (mDeliveries.size() == 6) mDone.set_value(mDeliveries);
    }

    std::promise<std::vector<Delivery>> mDone;

private:
    std::vector<Delivery> mDeliveries;
    int mChained = 0;
};

class HandlerTest : public DeviceTest {};

TEST_F(HandlerTest, DeliversInOrderOfTimeThenOfPosting) {
    const android::sp<HandlerThread> thread = new HandlerThread();
    const android::sp<Recorder> handler = new Recorder(thread->getLooper());
    // The thread never ends and may let go of the last message after this test. Whoever comes last
    // frees the handler; the thread sanitizer cannot see libutils count, so nobody may.
    handler->incStrong(this);
    EXPECT_TRUE(handler->sendMessageDelayed(240000000000, android::Message(1)));
    handler->sendMessageDelayed(30000000000, android::Message(2));
    handler->sendMessageDelayed(240000000000, android::Message(3));
    handler->sendMessageDelayed(240000000000, android::Message(1));
    handler->sendMessageDelayed(0, android::Message(kChain));
    thread->run("test", 0, 0);
    lab::vtime::letTimeFlow();
    EXPECT_EQ(handler->mDone.get_future().get(), (std::vector<Delivery>{{kChain, 0},
                                                                        {2, 30000},
                                                                        {kChain, 30000},
                                                                        {1, 240000},
                                                                        {3, 240000},
                                                                        {1, 240000}}));
}

TEST_F(HandlerTest, WithoutALooperNothingIsPosted) {
    const android::sp<Recorder> handler = new Recorder(nullptr);
    EXPECT_FALSE(handler->sendMessageDelayed(0, android::Message(1)));
    const android::sp<Handler> base = new Handler(nullptr);
    base->handleMessage(android::Message(7));
    EXPECT_TRUE(logged("D BOOTVIGIL father handleMessage what = 7"));
}

}  // namespace
