// SPDX-License-Identifier: Apache-2.0
// Tests of the monitor object: start-up, directories, notification, and the checks after boot.

#include "bootvigil/Bootvigil.h"

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "bootvigil/BootState.h"
#include "bootvigil/BootvigilHandler.h"
#include "tests/daemon/DeviceTest.h"

using namespace lab;

namespace {

const std::string kFinished = "h\nh\n 1.0 :  567-main : Post BOOT_COMPLETED\n";

class BootvigilTest : public DeviceTest {
protected:
    Bootvigil& monitor() {
        return *Bootvigil::createInstance();
    }

    void setBooted(const char* oobe) {
        setProperty("sys.boot_completed", "1");
        setProperty("service.bootanim.exit", "1");
        setProperty("persist.sys.oobe", oobe);
        write("/proc/bootprof", kFinished);
    }
};

TEST_F(BootvigilTest, IsMadeOnceWithEverythingItOwns) {
    write("/velafs/boot_vigil/reason.txt", "12\nsecond line");
    Bootvigil& one = monitor();
    EXPECT_TRUE(logged("D Bootvigil reason is 12"));
    EXPECT_EQ(&one, Bootvigil::createInstance());
    EXPECT_EQ(one.mStuckReason, "12");
    EXPECT_EQ(one.mPhaseIndex, -1);
    EXPECT_EQ(one.mMilestones.size(), 11U);
    EXPECT_STREQ(one.mCompressor->mOutputDir, "/velafs/boot_vigil/log");
    EXPECT_STREQ(one.mCompressor->mFileSuffix, ".zs");
    EXPECT_EQ(one.mHandler->mMonitor.get(), &one);
    EXPECT_EQ(one.mHandler->mLooper, one.mHandlerThread->mLooper);
    EXPECT_EQ(one.mBfRecovery->mRecoveryList, nullptr);
    EXPECT_EQ(one.mBfRecovery->mDisableState, -1);
    EXPECT_TRUE(takeLog().empty());
}

TEST_F(BootvigilTest, CancelsTheKernelMonitorUnlessDebugged) {
    const struct {
        const char* debug;
        std::string log;
    } cases[] = {{"", "D bootvigil Failed to open /dev/bootvigilk -1"},
                 {"no number", "D bootvigil Failed to open /dev/bootvigilk -1"},
                 {"1", "D BOOTVIGIL Start persist.sys.bootvigil.debug.startbootvigil 1 \n"}};
    for (const auto& c : cases) {
        setProperty("persist.sys.bootvigil.debug.startbootvigil", c.debug);
        takeLog();
        monitor().Start();
        EXPECT_EQ(takeLog().back(), c.log);
    }
    EXPECT_EQ(NotifyCancelBootvigilMonitor(), -1);
    write("/dev/bootvigilk", "");
    close(0);  // whose number is as good as any
    takeLog();
    EXPECT_EQ(NotifyCancelBootvigilMonitor(), 0);
    EXPECT_TRUE(takeLog().empty());
    mCancelResult = -1;
    EXPECT_EQ(NotifyCancelBootvigilMonitor(), 0);
    EXPECT_TRUE(logged("D bootvigil Failed to Cancel kernel init Monitor -1"));
}

TEST_F(BootvigilTest, MakesTheDirectoriesOpenToAll) {
    std::filesystem::remove_all("/velafs");
    EXPECT_FALSE(Bootvigil::checkVelafs());
    EXPECT_TRUE(logged("E BOOTVIGIL velafs not exist \n"));
    mkdir("/velafs", 0755);
    umask(077);
    EXPECT_TRUE(Bootvigil::checkVelafs());
    EXPECT_EQ(modeOf("/velafs/boot_vigil"), 0777);
    EXPECT_EQ(modeOf("/velafs/SDD"), 0777);
    EXPECT_FALSE(exists("/velafs/boot_vigil/log"));
    // a link to nowhere can't be made a directory; the second is then not tried
    remove("/velafs/boot_vigil");
    remove("/velafs/SDD");
    symlink("/none", "/velafs/boot_vigil");
    takeLog();
    EXPECT_FALSE(Bootvigil::checkVelafs());
    EXPECT_EQ(takeLog().back(), "E BOOTVIGIL create /velafs/boot_vigil failed(File exists)");
    EXPECT_FALSE(exists("/velafs/SDD"));
    std::filesystem::rename("/velafs/boot_vigil", "/velafs/SDD");
    EXPECT_FALSE(Bootvigil::checkVelafs());
}

TEST_F(BootvigilTest, NotificationFillsRecordAndCache) {
    setProperty("sys.vela.boot_fail_reason", "20");
    monitor().mLastLine = "567-main | x";
    monitor().errNotifyWithReason(5, 4, 1, 100);
    EXPECT_EQ(getBFReason(), 100);
    lab::vtime::setNow(1000);
    takeLog();
    monitor().mLastLine = "567-main | y";
    monitor().errNotifyWithReason(2, 4, static_cast<char>(255), static_cast<char>(200));
    EXPECT_EQ(takeLog()[0], "D errNotifyWithReason type = 2, phase=4, detailPhase=255, reason=200");
    EXPECT_EQ(read(kRecord),  // a type other than 5 keeps the earlier text
              "TIME:Sun Nov 15 11:00:00 2026;    ERR_NUM:0x401564;    ERR_INFO:567-main | x;    "
              "ERR_EXPINFO:Country(0)  ;\n"
              "TIME:Sun Nov 15 11:00:01 2026;    ERR_NUM:0x4ff2c8;    ERR_INFO:567-main | x;    "
              "ERR_EXPINFO:Country(0)  ;\n");
    std::filesystem::remove_all("/velafs");
    monitor().errNotifyWithReason(1, 3, 2, 23);
    EXPECT_EQ(monitor().mErrNumInfo->mDetailPhase, 2);
    EXPECT_EQ(getBFReason(), 23);
    EXPECT_FALSE(exists("/velafs"));
    delete std::exchange(monitor().mErrNumInfo, nullptr);
    takeLog();
    monitor().errNotifyWithReason(5, 4, 1, 100);
    monitor().notifyAfterBoot(7);
    EXPECT_TRUE(takeLog().empty());
}

TEST_F(BootvigilTest, BootIsFinishedByEventOrProperty) {
    const struct {
        const char* oobe;
        const char* complete;
        std::string profile;
        bool finished;
    } cases[] = {
            {"", "0", kFinished, true},
            {"2", "0", kFinished, true},
            {"1", "0", kFinished, false},
            {"1", "1", kFinished, true},
            {"2", "1", "two\nlines", false},
            {"2", "0", "h\nh\nh\n", false},
            {"2", "0", "h\nh\n 1.0 :  567-main : Post BOOT_COMPLETED soon\n", false},
    };
    for (const auto& c : cases) {
        setBooted(c.oobe);
        setProperty("sys.vela.BOOT_COMPLETED", c.complete);
        write("/proc/bootprof", c.profile);
        EXPECT_EQ(monitor().checkBootAllComplete(), c.finished) << c.oobe << c.profile;
    }
    setBooted("2");
    setProperty("sys.vela.BOOT_COMPLETED", "0");
    setProperty("service.bootanim.exit", "0");
    EXPECT_FALSE(monitor().checkBootAllComplete());
}

TEST_F(BootvigilTest, FinishedBootSubmitsWhatWasFlagged) {
    setBooted("2");
    const std::string line = "TIME:t;    ERR_NUM:0x401564;    ERR_INFO:x\n";
    for (const char* flag : {"", "0", "/", " 4"}) {
        write(kFlag, flag);
        write(kRecord, line);
        EXPECT_TRUE(monitor().checkBootAllComplete());
        EXPECT_EQ(read(kRecord), line) << flag;
        EXPECT_TRUE(exists(kFlag));
    }
    for (const auto& [type, stamp] : {std::make_pair(0, "0xf00002"), {5, "0xf00001"}}) {
        for (const char* flag : {"4", "18", "x"}) {
            write(kFlag, flag);
            write(kRecord, line);
            remove(kFailureUpload);
            monitor().mErrNumInfo->mErrType = static_cast<uint8_t>(type);
            EXPECT_TRUE(monitor().checkBootAllComplete());
            EXPECT_EQ(read(kFailureUpload), "BOOTVIGIL|0x401564|t|x");
            EXPECT_NE(read(kRecord).find(stamp), std::string::npos);
            EXPECT_FALSE(exists(kFlag));
        }
    }
}

TEST_F(BootvigilTest, SetUpWizardIsStuckAtTheFourthCheck) {
    setBooted("1");
    bool keepWatching = false;
    const auto check = [&] { return monitor().checkStuckOOBE(&keepWatching); };
    for (const char* oobe : {"1", "2x", "1", "1", "0", "0", "0", "0", "1", "1", "1"}) {
        setProperty("persist.sys.oobe", oobe);
        setProperty("service.bootanim.exit", "0");
        EXPECT_FALSE(check());
        EXPECT_TRUE(keepWatching);
    }
    EXPECT_FALSE(exists(kRecord));
    write(kRecord, "earlier\n");
    EXPECT_FALSE(check());
    EXPECT_FALSE(keepWatching);
    EXPECT_EQ(read(kFlag), "6");
    EXPECT_EQ(monitor().mErrNumInfo->mMainPhase, 6);
    // it goes on after all
    setProperty("sys.vela.BOOT_COMPLETED", "1");
    EXPECT_TRUE(check());
    EXPECT_TRUE(monitor().checkBootAllComplete());
    EXPECT_EQ(read(kRecord), "earlier\n");
    EXPECT_FALSE(exists(kFlag));
    EXPECT_EQ(monitor().mOobePhase, 0);
}

TEST_F(BootvigilTest, UnknownMessagesAreOnlyLogged) {
    for (const int what : {0x20070, 0x20011, 0x20000, -1, 0}) {
        takeLog();
        monitor().mHandler->handleMessage(android::Message(what));
        EXPECT_EQ(takeLog().size(), 1U) << what;
    }
}

}  // namespace
