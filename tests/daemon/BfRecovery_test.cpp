// SPDX-License-Identifier: Apache-2.0
// Tests of the recovery policy: who may act, which action comes next, what counts as a success.

#include "bootvigil/BfRecovery.h"

#include <algorithm>
#include <filesystem>
#include <stdexcept>

#include "bootvigil/BootState.h"
#include "tests/daemon/DeviceTest.h"

using namespace lab;

namespace {

class BfRecoveryTest : public DeviceTest {
protected:
    struct Step {
        bool acts;
        std::string history;
    };

    // One boot that fails for `reason`: a new process's object on the files left so far.
    Step fail(int reason) {
        setBFReason(static_cast<uint8_t>(reason));
        takeLog();
        BfRecovery recovery;
        const bool acts = recovery.runRecovery(reason, false);
        return {acts, read(kHistory)};
    }
};

TEST_F(BfRecoveryTest, NothingIsDoneWithoutAListOrAReason) {
    EXPECT_FALSE(fail(50).acts);
    EXPECT_TRUE(logged("E not found recovery list"));
    EXPECT_FALSE(fail(0).acts);
    EXPECT_FALSE(exists(kHistory));
    EXPECT_EQ(takeLog(), (std::vector<std::string>{"E runRecovery errCode=0",
                                                   "D not found disable file, is Enable."}));
}

TEST_F(BfRecoveryTest, DamagedHistoryBlocksOrGoesOn) {
    for (const char* history : {"", "\n11d", "5", "x1d", "/1d"}) {
        write(kHistory, history);
        EXPECT_FALSE(fail(100).acts) << history;
        EXPECT_EQ(read(kHistory), history);
    }
    for (const auto& [history, next] : {std::make_pair("0", "11d"), {"1", "22d"}}) {
        write(kHistory, history);
        EXPECT_EQ(fail(100).history, next);
    }
    write(kHistory, "2\xff\xff");
    EXPECT_EQ(BfRecovery::getCurrentRecoveryMode(), 255 - '0');
    EXPECT_EQ(BfRecovery::getLastBfReason(), -1);
    EXPECT_EQ(fail(100).history, "35d");
    remove(kHistory);
    EXPECT_EQ(BfRecovery::getCurrentRecoveryMode(), 0);
    write(std::string(kHistory) + "/x", "");  // a folder, which is not empty
    BfRecovery::cleanRecoveryHistory();
    EXPECT_TRUE(logged("E file /velafs/boot_vigil/recovery_flag.txt remove failed."));
    std::filesystem::remove_all(kHistory);
    remove("/velafs/boot_vigil/log");  // a history that can't be written does not stop the step
    remove("/velafs/boot_vigil");
    setProperty(kRebootRequest, "");
    const Step step = fail(100);
    EXPECT_TRUE(step.acts);
    EXPECT_EQ(property(kRebootRequest), "1");
    EXPECT_EQ(step.history, "<missing>");
    EXPECT_TRUE(logged("E not set recovery log"));
}

TEST_F(BfRecoveryTest, OverrideListDecidesInstead) {
    write(kOverride, "100|21555\n100|512\nno list\n20|51000\n  100x|1200055\n");
    EXPECT_EQ(fail(100).history, "11d");  // the last line that matches, five digits of it
    EXPECT_TRUE(logged("I getRecoveryList from recoveryList:1200055"));
    EXPECT_EQ(fail(100).history, "22d");
    EXPECT_FALSE(fail(100).acts);
    EXPECT_EQ(takeLog().back(), "E not found next recovery mode");
    // a reason without a line leaves in force what the process has read before
    remove(kHistory);
    EXPECT_EQ(fail(7).history, std::string("11\7"));
    EXPECT_TRUE(logged("I getRecoveryList from result[0].c_str:20"));
    write(kOverride, "100|512");  // too short to be taken
    remove(kHistory);
    EXPECT_EQ(fail(100).history, "11d");
    // digits are bytes: 3 and 0xe9 are no actions, a blank is less than none
    for (const auto& [list, history] :
         std::vector<std::pair<std::string, std::string>>{{"100|31000", "13d"},
                                                          {"100|\xe9xxxx", "1185d"},
                                                          {"100|.1000", "<missing>"}}) {
        remove(kHistory);
        write(kOverride, list);
        const Step step = fail(100);
        EXPECT_FALSE(step.acts) << list;
        EXPECT_EQ(step.history, history) << list;
    }
    write(kOverride, "100| ");
    EXPECT_THROW(fail(100), std::out_of_range);
}

TEST_F(BfRecoveryTest, DisabledByConfigurationOrFromOutside) {
    const auto disabled = [] { return BfRecovery().checkIfDisable(); };
    EXPECT_FALSE(disabled());
    for (const char* content : {"", "BfRecover=NO ", "bfRecover=NO\n", "BfRecover=YES\n"}) {
        write(kSwitch, content);
        EXPECT_FALSE(disabled()) << content;
    }
    write(kSwitch, "first\nBfRecover=NO\nlast");
    takeLog();
    EXPECT_TRUE(disabled());
    EXPECT_EQ(takeLog(), (std::vector<std::string>{"D recovery is disable in network",
                                                   "D recovery disable info last",
                                                   "D recovery disable info BfRecover=NO"}));
    BfRecovery decided;
    EXPECT_TRUE(decided.checkIfDisable());
    EXPECT_FALSE(decided.runRecovery(100, false));
    EXPECT_FALSE(decided.checkIfRecoverySuccess(1));
    remove(kSwitch);
    EXPECT_TRUE(decided.checkIfDisable());
    EXPECT_FALSE(disabled());
    for (const char* support : {"0", "2", "yes"}) {
        setProperty("ro.vela.bfRecovery.support", support);
        EXPECT_TRUE(disabled()) << support;
    }
    EXPECT_TRUE(logged("D recovery is disable in config."));
}

TEST_F(BfRecoveryTest, RescueModeIsAskedBeforeTheCache) {
    setBFReason(20);
    BfRecovery recovery;
    EXPECT_FALSE(recovery.checkIfDisable());
    setProperty("persist.sys.enable_rescue", "true");
    EXPECT_TRUE(recovery.checkIfDisable());
    EXPECT_TRUE(logged("E recovery is disable for rescue."));
    EXPECT_EQ(recovery.mDisableState, 0);
    setBFReason(120);
    EXPECT_TRUE(recovery.checkIfDisable());
    setBFReason(100);
    EXPECT_FALSE(recovery.checkIfDisable());
}

TEST_F(BfRecoveryTest, SuccessIsJudgedByTheLastActionAndItsReason) {
    const struct {
        const char* history;
        const char* bootReason;
        int kind;
        bool success;
        const char* report;
        bool kept;
    } cases[] = {
            {"11d", "reboot,velarecovery", 1, true, "1|Sun Nov 15 11:00:00 2026|100", false},
            {"11d", "reboot,velarecovery,x", 1, false, "<missing>", false},
            {"35d", "reboot,factory_reset", 1, true, "5|Sun Nov 15 11:00:00 2026|100", false},
            {"35d", "reboot", 2, false, "<missing>", false},
            {"22", "cold", 1, true, "<missing>", false},
            {"11x", "reboot,velarecovery", 1, false, "<missing>", true},
            {"11x", "reboot,velarecovery", 2, true, "1|Sun Nov 15 11:00:00 2026|120", false},
            {"11\xff", "reboot,velarecovery", 1, false, "<missing>", true},
            {"11\xff", "reboot,velarecovery", 2, true, "1|Sun Nov 15 11:00:00 2026|255", false},
            {"1", "reboot,velarecovery", 1, false, "<missing>", true},
    };
    for (const auto& c : cases) {
        remove(kSuccessUpload);
        write(kHistory, c.history);
        setProperty("sys.boot.reason", c.bootReason);
        EXPECT_EQ(BfRecovery().checkIfRecoverySuccess(c.kind), c.success) << c.history;
        const std::string report = read(kSuccessUpload);
        EXPECT_EQ(report, (report == "<missing>" ? "" : "BFRECOVERY|") + std::string(c.report));
        EXPECT_EQ(exists(kHistory), c.kept) << c.history;
    }
    const std::vector<std::string> log = takeLog();
    EXPECT_EQ(std::count(log.begin(), log.end(), "E Not vela reboot."), 1);
    EXPECT_EQ(std::count(log.begin(), log.end(), "E Not factory reset."), 1);
    write(kSuccessUpload, "uncollected");
    write(kHistory, "11d");
    setProperty("sys.boot.reason", "reboot,velarecovery");
    EXPECT_TRUE(BfRecovery().checkIfRecoverySuccess(1));
    EXPECT_EQ(read(kSuccessUpload), "uncollected");
    EXPECT_TRUE(logged("E BOOTVIGIL /velafs/SDD/bf_upload/boot_vigil exist \n"));
}

}  // namespace
