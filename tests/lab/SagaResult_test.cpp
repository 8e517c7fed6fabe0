// SPDX-License-Identifier: Apache-2.0
// Tests of a search's result: which exit status comes first, and how parts add up.

#include "lab/random/SagaResult.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "lab/base/Files.h"
#include "lab/base/TemporaryFolder.h"

namespace {

using namespace lab;

SagaFinding finding(int status, uint64_t seed) {
    return {status, seed, 1, "40.000 s: something"};
}

TEST(SagaResultTest, WorstStatusComesFirst) {
    SagaResult result;
    EXPECT_EQ(result.status(), 0);
    result.notRun = 1;
    EXPECT_EQ(result.status(), kSagaNotRun);
    // From the mildest to the worst, each of which comes before all earlier ones.
    uint64_t seed = 1;
    for (const int status :
         {kSagaNotRepeated, kSagaDifferent, kSagaRule, kSagaLiveness, kSagaCrash}) {
        result.add(finding(status, ++seed));
        result.add(finding(status, seed + 100));
        EXPECT_EQ(result.status(), status);
        EXPECT_EQ(result.findings.front().seed, seed);
    }
    // One crash that does not repeat leaves the other; then the next kind is the worst.
    result.worstDoesNotRepeat();
    EXPECT_EQ(result.findings.front().seed, seed + 100);
    result.worstDoesNotRepeat();
    EXPECT_EQ(result.status(), kSagaLiveness);
    const std::vector<std::string> said = result.describe();
    EXPECT_EQ(said[said.size() - 1],
              "10 scenarios broke a rule: 2 liveness, 2 rule, 2 different, 4 not repeated");
    EXPECT_EQ(said[said.size() - 2], "1 scenarios could not be run");
}

class SagaPartsTest : public testing::Test {
protected:
    std::string write(const std::string& name, const SagaResult& result) {
        writeResult(result, mFolder.path() + "/" + name);
        return mFolder.path() + "/" + name;
    }
    // What merging says is wrong.
    static std::string refusal(const std::vector<std::string>& paths) {
        try {
            mergeResults(paths);
        } catch (const std::runtime_error& error) {
            return error.what();
        }
        return "";
    }
    static SagaResult part(uint64_t part) {
        SagaResult result;
        result.version = "f3f4a2d";
        result.count = 10;
        result.part = part;
        result.parts = 3;
        result.bootsRun = 10 * part;
        result.seconds = 0.5;
        return result;
    }

    const TemporaryFolder mFolder;
};

TEST_F(SagaPartsTest, EachScenarioIsOfOnePart) {
    uint64_t next = 0;
    for (uint64_t i = 1; i <= 3; ++i) {
        EXPECT_EQ(part(i).first(), next);
        next = part(i).last();
    }
    EXPECT_EQ(next, 10U);
}

TEST_F(SagaPartsTest, AddUp) {
    SagaResult second = part(2);
    second.add(finding(kSagaRule, UINT64_MAX));
    SagaResult third = part(3);
    third.notRun = 2;
    third.add(finding(kSagaCrash, 9));
    const SagaResult sum =
            mergeResults({write("c", third), write("a", part(1)), write("b", second)});
    EXPECT_EQ(sum.bootsRun, 60U);
    EXPECT_EQ(sum.status(), kSagaCrash);
    ASSERT_EQ(sum.findings.size(), 2U);
    EXPECT_EQ(sum.findings[0].seed, 9U);
    EXPECT_EQ(sum.findings[1].seed, UINT64_MAX);
    EXPECT_EQ(sum.notRun, 2U);
}

TEST_F(SagaPartsTest, AreRefusedUnlessWholeAndOfOneSearch) {
    const std::string one = write("1", part(1)), two = write("2", part(2));
    const std::string copy = write("copy", part(2));
    SagaResult changed = part(3);
    changed.version = "0000000";
    const std::string foreign = write("foreign", changed);
    changed = part(3);
    changed.broken[0] = 1;  // and no finding
    const std::string damaged = write("damaged", changed);
    writeFile(mFolder.path() + "/text", "{\"schema\": \"bootvigil-sagas/1\", \"seed\": -1}");
    writeFile(mFolder.path() + "/deep", std::string(60000, '['));

    EXPECT_EQ(refusal({one, two}), "shard 3 of 3 is missing");
    EXPECT_EQ(refusal({one, two, copy}), copy + ": shard 2 is there twice");
    EXPECT_EQ(refusal({one, two, foreign}), foreign + ": of another search than " + one);
    for (const std::string& path : {damaged, mFolder.path() + "/text", mFolder.path() + "/deep"}) {
        EXPECT_EQ(refusal({path}).rfind(path + ": no result of a search: ", 0), 0U)
                << refusal({path});
    }
}

}  // namespace
