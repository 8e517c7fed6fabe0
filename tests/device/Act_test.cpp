// SPDX-License-Identifier: Apache-2.0
// What answers the daemon's requests: the budget's rules, and what is done in a device root.

#include "device/act/Act.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <map>

#include "lab/base/Files.h"
#include "lab/base/ProcessEnd.h"
#include "lab/base/Text.h"
#include "lab/device/LibcFiles.h"
#include "tests/daemon/DeviceTest.h"

namespace {

using namespace lab;
using act::Action;
using act::Verdict;

constexpr int64_t kDay = 24 * 60 * 60;
const std::string kBudget = "/metadata/bootvigil/budget";
const std::string kRefused = "/velafs/boot_vigil/refused";
const std::string kCommand = "/cache/recovery/command";

class ActTest : public DeviceTest {
protected:
    ActTest() {
        makeFolders("/metadata/bootvigil");
        makeFolders("/cache/recovery");
        write(kKernelMessages, "");
        boot();
    }

    void advanceTo(int64_t target) override {
        for (; !mDue.empty() && mDue.begin()->first <= target; mDue.erase(mDue.begin())) {
            if (mDue.begin()->second == "up") setUp();
            if (mDue.begin()->second == "clock") vtime::shiftTimeOfDay(5 * kDay);
        }
    }

    static void setUp() {
        setProperty("sys.boot_completed", "1");
        setProperty("service.bootanim.exit", "1");
    }

    // A new boot; the properties of the last one are gone.
    static void boot() {
        for (const char* name : {"sys.boot_completed", "service.bootanim.exit", "sys.powerctl",
                                 "sys.vela.boot_fail_reason"}) {
            setProperty(name, "");
        }
        setProperty("init.svc.bootvigil", "running");
        act::start();
    }

    static void comeUp(bool late = false) {
        setUp();
        setProperty("init.svc.bootvigil", late ? "stopped" : "running");
        act::cameUp();
    }

    // A boot that hangs; whether what the daemon asks for is done.
    static bool asksFor(Action action) {
        boot();
        const bool done = act::answer(action) == Verdict::DO;
        EXPECT_EQ(property("sys.powerctl") != "", done);
        return done;
    }

    static std::string lastRefusal() {
        const std::vector<std::string> lines = linesOf(readFileOr(kRefused, ""));
        return lines.empty() ? "" : lines.back();
    }

