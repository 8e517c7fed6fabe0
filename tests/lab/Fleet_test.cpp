// SPDX-License-Identifier: Apache-2.0
// Tests of the simulated fleet: what its good boots leave, and what a regression changes.

#include "lab/fleet/Life.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "lab/base/Sanitizers.h"
#include "lab/base/DataFolder.h"
#include "lab/base/DevicePaths.h"
#include "lab/base/Files.h"
#include "lab/base/TemporaryFolder.h"
#include "lab/fleet/Market.h"
#include "lab/run/ScenarioRun.h"

namespace {

using namespace lab;

class FleetTest : public testing::Test {
protected:
    // What the boots leave on the partition, by path.
    TextMap partitionAfter(const Scenario& scenario) {
        std::filesystem::remove_all(mFolder);
        makeFolders(mFolder);
        ScenarioRun run(scenario, mFolder, Keep::TRACE);
        run.run();
        TextMap files;
        const std::string partition = run.root().at(kPartition);
        for (const auto& entry : std::filesystem::recursive_directory_iterator(partition)) {
            const bool regular = entry.is_regular_file();
            files[entry.path()] = regular ? readFile(entry.path()) : "";
        }
        return files;
    }

    const TemporaryFolder mTemporary{TemporaryFolder::inMemory()};
    const std::string mFolder = mTemporary.path() + "/run";
};

Boot goodBoot() {
    Boot boot;
    for (const char* name : kCompleted) {
        boot.changes.push_back({20000, Change::Kind::SET, name, "1"});
    }
    boot.changes.push_back({600000, Change::Kind::END, "", ""});
    return boot;
}

// The months of good boots after a failure are not run.
TEST_F(FleetTest, GoodBootsLeaveTheFilesOfACuredFailureAlone) {
    const std::vector<Regression> none;
    const Lives lives(1, 1000, none);
    int devices = 0;
    for (uint64_t number = 0; devices < (kSanitized ? 4 : 15); ++number) {
        const Life life = lives.life(number);
        if (life.troubles.empty() || life.troubles.back().cure == Cure::NOTHING) continue;
        if (life.troubles.back().at > life.identity.pulled - 4 * kDay) continue;
        SCOPED_TRACE(number);
        ++devices;
        Scenario scenario = lives.scenario(number, life);
        const TextMap once = partitionAfter(scenario);
        for (int i = 2; i > 0; --i) {
            scenario.boots.push_back(goodBoot());
            scenario.boots.back().clock = life.identity.pulled - i * kDay;
        }
        EXPECT_EQ(partitionAfter(scenario), once);
    }
}

// What this prints is the text of the guide.
TEST_F(FleetTest, TheGuideHasEveryFieldOfARegression) {
    const std::string guide = readFile(dataPath("../../docs/lab.md"));
    EXPECT_NE(guide.find(regressionReference()), std::string::npos) << regressionReference();
    EXPECT_EQ(readRegressions(dataPath("fleet/package-scan.yaml")).size(), 1U);
}

// Whatever one is seen on, it runs a software that has the regression from then on.
TEST_F(FleetTest, ARegressionBeginsWithItsSoftware) {
    const std::vector<Regression> regressions =
            readRegressions(dataPath("fleet/package-scan.yaml"));
    const Lives lives(1, 5000, regressions);
    int affected = 0;
    for (uint64_t number = 0; number < 5000; ++number) {
        const Life life = lives.life(number);
        if (life.regressions.empty()) continue;
        ++affected;
        EXPECT_EQ(life.identity.country + " " + life.identity.software, "NG 3.2");
        const auto hang = std::find_if(life.troubles.begin(), life.troubles.end(),
                                       [](const Trouble& trouble) {
                                           return trouble.event == "Android:PMS_scan_START";
                                       });
        ASSERT_NE(hang, life.troubles.end());
        EXPECT_GE(hang->at, life.identity.since.back());
        EXPECT_LT(hang->at, life.identity.pulled);
    }
    EXPECT_EQ(affected, 25);
}

}  // namespace
