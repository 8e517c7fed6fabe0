// SPDX-License-Identifier: Apache-2.0
// What an override list leads to, as the daemon does it, the lab's rules expect it and the report
// tells it.

#include <stdlib.h>

#include <filesystem>

#include <gtest/gtest.h>

#include "lab/base/DataFolder.h"
#include "lab/base/Files.h"
#include "lab/base/TemporaryFolder.h"
#include "lab/run/ScenarioRun.h"
#include "lab/scenario/Scenario.h"
#include "report/read/Recovery.h"

namespace {

constexpr int kNone = 0;
constexpr int kDies = -1;

std::string nextAfter(int mode) {
    if (mode == kNone) return "nothing more: the list is exhausted";
    if (mode == kDies) return "nothing: the daemon dies of a blank field in the list";
    return report::modeName(mode);
}

// The mode of the step that the daemon takes in a boot that stalls, for reason 100.
int stepTaken(const std::string& list) {
    const lab::TemporaryFolder folder;
    lab::Scenario scenario = lab::readScenario(lab::dataPath("scenarios/recovery-override.yaml"));
    scenario.boots.resize(1);
    scenario.files["/velafs/boot_vigil/recoveryList"] = list;
    lab::ScenarioRun run(scenario, folder.path());
    run.run();
    const lab::BootOutcome& outcome = run.outcomes().front();
    for (const lab::Violation& violation : outcome.violations) ADD_FAILURE() << violation.text;
    if (outcome.end == lab::BootObservation::End::KILLED) return kDies;
    const std::string path = run.root().path() + "/velafs/boot_vigil/recovery_flag.txt";
    return std::filesystem::exists(path) ? atoi(lab::readFile(path).c_str() + 1) : kNone;
}

TEST(OverrideList, DaemonRulesAndReportReadItAlike) {
    const struct {
        const char* list;
        int mode;
    } kCases[] = {
            {"", kNone},
            {"\n\n", kNone},
            {"100|12500", 1},
            {"100|12500\n100|51000\n", 5},  // the last one counts
            {"100|21000\n20|51000\n", 2},
            {"100||12500", 1},  // empty fields do not count
            {"|100|12500", 1},
            {"||100||51000||", 5},
            {"100", kNone},
            {"100|", kNone},
            {"|12500", kNone},
            {"100|1250", kNone},  // too short, and yet taken
            {"100|51000\n100|125\n", kNone},
            {"100|125000|51000", 1},
            {" 100 | 21000", 2},
            {"100 |  512  ", 5},  // as many blanks stay behind as were in front
            {"100|  512 ", kNone},
            {"100x|51000", 5},
            {"+100|51000", 5},
            {"0100|51000", 5},
            {"x100|51000", kNone},
            {"100,51000", kNone},
            {"100|02500", kNone},
            {"100|31000", 3},
            {"100|.1000", kNone},
            {"100|\xe9xxxx", 0xe9 - '0'},
            {"100|12500\r\n", 1},
            {"100|  |12500", kDies},
            {"100|12500\n7|  |1", kDies},
            {"7| \n100|12500", 1},  // not reached
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.list);
        EXPECT_EQ(stepTaken(c.list), c.mode);
        EXPECT_EQ(report::readRecovery({{}, {}, c.list}, 100).next, nextAfter(c.mode));
    }
}

}  // namespace