    std::multimap<int64_t, std::string> mDue;  // by device time in ms
};

TEST_F(ActTest, DoesWhatTheNextBootIsToFind) {
    const int64_t asked = vtime::now();
    ASSERT_TRUE(asksFor(Action::REBOOT));
    EXPECT_EQ(vtime::now() - asked, 60000);
    EXPECT_EQ(property("sys.powerctl"), "reboot,velarecovery");
    ASSERT_TRUE(asksFor(Action::RESET));
    EXPECT_EQ(vtime::now() - asked, 660000);
    EXPECT_EQ(property("sys.powerctl"), "reboot,recovery");
    EXPECT_EQ(read(kCommand), "--wipe_data\n--reason=bootvigil\n");
    EXPECT_EQ(read(kRefused), "<missing>");
    EXPECT_EQ(read(kKernelMessages),
              "<4>bootvigil-act: asked for a reboot\n<4>bootvigil-act: rebooting\n"
              "<4>bootvigil-act: asked for a reset\n<4>bootvigil-act: wiping the data\n");
}

TEST_F(ActTest, RefusesWhatTheBudgetHasNot) {
    for (int i = 0; i < 3; ++i) EXPECT_TRUE(asksFor(Action::REBOOT));
    EXPECT_FALSE(asksFor(Action::REBOOT));
    EXPECT_EQ(lastRefusal().substr(24), "|reboot|spent");
    EXPECT_TRUE(asksFor(Action::RESET));
    remove(kCommand);
    EXPECT_FALSE(asksFor(Action::RESET));
    EXPECT_FALSE(exists(kCommand));
    EXPECT_EQ(lastRefusal().substr(24), "|reset|spent");
    vtime::shiftTimeOfDay(kDay);
    EXPECT_TRUE(asksFor(Action::RESET));
    for (int i = 0; i < 30; ++i) asksFor(Action::RESET);
    EXPECT_EQ(linesOf(read(kRefused)).size(), 20U);

    setProperty("ro.bootvigil.reboots", "4");
    setProperty("ro.bootvigil.resets", "0");
    vtime::shiftTimeOfDay(kDay);
    for (int i = 0; i < 4; ++i) EXPECT_TRUE(asksFor(Action::REBOOT));
    EXPECT_FALSE(asksFor(Action::REBOOT));
    EXPECT_FALSE(asksFor(Action::RESET));
}

// A clock that starts in 1970, that was set in this boot, or that goes back is not asked; then only
// boots that came up give the budget back.
TEST_F(ActTest, CountsBootsWhereTheClockCannotBeTrusted) {
    vtime::shiftTimeOfDay(-vtime::timeOfDay());
    EXPECT_TRUE(asksFor(Action::RESET));
    vtime::shiftTimeOfDay(3 * kDay);
    EXPECT_FALSE(asksFor(Action::RESET));
    mDue.emplace(vtime::now() + 300000, "clock");  // while it waits
    vtime::shiftTimeOfDay(20000 * kDay);
    EXPECT_FALSE(asksFor(Action::RESET));
    for (int i = 0; i < 9; ++i) comeUp();
    EXPECT_FALSE(asksFor(Action::RESET));
    comeUp();
    EXPECT_TRUE(asksFor(Action::RESET));
    vtime::shiftTimeOfDay(-10000 * kDay);
    EXPECT_FALSE(asksFor(Action::RESET));
    setProperty("ro.build.date.utc", std::to_string(vtime::timeOfDay() + 10 * kDay));
    vtime::shiftTimeOfDay(9 * kDay);
    EXPECT_FALSE(asksFor(Action::RESET));
}

TEST_F(ActTest, SparesABootThatComesUp) {
    mDue.emplace(vtime::now() + 59000, "up");
    EXPECT_FALSE(asksFor(Action::REBOOT));
    EXPECT_EQ(lastRefusal(), "Sun Nov 15 11:00:59 2026|reboot|came-up");
    EXPECT_FALSE(asksFor(Action::RESET));
    EXPECT_EQ(lastRefusal().substr(24), "|reset|slow");
    EXPECT_TRUE(asksFor(Action::REBOOT));
    comeUp();
    EXPECT_TRUE(asksFor(Action::RESET));
    comeUp(true);
    EXPECT_FALSE(asksFor(Action::RESET));
    EXPECT_EQ(lastRefusal().substr(24), "|reset|slow");
}

// What the platform declares of a framework that is up is no slow boot.
TEST_F(ActTest, RebootsADeviceInUseAndNeverWipesIt) {
    boot();
    setUp();
    setProperty("sys.vela.boot_fail_reason", "20");
    const int64_t asked = vtime::now();
    EXPECT_EQ(act::answer(Action::RESET), Verdict::IN_USE);
    EXPECT_EQ(act::answer(Action::REBOOT), Verdict::DO);
    EXPECT_EQ(vtime::now(), asked);
}

TEST_F(ActTest, DamagedBudgetLeavesOneReboot) {
    EXPECT_TRUE(asksFor(Action::REBOOT));
    const std::string good = read(kBudget);
    const std::pair<const char*, std::string> cases[] =
            {{"empty", ""},
             {"cut", good.substr(0, good.size() - 1)},
             {"a bit", std::string(good).replace(good.find("reboot"), 1, "p")},
             {"too long", std::string(10000, '\n') + good},
             {"of another", "budget\n"}};
    for (const auto& [name, text] : cases) {
        SCOPED_TRACE(name);
        write(kBudget, text);
        EXPECT_FALSE(asksFor(Action::RESET));
        EXPECT_TRUE(asksFor(Action::REBOOT));
        EXPECT_FALSE(asksFor(Action::REBOOT));
        EXPECT_FALSE(asksFor(Action::RESET));
    }
    for (int i = 0; i < 10; ++i) comeUp();
    EXPECT_TRUE(asksFor(Action::RESET));
}

// An action that could not be counted would be done for ever.
TEST_F(ActTest, DoesNothingThatItCannotCount) {
    remove("/metadata/bootvigil");
    EXPECT_FALSE(asksFor(Action::REBOOT));
    EXPECT_EQ(lastRefusal().substr(24), "|reboot|uncounted");
    makeFolders("/metadata/bootvigil");
    remove("/cache/recovery");
    EXPECT_FALSE(asksFor(Action::RESET));
    EXPECT_EQ(lastRefusal().substr(24), "|reset|no-command");
}

TEST_F(ActTest, HealthyDeviceWritesNothing) {
    comeUp();
    EXPECT_FALSE(exists(kBudget));
    EXPECT_EQ(read(kKernelMessages), "");
    asksFor(Action::REBOOT);
    for (int i = 0; i < 10; ++i) comeUp();
    const std::string forgotten = read(kBudget);
    comeUp();
    EXPECT_EQ(read(kBudget), forgotten);
}

// The power goes after each file operation, with each fate of what was not synced: the budget is
// whole, what was done is in it, and no later start of recovery wipes at its word.
class ActPowerCutTest : public ActTest, public testing::WithParamInterface<Unsynced> {
protected:
    // Gives whether the power was cut.
    static bool answerUntil(int64_t operation, Action action) {
        const pid_t child = fork();
        if (child == 0) {
            static Boot boot;
            static Trace trace;
            boot.cutAfter = operation;
            boot.unsynced = GetParam();
            boot.damageSeed = operation;
            calls::start(boot, trace);
            act::answer(action);
            _exit(0);
        }
        int status = 0;
        waitpid(child, &status, 0);
        EXPECT_TRUE(WIFEXITED(status));
        return WEXITSTATUS(status) == kCutOff;
    }
};

TEST_P(ActPowerCutTest, AfterEveryFileOperation) {
    for (const Action action : {Action::REBOOT, Action::RESET}) {
        int64_t operation = 1;
        for (;; ++operation) {
            SCOPED_TRACE(format("%s, cut after operation %d", act::nameOf(action),
                                static_cast<int>(operation)));
            for (const std::string& path : {kBudget, kCommand, kRefused}) remove(path);
            unsigned done = 0;
            boot();
            const bool cut = answerUntil(operation, action);
            done += property("sys.powerctl") != "" ? 1 : 0;
            boot();
            EXPECT_FALSE(exists(kCommand));
            const std::string budget = readFileOr(kBudget, "");
            EXPECT_TRUE(budget.empty() || act::parseLedger(budget)) << budget;
            for (int i = 0; i < 4; ++i) done += asksFor(action) ? 1 : 0;
            EXPECT_LE(done, action == Action::RESET ? 1U : 3U);
            EXPECT_GE(done, action == Action::RESET ? 0U : 2U);
            if (!cut) break;
        }
        EXPECT_GT(operation, 6);
    }
}

INSTANTIATE_TEST_SUITE_P(Unsynced, ActPowerCutTest,
                         testing::Values(Unsynced::KEPT, Unsynced::LOST, Unsynced::EMPTIED,
                                         Unsynced::CUT, Unsynced::MIXED),
                         [](const auto& kind) {
                             return kUnsyncedNames[static_cast<size_t>(kind.param)];
                         });

}  // namespace
