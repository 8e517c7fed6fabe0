// SPDX-License-Identifier: Apache-2.0
// Tests of the lab itself: wrong scenarios are refused, wrong expectations are found.

#include "lab/scenario/Scenario.h"

#include <stdlib.h>

#include <filesystem>
#include <stdexcept>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "lab/base/DataFolder.h"
#include "lab/base/Files.h"
#include "lab/base/TemporaryFolder.h"
#include "lab/run/Expectations.h"
#include "lab/scenario/ProfileScript.h"

namespace {

class ScenarioTest : public testing::Test {
protected:
    // What is wrong with a scenario file of this content.
    std::string errorOf(const std::string& content) {
        lab::writeFile(mFolder + "/s.yaml", content);
        try {
            lab::readScenario(mFolder + "/s.yaml");
        } catch (const std::runtime_error& error) {
            return error.what();
        }
        return "none";
    }

    const lab::TemporaryFolder mTemporary{testing::TempDir()};
    const std::string mFolder = mTemporary.path();
};

TEST_F(ScenarioTest, WrongFilesAreRefusedWithTheirPlace) {
    const std::pair<const char*, const char*> cases[] = {
            {"about: x\n", "1:1: expected 'boots', a list of at least one"},
            {"boots: 3\n", "1:8: expected a list of boots"},
            {"boots:\n  - profil: x\n",
             "2:5: unknown key 'profil' in a boot; did you mean 'profile'"},
            {"boots: [{fail: [{call: opne}]}]\n",
             "1:24: expected a call (one of open, write, close, remove, mkdir, chmod, popen, "
             "malloc); did you mean 'open'?"},
            {"boots: [{profile: {until: AMS:systemRedy}}]\n",
             "1:27: expected an event of the profile; did you mean 'AMS:systemReady'?"},
            {"boots: [{properties: {a: b, a: c}}]\n", "1:29: key 'a' is there twice"},
            {"boots: [{properties: {a/b: c}}]\n", "1:23: expected a name (a property's name)"},
            {"boots: [{}]\nfiles_after: {velafs/x: null}\n",
             "2:15: expected a name (an absolute path)"},
            {"boots: [{changes: [{at: 1}]}]\n", "1:20: expected what happens then: 'set', "},
            {"boots: [{changes: [{at: 1, fill: /velafs/x}]}]\n",
             "1:34: expected a path below /velafs, where"},
            {"device: {partition: 8192}\nboots: [{changes: [{at: 1, read_only: /data}]}]\n",
             "2:39: expected /velafs, where"},
            {"device: {logs: {crash: {endless: true}}}\nboots: [{}]\n",
             "1:16: expected 'space' in each"},
            {"device: {logs: {main: 268435457}}\n",
             "1:23: expected bytes (a whole number from 0 to"},
            {"device: {logs: {main: 200000000, radio: 200000000}}\nboots: [{}]\n",
             "1:16: expected log buffers of at most"},
            {"device: {partition: 1073741825}\n", "1:21: expected 'absent', or bytes (a whole"},
            {"device: {clock: 9998-01-01 00:00:00}\nboots: [{changes: [{at: 1, clock: "
             "9999999999}]}]\n",
             "2:19: expected clocks that end up in"},
            {"boots: [{profile: &p {loop: {from: AMS:systemReady, every: 1, times: 1000}}}, "
             "{profile: *p}, {profile: *p}]\n",
             "1:19: expected at most 200000 events"},
            {"device: {clock: 2026-02-30 00:00:00}\n", "1:17: expected a time of day like"},
            {"boots: &b [*b]\n", "1:12: an alias stands for itself"},
            {"about: x\n---\nabout: y\n", "2:1: expected one document"},
            {"boots:\n  - completes: soon\n", "2:16: expected when the boot completes (seconds "},
            {"boots:\n  - completes: 2\n    completes: 3\n", "3:5: key 'completes' is there twice"},
            {"boots:\n  - changes: [{set: {a: b}}]\n", "2:15: expected 'at', the time of the"},
            {"device: {partition: 12}\n", "1:21: expected 'absent', or bytes (a whole number from"},
            {"device: {clock: now}\n", "1:17: expected a time of day like 2026-11-15 11:05:18"},
            {"boots: [{profile: {stretch: 1e300}}]\n", "1:29: expected a factor above 0, up to"},
            {"boots: [{profile: {events: [{times: 1001}]}}]\n", "1:37: expected a count (a whole"},
            {"\"a\\nb\": c\n", "1:1: unknown key 'a\\x0ab' in a scenario"},
            {"boots: [\n", "2:1: expected YAML: "},
            {"[]", "1:1: expected a scenario (a map)"},
    };
    for (const auto& [content, error] : cases) {
        EXPECT_EQ(errorOf(content).rfind(mFolder + "/s.yaml:" + error, 0), 0U)
                << content << errorOf(content);
    }
}

// In a second, and without much memory.
TEST_F(ScenarioTest, WhatIsTooMuchIsRefusedAtOnce) {
    std::string laughs = "a: &a [x,x,x,x,x,x,x,x,x,x]\n";
    for (char name = 'b'; name < 'k'; ++name) {
        laughs += std::string(1, name) + ": &" + name + " [";
        for (int i = 0; i < 10; ++i) laughs.append("*").append(1, name - 1).append(",");
        laughs += "]\n";
    }
    const std::pair<std::string, const char*> cases[] = {
            {laughs, "too much to read: with what its aliases stand for"},
            {std::string(100000, '['), "nested too deep"},
            {std::string(2000000, ' '), "more than 1048576 bytes"},
    };
    for (const auto& [content, error] : cases) {
        EXPECT_NE(errorOf(content).find(error), std::string::npos) << errorOf(content);
    }
}

TEST_F(ScenarioTest, WhatNobodyReadsIsAWarning) {
    lab::writeFile(mFolder + "/s.yaml",
                   "device: {properties: {sys.boot_complete: a, ro.boot.mode: b}}\n"
                   "boots: [{changes: [{at: 1, set: {x: y}}], profile: {path: "
                   "/proc/bootproof}}]\n");
    const std::string start = mFolder + "/s.yaml:";
    EXPECT_EQ(lab::readScenario(mFolder + "/s.yaml").warnings,
              (std::vector<std::string>{start + "1:23: warning: nobody reads the property "
                                                "'sys.boot_complete'; did "
                                                "you mean 'sys.boot_completed'?",
                                        start + "2:34: warning: nobody reads the property 'x'",
                                        start + "2:59: warning: nobody reads the boot profile "
                                                "'/proc/bootproof'; did "
                                                "you mean '/proc/bootprof'?"}));
    for (const auto& file : std::filesystem::directory_iterator(lab::dataPath("scenarios"))) {
        EXPECT_EQ(lab::readScenario(file.path()).warnings, std::vector<std::string>());
    }
}

// What this prints is the text of the guide.
TEST_F(ScenarioTest, TheGuideHasEveryField) {
    const std::string guide = lab::readFile(lab::dataPath("../../docs/lab.md"));
    EXPECT_NE(guide.find(lab::scenarioReference()), std::string::npos) << lab::scenarioReference();
}

TEST_F(ScenarioTest, WrongExpectationsAreFound) {
    using lab::Record;
    const std::vector<Record> records = {
            {{"t", 0.0}, {"boot", 1}, {"kind", "boot"}, {"about", ""}, {"reason", "cold"}},
            {{"t", 1.5}, {"boot", 1}, {"kind", "log"}, {"priority", "D"}, {"text", "a \n"}},
            {{"t", 2.0}, {"boot", 1}, {"kind", "signal"}, {"signal", 3}, {"pid", 567}},
            {{"t", 3.0}, {"boot", 1}, {"kind", "history"}, {"text", "11\x16"}},
            {{"t", 4.0}, {"boot", 1}, {"kind", "exit"}, {"status", 0}},
    };
    lab::Scenario scenario;
    scenario.boots.resize(1);
    lab::Boot& boot = scenario.boots[0];
    const auto differences = [&] {
        return lab::compareWithScenario(scenario, records, {"said\n"}, mFolder);
    };
    boot.timeline = {"2 signal SIGQUIT to 567", "3 history 11\\x16", "4 exit 0"};
    boot.log = {"1.5 D a "};
    boot.errors = "said\n";
    lab::writeFile(mFolder + "/data/there", "text");
    scenario.expectedFiles = {{"/data/there", "text"}, {"/data/none", std::nullopt}};
    EXPECT_EQ(differences(), std::vector<std::string>{});

    boot.timeline->back() = "4 exit 2";
    boot.log = {"1.5 E a "};
    boot.notLogged = {"D a"};
    boot.errors = "";
    scenario.expectedFiles = {{"/data/there", std::nullopt}, {"/data/none", ""}};
    EXPECT_EQ(differences(),
              (std::vector<std::string>{"boot 1: timeline differs from line 3 on:", "  - 4 exit 2",
                                        "  + 4 exit 0", "boot 1: must not be logged: 1.5 D a ",
                                        "boot 1: not logged, or not in this order: 1.5 E a ",
                                        "boot 1: standard error: expected \"\", got \"said\\x0a\"",
                                        "file /data/none: missing",
                                        "file /data/there: must not be there"}));
}

TEST_F(ScenarioTest, ProfileIsShownUpToNow) {
    const std::string text =
            "header\n      10.500000 :  1-init             : a\n"
            "      20.000000 :  2-vold             : b\n      21.0 : OFF\n--\n";
    lab::ProfileScript script = lab::ProfileScript::parse(text, "test");
    EXPECT_EQ(script.at(10),
              "header\n        10.000000 : OFF\n"
              "----------------------------------------\n");
    EXPECT_TRUE(script.loop("a", 1, 30));
    EXPECT_TRUE(script.cutAfter("b"));
    EXPECT_FALSE(script.cutAfter("c"));
    script.add(15, "3-netd", "late");
    EXPECT_EQ(script.eventsBy(1000), 3U);
    EXPECT_NE(script.at(15).find("15.000000 :    3-netd            : late\n"), std::string::npos);
    EXPECT_THROW(lab::ProfileScript::parse("no event\n", "test"), std::runtime_error);
}

}  // namespace
