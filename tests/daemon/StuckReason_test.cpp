// SPDX-License-Identifier: Apache-2.0
// Tests of the decision which process is stuck, and where.

#include "bootvigil/Bootvigil.h"
#include "tests/daemon/DeviceTest.h"

using namespace lab;

namespace {

class StuckReasonTest : public DeviceTest {
protected:
    bool check() {
        return mMonitor.checkReason(mType, mPid, mExt);
    }

    std::string recorded() {
        const ErrNumInfo& info = *mMonitor.mErrNumInfo;
        return std::to_string(info.mErrType) + " " + std::to_string(info.mMainPhase) + " " +
               std::to_string(info.mDetailPhase) + " " + std::to_string(info.mReason);
    }

    Bootvigil& mMonitor = *Bootvigil::createInstance();
    long mType = -7;
    int mPid = -7;
    std::string mExt = "untouched";
};

TEST_F(StuckReasonTest, NamesTheProcessThatIsStuck) {
    const struct {
        const char* lastLine;
        int same;
        int timeouts;
        int pid;
    } cases[] = {
            {"567-system_server | AMS:systemReady", 2, 2, -1},
            {"567-system_server | AMS:systemReady", 2, 3, 0},
            {"567-system_server | AMS:systemReady", 3, 0, 567},
            {"main-567 | x", 3, 2, -1},
            {"main-567 | x", 5, 3, 0},
            {"", 3, 2, -1},
            {"-1 | x", 3, 2, -1},  // the empty piece before "-" is dropped, the next is no number
            {"567-main | PMS:performDexOpt:all", 9, 9, -1},
    };
    for (const auto& c : cases) {
        mMonitor.mLastLine = c.lastLine;
        mMonitor.mSameLineCount = c.same;
        mMonitor.mTimeoutCount = c.timeouts;
        mType = -7;
        const bool stuck = check();
        EXPECT_EQ(mMonitor.mStuckPID, c.pid) << c.lastLine << c.same << c.timeouts;
        EXPECT_EQ(stuck, c.pid != -1) << c.lastLine << c.same << c.timeouts;
        EXPECT_EQ(mType, stuck ? 0x60436 : -7);
    }
}

TEST_F(StuckReasonTest, AnimationThatStaysNeedsNoProcess) {
    setProperty("sys.boot_completed", "1");
    EXPECT_TRUE(check());
    EXPECT_EQ(recorded(), "0 0 0 0");
    EXPECT_EQ(mType, 0x61036);
    EXPECT_EQ(mPid, -1);
    EXPECT_EQ(read(kReason), "3");
    setProperty("sys.boot_completed", "2");
    mType = -7;
    EXPECT_FALSE(check());
    EXPECT_EQ(mType, -7);  // the triple is untouched
    EXPECT_TRUE(logged("D Not found mStuckPID "));
    EXPECT_FALSE(exists("/velafs/SDD/bfRecord.txt"));
}

TEST_F(StuckReasonTest, LoopIsNamedByTheMilestoneItNeverReaches) {
    const char* packages =
            "/data/system/users/0.xml;/data/system/users/userlist.xml/data/system/packages.xml;"
            "/data/system/uiderrors.txt";
    const struct {
        int looping;
        int missing;  // -1: none
        const char* record;
        std::string ext;
    } cases[] = {
            {1, 2, "2 4 6 100", ""},        {0, 10, "2 4 14 100", ""},
            {10, -1, "2 4 255 100", ""},    {-1, 3, "2 4 255 100", ""},
            {4, 3, "2 4 255 100", ""},      {2, 6, "2 4 10 100", packages},
            {2, 7, "2 4 11 100", packages}, {2, 8, "2 4 12 100", ""},
            {0, 0, "2 4 4 100", ""},
    };
    setProperty("sys.boot_completed", "1");  // a loop comes before an animation that stays
    mMonitor.mRestartLoop = true;
    for (const auto& c : cases) {
        for (int i = 0; i < kMilestoneCount; ++i) {
            mMonitor.mMilestones[kBootMilestones[i]] = i == c.missing ? 0 : 1;
        }
        mMonitor.mPhaseIndex = c.looping;
        for (const bool health : {false, true}) {
            if (health) write("/" + kHealth, "");
            EXPECT_TRUE(check());
            EXPECT_EQ(recorded(), c.record);
            EXPECT_EQ(mType, 0x60036);
            EXPECT_EQ(mExt, (health ? "proc/vela_healthinfo/healthinfo_show;" : "") + c.ext);
            remove("/" + kHealth);
        }
    }
    EXPECT_EQ(read(kReason), "4");
    EXPECT_TRUE(logged("D reboot reason  = vold:fbeEnable:START "));
}

}  // namespace
