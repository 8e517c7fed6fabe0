// SPDX-License-Identifier: Apache-2.0
// Tests of random scenarios: what is made up can be written down and run again, and power cuts.

#include "Saga.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "Files.h"
#include "RandomScenario.h"
#include "ScenarioWriter.h"

namespace {

using namespace lab;

class SagaTest : public testing::Test {
protected:
    SagaTest() {
        std::string folder = testing::TempDir() + "bootvigil-saga-XXXXXX";
        if (mkdtemp(folder.data()) == nullptr) failWithErrno("cannot make", folder);
        mFolder = folder;
    }
    ~SagaTest() override {
        std::filesystem::remove_all(mFolder);
    }

    uint64_t fingerprint(const Scenario& scenario) {
        std::filesystem::remove_all(mFolder + "/run");
        makeFolders(mFolder + "/run");
        Saga saga(scenario, mFolder + "/run", Keep::FINGERPRINT);
        saga.run();
        return saga.fingerprint();
    }

    std::string mFolder;
};

TEST_F(SagaTest, WrittenScenarioRunsTheSame) {
    for (uint64_t seed = 1; seed <= 40; ++seed) {
        const Scenario made = randomScenario(seed);
        const std::string path = mFolder + "/scenario.yaml";
        writeScenario(made, path);
        ASSERT_EQ(fingerprint(readScenario(path)), fingerprint(made)) << "seed " << seed;
    }
}

}  // namespace
