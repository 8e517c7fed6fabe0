// SPDX-License-Identifier: Apache-2.0
// What can be tested on a device, or on any host, without a simulated one: the real looper and its
// clock, the shell and zstd of the platform, and the stubs of the two closed libraries.

#include <VelaLogRaw.h>
#include <gtest/gtest.h>
#include <kelclient.h>
#include <unistd.h>
#include <zstd.h>

#include <chrono>
#include <fstream>
#include <future>
#include <iterator>
#include <string>

#include "bootvigil/Handler.h"
#include "bootvigil/compress/CompressZstd.h"

namespace {

class Recorder : public Handler {
public:
    using Handler::Handler;

    void handleMessage(const android::Message& message) override {
        mOrder += std::to_string(message.what);
        if (mOrder.size() == 3) mDone.set_value(mOrder);
    }

    std::promise<std::string> mDone;

private:
    std::string mOrder;
};

TEST(OnDeviceTest, MessagesComeInOrderOfTime) {
    const android::sp<HandlerThread> thread = new HandlerThread();
    const android::sp<Recorder> handler = new Recorder(thread->getLooper());
    // Never freed: the thread may let go of it after this test, and the thread sanitizer cannot see
    // libutils count.
    static const Handler* const kept = handler.get();
    kept->incStrong(this);
    std::future<std::string> order = handler->mDone.get_future();
    const auto start = std::chrono::steady_clock::now();
    handler->sendMessageDelayed(200000000, android::Message(3));
    handler->sendMessageDelayed(100000000, android::Message(2));
    handler->sendMessageDelayed(0, android::Message(1));
    thread->run("test", 0, 0);
    ASSERT_EQ(order.wait_for(std::chrono::seconds(10)), std::future_status::ready);
    EXPECT_EQ(order.get(), "123");
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(200));
}

TEST(OnDeviceTest, OutputOfACommandBecomesOneFrame) {
    const std::string folder = testing::TempDir();
    bootvigil::CompressZstd compressor;
    compressor.mOutputDir = folder.c_str();
    compressor.mFileSuffix = ".zs";
    char command[] = "i=0; while [ $i -lt 30000 ]; do echo 4711; i=$((i+1)); done";
    char name[] = "bootvigil_on_device";
    ASSERT_EQ(compressor.compressShellCmdFile(command, name, 5), 0);

    const std::string path = folder + "/bootvigil_on_device.zs";
    std::ifstream file(path, std::ios::binary);
    const std::string frame{std::istreambuf_iterator<char>(file), {}};
    unlink(path.c_str());
    std::string text(200000, '\0');
    const size_t size = ZSTD_decompress(&text[0], text.size(), frame.data(), frame.size());
    ASSERT_FALSE(ZSTD_isError(size)) << ZSTD_getErrorName(size);
    text.resize(size);
    std::string expected;
    for (int i = 0; i < 30000; ++i) expected += "4711\n";
    EXPECT_TRUE(text == expected) << size << " bytes";
}

TEST(OnDeviceTest, StubsHaveKeptNothingAndAskNobody) {
    EXPECT_FALSE(VelaLogRaw::HasInitLog());
    EXPECT_FALSE(VelaLogRaw::GetInitLogMsg());
    EXPECT_FALSE(VelaLogRaw::CleanInitLog());
    std::string path = "as it was";
    EXPECT_FALSE(VelaLogRaw::HasKernelLog());
    EXPECT_FALSE(VelaLogRaw::GetKernelLogMsgAndPath(path));
    EXPECT_FALSE(VelaLogRaw::CleanKernelLog());
    EXPECT_EQ(path, "as it was");
    char id[] = "0xffffff06";
    char ext[] = "";
    EXPECT_EQ(start_KEL(id, 0x60036, 0, ext), -1);
}

}  // namespace
