// SPDX-License-Identifier: Apache-2.0
// Tests of replays: a recorded boot gives its verdict again, a changed record is found, and a
// damaged one is refused in one line.

#include "lab/replay/Replay.h"

#include <stdlib.h>
#include <zstd.h>

#include <filesystem>
#include <functional>
#include <random>
#include <sstream>
#include <stdexcept>

#include <gtest/gtest.h>

#include "lab/base/DataFolder.h"
#include "lab/base/Files.h"
#include "lab/base/TemporaryFolder.h"
#include "lab/device/DeviceRoot.h"
#include "lab/replay/Rebuild.h"
#include "lab/run/ScenarioRun.h"
#include "report/read/Archive.h"
#include "report/read/DaemonLog.h"

namespace {

class ReplayTest : public testing::Test {
protected:
    ReplayTest() {
        mLeft = mFolder + "/left";
        mPartition = mLeft + "/root/velafs";
        mLog = mPartition + "/boot_vigil/log/android_main_log.zs";
        lab::copyDeviceTools(mFolder + "/tools");
    }

    lab::ReplayResult replayed(const std::string& partition, const std::string& profile) const {
        const lab::RebuiltRecord record = lab::readRecord(partition, profile);
        std::filesystem::remove_all(mFolder + "/run");
        return lab::replay(record, mFolder);
    }

    // Leaves what a device would after the first boots of a shipped scenario.
    void record(const std::string& name, size_t boots = 1) {
        std::filesystem::remove_all(mLeft);
        lab::makeFolders(mLeft);
        lab::Scenario scenario = lab::readScenario(lab::dataPath("scenarios/") + name + ".yaml");
        if (scenario.boots.size() > boots) scenario.boots.resize(boots);
        lab::ScenarioRun(scenario, mLeft).run();
    }

    void writeLog(const std::string& log) const {
        std::string frame(ZSTD_compressBound(log.size()), '\0');
        frame.resize(ZSTD_compress(frame.data(), frame.size(), log.data(), log.size(), 1));
        lab::writeFile(mLog, frame);
    }

    // What a replay says is different, or why there is none.
    std::string differences(const std::string& profile = "") const {
        std::string names;
        try {
            const lab::ReplayResult result = replayed(mLeft, profile);
            for (const lab::ReplayItem& item : result.items) {
                if (!item.same) names += (names.empty() ? "" : ", ") + item.name;
            }
            EXPECT_EQ(result.agrees(), names.empty());
        } catch (const std::runtime_error& error) {
            return error.what();
        }
        return names;
    }

