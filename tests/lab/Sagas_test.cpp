// SPDX-License-Identifier: Apache-2.0
// Tests of random scenarios: what is made up can be written down and run again, and power cuts.

#include "lab/run/ScenarioRun.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <utility>

#include "lab/base/DataFolder.h"
#include "lab/base/DevicePaths.h"
#include "lab/base/Draw.h"
#include "lab/base/Files.h"
#include "lab/base/Sanitizers.h"
#include "lab/base/Shared.h"
#include "lab/base/TemporaryFolder.h"
#include "lab/random/RandomScenario.h"
#include "lab/scenario/Scenario.h"

namespace {

// A boot takes ten times as long with a sanitizer, or in an emulator.
constexpr bool kSlow = lab::kSanitized || BOOTVIGIL_EMULATED != 0;

using namespace lab;

class SagaTest : public testing::Test {
protected:
    std::unique_ptr<ScenarioRun> runBoots(const Scenario& scenario, Keep keep = Keep::FINGERPRINT) {
        std::filesystem::remove_all(mFolder + "/run");
        makeFolders(mFolder + "/run");
        auto run = std::make_unique<ScenarioRun>(scenario, mFolder + "/run", keep);
        run->run();
        return run;
    }

    const TemporaryFolder mTemporary{TemporaryFolder::inMemory()};
    const std::string mFolder = mTemporary.path();
};

TEST_F(SagaTest, WrittenScenarioRunsTheSame) {
    for (uint64_t seed = 1; seed <= 40; ++seed) {
        SCOPED_TRACE(seed);
        const Scenario made = randomScenario(seed);
        writeScenario(made, mFolder + "/once.yaml");
        const Scenario read = readScenario(mFolder + "/once.yaml");
        writeScenario(read, mFolder + "/twice.yaml");
        ASSERT_EQ(readFile(mFolder + "/once.yaml"), readFile(mFolder + "/twice.yaml"));
        if (seed > (kSlow ? 3 : 8)) continue;
        ASSERT_EQ(runBoots(read)->fingerprint(), runBoots(made)->fingerprint());
    }
}

// A boot with one fault.
Scenario withFault(uint64_t seed) {
    Scenario scenario = randomScenario(seed);
    scenario.boots.resize(1);
    Boot& boot = scenario.boots.front();
    Draw draw(seed, 1);
    const auto call = static_cast<Fault::Call>(draw.below(std::size(kCallNames)));
    const int64_t most = call == Fault::Call::MALLOC ? 3000 : 60;
    boot.faults = {{call, draw.between(1, draw.percent(50) ? most : most / 10), 1}};
    return scenario;
}

// Calls `work` in a process of its own.
void inProcess(const std::function<void()>& work) {
    const pid_t child = fork();
    if (child == 0) {
        work();
        _exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    ASSERT_EQ(status, 0);
}

// A record is made and taken back again, and each call fails in turn.
TEST_F(SagaTest, RulesHoldWhicheverCallFails) {
    Scenario scenario;
    scenario.files[kMarker] = "";
    Boot& boot = scenario.boots.emplace_back();
    for (const auto& [second, name] : {std::pair{58, "sys.boot_completed"},
                                       {58, "service.bootanim.exit"},
                                       {1143, "sys.vela.BOOT_COMPLETED"}}) {
        boot.changes.push_back({second * 1000, Change::Kind::SET, name, "1"});
    }
    for (const auto call : {Fault::Call::OPEN, Fault::Call::MALLOC}) {
        const int64_t most = call == Fault::Call::OPEN ? 60 : 250;
        for (int64_t nth = 1; nth <= most; nth += kSlow ? 9 : 1) {
            boot.faults = {{call, nth, 1}};
            const auto run = runBoots(scenario);
            for (const Violation& violation : run->outcomes()[0].violations) {
                ADD_FAILURE() << kCallNames[static_cast<size_t>(call)] << " " << nth << ": "
                              << violation.text;
            }
        }
    }
}

// The kernel wrote it out when it made it read-only, half a minute ago or not.
TEST_F(SagaTest, PowerCutSparesAReadOnlyPartition) {
    Scenario scenario = readScenario(lab::dataPath("scenarios/partition-read-only.yaml"));
    Boot& boot = scenario.boots[0];
    boot.changes = {{251000, Change::Kind::READ_ONLY, "/velafs", "", 0},
                    {252000, Change::Kind::POWER_CYCLE, "", "", 0}};
    boot.unsynced = Unsynced::EMPTIED;
    const auto run = runBoots(scenario);
    EXPECT_EQ(run->outcomes()[0].end, BootObservation::End::CUT_OFF);
    EXPECT_EQ(readFile(run->root().at("/velafs/SDD/bfflag.txt")), "5");
}

// The message that starts the daemon stays in the looper's list and comes again.
TEST_F(SagaTest, FirstBootThatStartsTwiceIsStillOne) {
    Scenario scenario;
    scenario.files[kHistory] = "22d";
    scenario.boots.emplace_back().faults = {{Fault::Call::MALLOC, 1, 1}};
    const auto run = runBoots(scenario);
    for (const Violation& violation : run->outcomes()[0].violations) {
        ADD_FAILURE() << violation.text;
    }
}

class FaultTest : public SagaTest, public testing::WithParamInterface<uint64_t> {};

// Which call fails doesn't depend on what the lab itself does: not on the log that it keeps, nor on
// the boots before.
TEST_P(FaultTest, HitsTheSameCallWithAndWithoutLog) {
    const uint64_t faults = kSlow ? 10 : 100;
    Shared<uint64_t> searched(faults), run(faults);
    inProcess([&] {
        for (uint64_t i = 0; i < faults; ++i) {
            searched[i] = runBoots(withFault(GetParam() + i))->fingerprint();
        }
    });
    for (uint64_t i = 0; i < faults; ++i) {
        const Scenario scenario = withFault(GetParam() + i);
        inProcess([&] { run[i] = runBoots(scenario, Keep::LOG)->fingerprint(); });
        const Fault fault = scenario.boots.front().faults.front();
        EXPECT_EQ(run[i], searched[i])
                << scenario.about << ": " << kCallNames[static_cast<size_t>(fault.call)] << " "
                << fault.nth;
    }
}

INSTANTIATE_TEST_SUITE_P(Seeds, FaultTest, testing::Values(0, 100, 200, 300, 400));

class PowerCutTest : public SagaTest, public testing::WithParamInterface<Unsynced> {};

// A walk of three stalls down to a good boot, cut off at every place that there is.
TEST_P(PowerCutTest, AfterEveryFileOperation) {
    const Scenario whole = readScenario(lab::dataPath("scenarios/recovery-walk.yaml"));
    std::vector<int64_t> operations;
    const auto uncut = runBoots(whole);
    for (const BootOutcome& boot : uncut->outcomes()) operations.push_back(boot.operations);
    constexpr int64_t kStep = kSlow ? 20 : 1;
    int64_t cuts = 0;
    for (size_t boot = 0; boot < operations.size(); ++boot) {
        for (int64_t after = 1; after <= operations[boot]; after += kStep) {
            Scenario cut = whole;
            cut.boots[boot].cutAfter = after;
            cut.boots[boot].unsynced = GetParam();
            cut.boots[boot].damageSeed = after;
            const auto run = runBoots(cut);
            ++cuts;
            ASSERT_EQ(run->outcomes()[boot].end, BootObservation::End::CUT_OFF);
            for (const BootOutcome& outcome : run->outcomes()) {
                for (const Violation& violation : outcome.violations) {
                    ADD_FAILURE() << "boot " << boot + 1 << " cut after operation " << after << ": "
                                  << violation.text;
                }
            }
        }
    }
    EXPECT_GE(cuts, 150 / kStep);
}

// What becomes of the files that were written last.
INSTANTIATE_TEST_SUITE_P(Unsynced, PowerCutTest,
                         testing::Values(Unsynced::KEPT, Unsynced::LOST, Unsynced::EMPTIED,
                                         Unsynced::CUT, Unsynced::MIXED),
                         [](const auto& kind) {
                             return kUnsyncedNames[static_cast<size_t>(kind.param)];
                         });

}  // namespace
