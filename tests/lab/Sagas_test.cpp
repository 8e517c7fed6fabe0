// SPDX-License-Identifier: Apache-2.0
// Tests of random scenarios: what is made up can be written down and run again, and power cuts.

#include "lab/run/ScenarioRun.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <memory>

#include "lab/base/DataFolder.h"
#include "lab/base/Files.h"
#include "lab/base/TemporaryFolder.h"
#include "lab/random/RandomScenario.h"
#include "lab/scenario/Scenario.h"

namespace {

using namespace lab;

class SagaTest : public testing::Test {
protected:
    std::unique_ptr<ScenarioRun> runBoots(const Scenario& scenario) {
        std::filesystem::remove_all(mFolder + "/run");
        makeFolders(mFolder + "/run");
        auto run = std::make_unique<ScenarioRun>(scenario, mFolder + "/run", Keep::FINGERPRINT);
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
        if (seed > 8) continue;
        ASSERT_EQ(runBoots(read)->fingerprint(), runBoots(made)->fingerprint());
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

class PowerCutTest : public SagaTest, public testing::WithParamInterface<Unsynced> {};

// A walk of three stalls down to a good boot, cut off at every place that there is.
TEST_P(PowerCutTest, AfterEveryFileOperation) {
    const Scenario whole = readScenario(lab::dataPath("scenarios/recovery-walk.yaml"));
    std::vector<int64_t> operations;
    const auto uncut = runBoots(whole);
    for (const BootOutcome& boot : uncut->outcomes()) operations.push_back(boot.operations);
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    constexpr int64_t kStep = 20;  // a boot takes ten times as long, and the others have them all
#else
    constexpr int64_t kStep = 1;
#endif
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