    const lab::TemporaryFolder mTemporary{testing::TempDir()};
    const std::string mFolder = mTemporary.path();
    std::string mLeft;
    std::string mPartition;
    std::string mLog;
};

std::string replaced(std::string text, const std::string& from, const std::string& to) {
    EXPECT_NE(text.find(from), std::string::npos) << from;
    for (size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size()) {
        text.replace(at, from.size(), to);
    }
    return text;
}

class RecordedBoot : public ReplayTest,
                     public testing::WithParamInterface<
                             std::tuple<const char*, size_t, std::vector<const char*>>> {};

TEST_P(RecordedBoot, GivesTheSameVerdict) {
    const auto& [name, boots, expected] = GetParam();
    record(name, boots);
    const std::string before = lab::readFile(mLog);
    EXPECT_EQ(differences(), "");
    EXPECT_EQ(differences(mLeft + "/root/proc/bootprof"), "");
    EXPECT_EQ(lab::readFile(mLog), before);

    const lab::Scenario rebuilt = lab::readRecord(mPartition, "").boot.scenario;
    for (const char* name : {"/once.yaml", "/twice.yaml"}) {
        const bool first = name == std::string("/once.yaml");
        lab::writeScenario(first ? rebuilt : lab::readScenario(mFolder + "/once.yaml"),
                           mFolder + name);
    }
    EXPECT_EQ(lab::readFile(mFolder + "/once.yaml"), lab::readFile(mFolder + "/twice.yaml"));
    const lab::ReplayResult result = replayed(mPartition, "");
    ASSERT_EQ(result.items.size(), expected.size());
    for (size_t i = 0; i < expected.size(); ++i) {
        EXPECT_EQ(result.items[i].recorded.value_or("?"), expected[i]) << result.items[i].name;
    }
}

#define STALL "0x502564 (type 5, phase 5, detail 2, reason 100)"
INSTANTIATE_TEST_SUITE_P(
        Shipped, RecordedBoot,
        testing::Values(
                std::tuple("stall-in-system-server", 1,
                           std::vector{"250 s", STALL, "1113", "2", "the daemon", "reboot"}),
                std::tuple("stall-before-system-server", 1,
                           std::vector{"250 s", "0x401564 (type 5, phase 4, detail 1, reason 100)",
                                       "512", "1", "the daemon", "reboot"}),
                std::tuple("stall-without-pid", 1,
                           std::vector{"730 s", "0x401564 (type 5, phase 4, detail 1, reason 100)",
                                       "none named", "1", "the daemon", "reboot"}),
                std::tuple("loop-in-the-middle", 1,
                           std::vector{"40 s", "0x40a264 (type 2, phase 4, detail 10, reason 100)",
                                       "none named", "10", "the daemon", "reboot"}),
                std::tuple("first-boot-stall", 1,
                           std::vector{"490 s", STALL, "1113", "2", "the daemon", "reboot"}),
                std::tuple("animation-stays", 1,
                           std::vector{"250 s", "none", "1140", "3", "the daemon", "none"}),
                std::tuple("system-error", 1,
                           std::vector{"100 s", "0x500214 (type 2, phase 5, detail 0, reason 20)",
                                       "not asked", "not asked", "the daemon", "reboot"}),
                std::tuple("system-error-after-boot", 2,
                           std::vector{"160 s", "0x500278 (type 2, phase 5, detail 0, reason 120)",
                                       "not asked", "not asked", "the daemon", "reboot"}),
                std::tuple("reason-22", 1,
                           std::vector{"70 s", "0x700516 (type 5, phase 7, detail 0, reason 22)",
                                       "not asked", "not asked", "the daemon", "reboot"}),
                std::tuple("kel-late", 1,
                           std::vector{"250 s", STALL, "1113", "2",
                                       "the daemon, as the service had not", "reboot"}),
                std::tuple("recovery-walk", 2,
                           std::vector{"250 s", STALL, "1113", "2", "the daemon",
                                       "wait for the user to reboot"}),
                std::tuple("recovery-walk", 3,
                           std::vector{"250 s", STALL, "1113", "2", "the daemon",
                                       "factory data reset"}),
                std::tuple("recovery-walk", 4,
                           std::vector{"490 s", STALL, "1113", "2", "the daemon", "none"}),
                std::tuple("debug-switches", 1,
                           std::vector{"250 s", STALL, "1113", "2", "the daemon", "reboot"})),
        [](const auto& info) {
            std::string name = std::get<0>(info.param) + std::to_string(std::get<1>(info.param));
            name.erase(std::remove(name.begin(), name.end(), '-'), name.end());
            return name;
        });

TEST_F(ReplayTest, ChangedRecordDiffers) {
    record("stall-in-system-server");
    const std::string log = report::readArchive(mLog);
    const std::tuple<const char*, const char*, const char*> cases[] = {
            {"stuck pid = 1113", "stuck pid = 1114", "stuck pid"},
            {"phase=5, detailPhase=2", "phase=4, detailPhase=2", "error number"},
            {"checkReason Reason = 2", "checkReason Reason = 3", "reason code"},
            {"kel dont running so capture log by stuck", "type: 1; pid:1113; ext:", "captured by"},
            {"11:04:10.000   398   402", "11:04:39.000   398   402", "verdict at"},
    };
    for (const auto& [from, to, name] : cases) {
        writeLog(replaced(log, from, to));
        EXPECT_NE(differences().find(name), std::string::npos) << name << ": " << differences();
    }
    writeLog(log);
    lab::writeFile(mPartition + "/boot_vigil/recovery_flag.txt", "15d");
    EXPECT_EQ(differences(), "recovery");
    lab::writeFile(mPartition + "/boot_vigil/recoveryList", "100|51000\n");
    EXPECT_EQ(differences(), "");

    lab::ReplayResult result = {"about", {{"pid", std::nullopt, "7", true}}, {"a\x1b[2J\nb"}};
    result.items.push_back({"code", std::string(1, '\0'), "12345678", false});
    EXPECT_EQ(lab::describeReplay(result),
              (std::vector<std::string>{"about", "", "              recorded  today",
                                        "pid           not known 7",
                                        "code          \\x00      12345678  DIFFERS", "",
                                        "not known: a\\x1b[2J\\x0ab"}));
}

TEST_F(ReplayTest, WhatTheLogLostIsSaid) {
    record("stall-in-system-server");
    const std::string log = report::readArchive(mLog);
    const size_t poll = log.find("11-15 11:01:40");
    const size_t second = log.find("11-15 11:02:10");
    const std::tuple<const char*, std::string, const char*> cases[] = {
            {"the beginning", log.substr(poll), "taken as 100 s before the first one kept"},
            {"the clock's jump",
             log.substr(0, second) + replaced(log.substr(second), "11-15 11:", "12-24 17:"),
             "the time when the clock was set forward (1 times)"},
            {"a poll's last line",
             log.substr(0, poll) + replaced(log.substr(poll, second - poll), "Last Line", "Lst") +
                     log.substr(second),
             "the last event at 1 polls"},
            {"the service", replaced(log, "checkKELRunning", "check"), "the log-capture service"},
            {"a long line",
             log.substr(0, poll) + "11-15 11:01:12.000   398   402 D BOOTVIGIL_DEBUG: " +
                     std::string(100000, 'x') + "\n" + log.substr(poll),
             "what 1 lines say"},
    };
    for (const auto& [what, text, note] : cases) {
        writeLog(text);
        EXPECT_EQ(differences(), "") << what;
        std::string notes;
        for (const std::string& line : replayed(mLeft, "").notKnown) notes += line + "\n";
        EXPECT_NE(notes.find(note), std::string::npos) << what << ": " << notes;
    }
    // An archive that is cut off is read as far as it goes.
    std::string noise = log;
    for (std::mt19937 random(1); noise.size() < 1000000;) noise += std::to_string(random()) + "\n";
    writeLog(noise);
    const std::string frame = lab::readFile(mLog);
    lab::writeFile(mLog, frame.substr(0, frame.size() * 3 / 4));
    EXPECT_EQ(differences(), "");
    EXPECT_NE(replayed(mLeft, "").notKnown.back().find("is damaged (cut off)"), std::string::npos);
    // A device handles every message some milliseconds late.
    writeLog(replaced(replaced(log, ":10.000", ":10.210"), ":40.000", ":40.190"));
    EXPECT_EQ(differences(), "");
}

TEST_F(ReplayTest, WhatCannotBeReplayedIsOneLine) {
    record("stall-in-system-server");
    const std::string frame = lab::readFile(mLog);
    const std::string log = report::readArchive(mLog);
    const std::string profile = mFolder + "/profile";
    const std::tuple<std::function<void()>, std::string, std::string> cases[] = {
            {[&] { lab::writeFile(profile, "no event\n"); }, profile, profile + ": no event line"},
            {[&] { std::filesystem::remove(profile); }, profile, profile + ": no boot profile"},
            {[&] { writeLog(log.substr(0, log.find("checkStuckPid"))); }, "",
             mLog + ": no verdict of the daemon in it"},
            {[&] { writeLog("11-15 11:00:00.000   1   1 D else: x\n"); }, "",
             mLog + ": no run of the daemon in it"},
            {[&] { lab::writeFile(mLog, frame.substr(0, frame.size() / 2)); }, "",
             mLog + ": nothing of it can be read: cut off"},
            {[&] { std::filesystem::remove(mLog); }, "", mLog + ": no captured main log"},
            {[&] { std::filesystem::create_symlink(profile, mLog); }, "",
             mLog + ": a link, which is not followed"},
            {[&] { std::filesystem::remove_all(mPartition); }, "",
             mLeft + ": no partition (boot_vigil, SDD or velafs) in it"},
    };
    for (const auto& [damage, given, error] : cases) {
        damage();
        EXPECT_EQ(differences(given), error);
    }
}

TEST_F(ReplayTest, HostileRecordsAreBounded) {
    record("loop-in-the-middle");
    const std::string loop = report::readArchive(mLog);
    record("stall-in-system-server");
    const std::string log = loop + report::readArchive(mLog);
    const std::string profile = lab::readFile(mLeft + "/root/proc/bootprof");
    const std::vector<std::string> parts = {"-1",
                                            "99999999999999999999",
                                            "nan",
                                            "1e308",
                                            std::string(1, '\0'),
                                            " : ",
                                            "\n",
                                            "",
                                            "12-31 23:59:59.999",
                                            "handleMessage 2 what = 20020"};
    std::mt19937 random(1);
    const auto spoil = [&](std::string text, int times) {
        for (int i = 0; i < times && !text.empty(); ++i) {
            const size_t at = random() % text.size();
            const size_t size = random() % 8;
            text.replace(at, size, parts[random() % parts.size()]);
        }
        return text;
    };
    for (int i = 0; i < 300; ++i) {
        const auto runs = report::daemonRuns(report::daemonLines(spoil(log, 1 + i)));
        const lab::Remains remains = {spoil("35d", 2), spoil("ERR_NUM:0x502564", 2), "BFRECOVERY|",
                                      std::nullopt, std::nullopt};
        try {
            const auto rebuilt = lab::rebuildBoot(runs, remains, spoil(profile, i));
            const lab::RebuiltBoot fromLog = lab::rebuildBoot(runs, remains, std::nullopt);
            EXPECT_LE(fromLog.scenario.boots[0].profile.events().size(), 100U);
        } catch (const std::runtime_error& error) {
            EXPECT_STRNE(error.what(), "");
        }
    }
    // The whole way, where a state file makes the daemon end itself.
    lab::writeFile(mPartition + "/boot_vigil/recoveryList", "100|  |1\n");
    EXPECT_EQ(differences(), "recovery");
}

}  // namespace
