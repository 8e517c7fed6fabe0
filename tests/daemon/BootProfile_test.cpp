// SPDX-License-Identifier: Apache-2.0
// Tests of the boot profile reader.

#include <random>

#include "bootvigil/Bootvigil.h"
#include "lab/base/DataFolder.h"
#include "lab/base/Files.h"
#include "tests/daemon/DeviceTest.h"

namespace {

const std::string kTail = "  19264.6 : OFF\n----------------------------------------\n";

std::string event(const std::string& name, const std::string& by = "567-main") {
    return "   9482.0 :  " + by + "  : " + name + "\n";
}

const std::string kHealthy = lab::readFile(lab::dataPath("profiles/healthy.txt"));

class BootProfileTest : public DeviceTest {
protected:
    void parse(const std::string& profile) {
        write("/proc/bootprof", profile);
        mMonitor.parseBootProf();
    }

    Bootvigil& mMonitor = *Bootvigil::createInstance();
};

TEST_F(BootProfileTest, LastEventIsTheThirdLineFromTheEnd) {
    parse("one\ntwo\n");
    EXPECT_TRUE(logged("E parseBootProf Lines < 3"));
    parse(event("a") + kTail);
    EXPECT_EQ(mMonitor.mLastLine, "567-main  | a");
    EXPECT_EQ(mMonitor.mSameLineCount, 0);
    for (int same = 1; same <= 4; ++same) {
        parse("header\n" + event("a") + kTail);
        EXPECT_EQ(mMonitor.mSameLineCount, same);
    }
    for (const char* line : {"a header\n", " 1.0 : two fields\n"}) {  // nothing to be learnt from
        parse(event("a") + line + kTail);
    }
    EXPECT_EQ(mMonitor.mSameLineCount, 4);
    parse(event("b  ") + kTail);
    EXPECT_EQ(mMonitor.mLastLine, "567-main  | b ");  // a leading blank keeps a trailing one
    parse(event("a") + kTail);
    EXPECT_EQ(mMonitor.mSameLineCount, 0);
    mMonitor.mStuckPID = 567;
    remove("/proc/bootprof");
    mMonitor.parseBootProf();
    EXPECT_EQ(mMonitor.mStuckPID, -1);
    EXPECT_EQ(mMonitor.mLastLine, "567-main  | a");
}

TEST_F(BootProfileTest, FiveOfOneMilestoneAreARestartLoop) {
    std::string profile;
    for (int i = 0; i < 4; ++i) {
        for (const std::string& milestone : kBootMilestones) profile += event(milestone);
    }
    parse(" 1.0 : too short\n" + profile + event("zygote:Preload Start") + kTail);
    EXPECT_FALSE(mMonitor.mRestartLoop);
    for (const std::string& milestone : kBootMilestones) {
        EXPECT_EQ(mMonitor.mMilestones[milestone], 4) << milestone;
    }
    takeLog();
    const std::string last = mMonitor.mLastLine;
    parse(event("Zygote:Preload Start") + profile + kTail);
    EXPECT_TRUE(mMonitor.mRestartLoop);
    EXPECT_EQ(mMonitor.mPhaseIndex, 1);
    EXPECT_EQ(mMonitor.mLastLine, last);
    EXPECT_TRUE(logged("D parseBootProf reboot reason Zygote:Preload Start, count 5"));
    // nearest to the end wins, and only what was scanned is counted
    std::string two;
    for (int i = 0; i < 5; ++i) two += event("AMS:AMS_READY");
    for (int i = 0; i < 5; ++i) two += event("Android:PMS_READY");
    parse(two + kTail);
    EXPECT_EQ(mMonitor.mPhaseIndex, 7);
    EXPECT_EQ(mMonitor.mMilestones["AMS:AMS_READY"], 0);
}

TEST_F(BootProfileTest, ReadsTheRealProfile) {
    parse(kHealthy);
    EXPECT_FALSE(mMonitor.mRestartLoop);
    EXPECT_EQ(mMonitor.mMilestones["Zygote:Preload End"], 2);
    EXPECT_EQ(mMonitor.mMilestones["Android:SysServerInit_END"], 1);
    EXPECT_EQ(mMonitor.mLastLine.substr(0, 41), "1140-ActivityManager | AP_Init:[service]:");
}

TEST_F(BootProfileTest, DamagedProfiles) {
    std::mt19937 random(1);
    std::string noise(200000, '\0');
    for (char& c : noise) {
        c = static_cast<char>(random());
        if (c == ' ') c = '.';  // a field of blanks would end the process
    }
    parse(noise);
    parse(std::string(5000, '\0') + "\n\n\n\n");
    parse(std::string(10000000, 'x') + " : " + std::string(100, 'y') + " : z\n" + kTail);
    EXPECT_EQ(mMonitor.mLastLine, std::string(100, 'y') + " | z");
    std::string large;
    while (large.size() < 50000000) large += event("something new");
    parse(large + kTail);
    EXPECT_EQ(mMonitor.mLastLine, "567-main  | something new");
    EXPECT_FALSE(mMonitor.mRestartLoop);
}

}  // namespace
