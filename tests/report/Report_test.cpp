// SPDX-License-Identifier: Apache-2.0
// Tests of the report: every shipped scenario is run once, its partition reported, and what the
// report says held against what the lab knows; then damaged partitions.

#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <random>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "lab/base/DataFolder.h"
#include "lab/base/Files.h"
#include "lab/base/TemporaryFolder.h"
#include "lab/run/Expectations.h"
#include "lab/run/ScenarioRun.h"
#include "lab/scenario/Scenario.h"
#include "report/judge/Judgement.h"
#include "report/read/Boots.h"
#include "report/read/Files.h"
#include "report/read/ReadReport.h"
#include "report/show/Json.h"
#include "report/show/Page.h"
#include "report/show/Text.h"
#include "report/show/TraceEvents.h"

namespace {

namespace fs = std::filesystem;
using lab::Record;

std::vector<std::string> scenarioFiles() {
    std::vector<std::string> files;
    for (const auto& entry : fs::directory_iterator(lab::dataPath("scenarios"))) {
        files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    return files;
}

// A scenario that was run, and what is left of it.
class RunTest : public testing::TestWithParam<std::string> {
protected:
    RunTest() : mScenario(lab::readScenario(GetParam())), mRun(mScenario, mFolder) {
        mRun.run();
        mRecords = mRun.records();
    }

    // The last text of a kind that the lab saw; empty when there was none, or it was removed.
    std::string lastOf(const char* kind, const std::string& name = "") const {
        std::string text;
        for (const Record& record : mRecords) {
            if (record["kind"] != kind || record.value("name", "") != name) continue;
            text = record.value("text", "");
        }
        return text;
    }

    const lab::TemporaryFolder mTemporary{lab::TemporaryFolder::inMemory()};
    const std::string mFolder = mTemporary.path();
    const lab::Scenario mScenario;
    lab::ScenarioRun mRun;
    std::vector<Record> mRecords;
};

// Green is for a device whose boot completed after all that went wrong, and for no other.
TEST_P(RunTest, StateAgreesWithTheLab) {
    bool open = false;       // something hung, and no boot has completed since
    bool completed = false;  // the last boot has, and nothing has hung since
    bool harmed = false;     // by a power cut, or before the first boot
    for (const Record& record : mRecords) {
        const std::string text = record["kind"] == "log" ? record.value("text", "") : "";
        if (record["kind"] == "boot") completed = false;
        if (text.find("errNotifyWithReason") == 0 || text.find("checkReason Reason = 3,") == 0) {
            open = true;
            completed = false;
        } else if (text.find("boot finished, enter launcher.") == 0) {
            open = false;
            completed = true;
        }
    }
    for (const lab::Boot& boot : mScenario.boots) {
        harmed = harmed || boot.unsynced != lab::Unsynced::KEPT;
    }
    for (const auto& [path, content] : mScenario.files) {
        harmed = harmed || path.find("/velafs/SDD/") == 0;
    }
    const auto isGreen = [](report::State state) {
        return state == report::State::NO_FAILURE || state == report::State::CURED;
    };
    const report::Report run = report::readReport(mFolder);
    const report::Judgement judged = report::judge(run);
    EXPECT_FALSE(open && isGreen(judged.state)) << judged.sentence;
    EXPECT_TRUE(!completed || harmed || isGreen(judged.state)) << judged.sentence;
    // the partition alone never says more, and is silent only where nothing could be written
    const report::Report left = report::readReport(mFolder + "/root/velafs");
    const report::Judgement own = report::judge(left);
    const bool nothing = left.notes.empty() && left.failures.empty();
    EXPECT_TRUE(own.state == judged.state || own.state == report::State::UNCLEAR || nothing)
            << own.sentence;
    // what is pointed at is there
    const std::string limits = lab::readFile(lab::dataPath("../../docs/known-limits.md"));
    for (const report::Limit& limit :
         judged.answers ? judged.answers->next.limits : std::vector<report::Limit>()) {
        const std::string anchor = limit.link.substr(limit.link.find('#') + 1);
        EXPECT_NE(limits.find("<a id=\"" + anchor + "\">"), std::string::npos) << anchor;
    }
    for (const report::Quote& quote :
         own.answers ? own.answers->why.quotes : std::vector<report::Quote>()) {
        const std::string path =
                mFolder + "/root/velafs" +
                (quote.place.file[0] == '/' ? quote.place.file
                                            : "/boot_vigil/log/" + quote.place.file + ".zs");
        const std::string log =
                quote.place.file[0] == '/' ? lab::readFile(path) : report::readArchive(path);
        const std::string line = report::linesOf(log).at(quote.place.line - 1);
        const bool isOfDaemon = line.find("BOOTVIGIL_DEBUG: ") != std::string::npos;
        EXPECT_TRUE(isOfDaemon || line.find("TIME:") == 0 ||
                    quote.place.file == "/boot_vigil/reason.txt")
                << line;
    }
}

TEST_P(RunTest, ReportAgreesWithTheLab) {
    for (const lab::Boot& boot : mScenario.boots) {
        if (boot.unsynced != lab::Unsynced::KEPT) GTEST_SKIP() << "a power cut damaged the files";
    }
    const report::Report report = report::readReport(mFolder);
    EXPECT_EQ(report.flag.value_or(""), lastOf("flag"));
    for (const report::Note& upload : report.uploads) {
        EXPECT_EQ(upload.text, lastOf("upload", upload.file));
    }
    EXPECT_EQ(report.uploads.size(), !lastOf("upload", "boot_vigil").empty() +
                                             !lastOf("upload", "recovery_record").empty());
    // histories that a scenario brings along are no doing of the daemon's
    if (!lastOf("history").empty()) {
        EXPECT_EQ(report.recovery.history, lastOf("history"));
    }
    std::map<std::string, Record> captures;
    std::string lastRecord;
    for (const Record& record : mRecords) {
        if (record["kind"] == "captured") captures[record["name"]] = record;
        if (record["kind"] == "record" && !record.contains("rewritten"))
            lastRecord = record["text"];
    }
    for (const report::Capture& capture : report.captures) {
        const Record& seen = captures[capture.name];
        EXPECT_EQ(capture.info.content, seen.value("bytes", -1)) << capture.name;
        EXPECT_EQ(capture.info.error, seen.value("error", "")) << capture.name;
    }
    if (!report.failures.empty() && !lastRecord.empty()) {
        const std::string number = report::formatErrorNumber(report.failures.back().number);
        const bool reverted = mScenario.path.find("setup-wizard") != std::string::npos;
        EXPECT_TRUE(reverted || lastRecord.find(number + ";") != std::string::npos) << lastRecord;
    }
    EXPECT_EQ(report.boots.size(), mScenario.boots.size());

    // what the captured log tells is what the lab saw of that boot until then
    const report::Report onDevice = report::readReport(mFolder + "/root/velafs");
    if (onDevice.boots.empty()) return;
    const report::Boot& told = onDevice.boots.back();
    const auto same = [&](const report::Boot& boot) {
        return boot.begin == told.begin && boot.events.size() >= told.events.size() &&
               std::equal(told.events.begin(), told.events.end(), boot.events.begin(),
                          [](const report::Event& a, const report::Event& b) {
                              return a.t == b.t && a.kind == b.kind && a.text == b.text;
                          });
    };
    EXPECT_TRUE(std::any_of(report.boots.begin(), report.boots.end(), same));
}

TEST_P(RunTest, EveryChangedExpectationIsFound) {
    std::vector<std::string> errors;
    for (const lab::BootOutcome& outcome : mRun.outcomes()) errors.push_back(outcome.errors);
    lab::Scenario changed = mScenario;
    const auto expectFound = [&](const std::string& what) {
        std::string all;
        for (const std::string& line :
             lab::compareWithScenario(changed, mRecords, errors, mRun.root().path())) {
            all += line + "\n";
        }
        EXPECT_NE(all.find(what), std::string::npos) << "not named: " << what << "\n" << all;
    };
    EXPECT_EQ(lab::compareWithScenario(changed, mRecords, errors, mRun.root().path()),
              std::vector<std::string>{});
    for (lab::Boot& boot : changed.boots) {
        ASSERT_TRUE(boot.timeline);
        for (auto* lines : {&*boot.timeline, &boot.log}) {
            for (std::string& line : *lines) {
                const std::string before = line;
                line.back() = line.back() == '~' ? '!' : '~';
                expectFound(line);
                line = before;
            }
        }
    }
    for (auto& [path, content] : changed.expectedFiles) {
        const auto before = content;
        content = content ? std::optional<std::string>() : "changed";
        expectFound(path);
        content = before;
    }
}

TEST_P(RunTest, IsTheSameTwice) {
    const lab::TemporaryFolder temporary{lab::TemporaryFolder::inMemory()};
    const std::string& folder = temporary.path();
    lab::ScenarioRun(mScenario, folder).run();
    EXPECT_EQ(lab::readFile(folder + "/run.jsonl"), lab::readFile(mFolder + "/run.jsonl"));
}

INSTANTIATE_TEST_SUITE_P(Scenario, RunTest, testing::ValuesIn(scenarioFiles()),
                         [](const testing::TestParamInfo<std::string>& info) {
                             std::string name = fs::path(info.param).stem();
                             std::replace(name.begin(), name.end(), '-', '_');
                             return name;
                         });

class DamageTest : public testing::Test {
protected:
    DamageTest() {
        const lab::Scenario scenario =
                lab::readScenario(lab::dataPath("scenarios/first-boot-stall.yaml"));
        lab::ScenarioRun run(scenario, mFolder + "/run");
        run.run();
        fs::copy(mFolder + "/run/root/velafs", mPartition, fs::copy_options::recursive);
        lab::writeFile(mPartition + "/boot_vigil/recovery_flag.txt", "22d");
        lab::writeFile(mPartition + "/boot_vigil/recoveryList", "100|12500\n");
        lab::writeFile(mPartition + "/boot_vigil/bfEnable", "BfRecover=YES\n");
        for (const auto& entry : fs::recursive_directory_iterator(mPartition)) {
            if (entry.is_regular_file()) mArtifacts.push_back(entry.path());
        }
    }

    // Every form comes out, and the file is named as damaged if it must be.
    void expectReport(const std::string& file, bool mustBeNamed, const std::string& how) {
        const report::Report read = report::readReport(mPartition);
        EXPECT_TRUE(read.isPartition) << file << how;
        const std::string name = file.substr(mPartition.size());
        const bool named = std::any_of(read.problems.begin(), read.problems.end(),
                                       [&](const auto& problem) { return problem.file == name; });
        if (mustBeNamed) {
            EXPECT_TRUE(named) << name << " " << how;
        }
        EXPECT_NE(toText(read), "");
        EXPECT_NE(report::dump(toJson(read)), "");
        EXPECT_NE(toTraceEvents(read), "");
    }

    const lab::TemporaryFolder mTemporary;
    const std::string mFolder = mTemporary.path();
    std::string mPartition = mFolder + "/velafs";
    std::vector<std::string> mArtifacts;
};

TEST_F(DamageTest, TruncatedAnywhere) {
    for (const std::string& file : mArtifacts) {
        const std::string whole = lab::readFile(file);
        const bool archive = fs::path(file).extension() == ".zs";
        for (size_t size = 0; size < whole.size(); size += 64) {
            lab::writeFile(file, whole.substr(0, size));
            const bool record = file.find("bfRecord.txt") != std::string::npos;
            const bool cutOff = size > 0 && (archive || (record && whole[size - 1] != '\n'));
            expectReport(file, cutOff, "at " + std::to_string(size));
        }
        lab::writeFile(file, whole);
    }
}

TEST_F(DamageTest, ReplacedOrFilledWithNoise) {
    std::mt19937 random(1);
    for (const std::string& file : mArtifacts) {
        const std::string whole = lab::readFile(file);
        const bool checked = fs::path(file).extension() == ".zs" ||
                             file.find("bfRecord.txt") != std::string::npos;
        for (const size_t size : {size_t{1}, size_t{100}, size_t{3000000}}) {
            std::string noise(size, '\0');
            std::generate(noise.begin(), noise.end(), [&] { return static_cast<char>(random()); });
            lab::writeFile(file, noise);
            expectReport(file, checked, "noise");
        }
        fs::remove(file);
        expectReport(file, false, "missing");
        fs::create_directory(file);
        expectReport(file, true, "a folder");
        fs::remove(file);
        lab::writeFile(file, whole);
    }
}

TEST_F(DamageTest, ProgramSaysHowItWent) {
    const auto run = [](const std::string& arguments) {
        const int status = system((REPORT_PROGRAM " " + arguments + " >/dev/null 2>&1").c_str());
        return WEXITSTATUS(status);
    };
    fs::create_directory(mFolder + "/empty");
    EXPECT_EQ(run(mPartition), 0);
    EXPECT_EQ(run(mFolder), 0);  // it looks for velafs below
    EXPECT_EQ(run("--json " + mPartition + " " + mFolder + "/run"), 0);
    EXPECT_EQ(run(mFolder + "/empty"), 1);
    EXPECT_EQ(run(mFolder + "/none"), 1);
    EXPECT_EQ(run("--json " + mPartition + " " + mFolder + "/none"), 1);
    EXPECT_EQ(run(""), 2);
    EXPECT_EQ(run("--unknown " + mPartition), 2);
    EXPECT_EQ(run(mPartition + " " + mPartition), 2);
    EXPECT_EQ(run(mPartition + " --html /none/page.html"), 1);
    EXPECT_EQ(run(mPartition + " --html " + mFolder + "/empty"), 1);
    EXPECT_EQ(run(mPartition + " --compare " + mPartition + "/SDD/bfRecord.txt"), 1);
    EXPECT_EQ(run(mPartition + " --html " + mFolder + "/page.html"), 0);
}

TEST_F(DamageTest, PageHoldsHostileLogsAsText) {
    lab::writeFile(mFolder + "/log", "</script><script>alert(1)</script>\r\n<!--\n");
    ASSERT_EQ(system(("zstd -qf --check " + mFolder + "/log -o " + mPartition +
                      "/boot_vigil/log/android_main_log.zs")
                             .c_str()),
              0);
    lab::writeFile(mPartition + "/SDD/bf_upload/boot_vigil", "</script><b>");
    report::writePage(report::readReport(mPartition), mFolder + "/page.html");
    const std::string page = lab::readFile(mFolder + "/page.html");
    EXPECT_EQ(page.find("<script>alert"), std::string::npos);
    EXPECT_EQ(page.find("<b>"), std::string::npos);
    EXPECT_NE(page.find("\x02/script>\x02script>alert(1)\x02/script>\x03\n\x02!--\n"),
              std::string::npos);
}

TEST(Text, LongAndHostileLinesStayLines) {
    report::Report read;
    read.isPartition = true;
    read.notes = {{"pmic_info", std::string(5000, 'x')}, {"reason.txt", "\xc2\x9b\xc2\xa0\x1b"}};
    const std::string text = toText(read);
    EXPECT_NE(text.find("x…\n  reason.txt: \\xc2\\x9b\xc2\xa0\\x1b\n"), std::string::npos) << text;
}

TEST(Boots, NumbersBeyondAnyRunAreBroken) {
    size_t broken = 0;
    const std::vector<report::Boot> boots = report::bootsOfRunLog(
            "{\"t\":0,\"kind\":\"boot\",\"boot\":1,\"clock\":1e67}\n"
            "{\"t\":0,\"kind\":\"boot\",\"boot\":2,\"clock\":1794740400}\n"
            "{\"t\":-1e300,\"kind\":\"end\",\"why\":\"x\"}\n",
            broken);
    EXPECT_EQ(broken, 2U);
    ASSERT_EQ(boots.size(), 1U);
    EXPECT_EQ(boots[0].begin, "11-15 11:00:00.000");
}

TEST(Boots, RoundBeginsWhereAMilestoneComesAgainAfterLaterOnes) {
    std::string log = R"({"t":0,"kind":"boot","boot":1})";
    int t = 0;
    // the last of the table comes before AMS:systemReady, and one comes twice in each round
    for (const char* name :
         {"Zygote:Preload Start", "Zygote:Preload End", "Zygote:Preload End",
          "Android:SysServerInit_END", "AMS:systemReady", "Zygote:Preload Start",
          "Zygote:Preload End", "Android:SysServerInit_END", "AMS:systemReady"}) {
        log += "\n{\"t\":" + std::to_string(++t) + R"(,"kind":"event","name":")" + name + "\"}";
    }
    size_t broken = 0;
    const std::vector<report::Boot> boots = report::bootsOfRunLog(log, broken);
    ASSERT_EQ(boots.size(), 1U);
    EXPECT_EQ(boots[0].rounds, std::vector<double>{6});
    EXPECT_EQ(boots[0].milestones.size(), 4U);
}

TEST(Boots, CompareTakesTheFirstOfEachMilestone) {
    const report::Comparison good = report::readComparison(lab::dataPath("profiles/healthy.txt"));
    ASSERT_EQ(good.milestones.size(), 11U);
    EXPECT_EQ(good.milestones[2].name, "Zygote:Preload End");
    EXPECT_NEAR(good.milestones[2].t, 7.970455, 1e-6);
}

TEST(Boots, RunsBeginWithTheDaemonOrWhenTheClockGoesBack) {
    const std::string log =
            "11-15 11:00:40.000   398   402 D BOOTVIGIL_DEBUG: handleMessage 2 what = 20020\n"
            "11-15 11:00:40.500   398   402 D OtherTag: BOOTVIGIL_DEBUG: no\n"
            "garbage BOOTVIGIL_DEBUG: no\n"
            "11-15 11:00:41.250   398   402 E BOOTVIGIL_DEBUG: bootvigil exit.\n"
            "11-15 11:00:01.000   398   398 D BOOTVIGIL_DEBUG: handleMessage 2 what = 20020\n"
            "12-31 23:59:59.000   398   398 D BOOTVIGIL_DEBUG: BOOTVIGIL boot_vigil_service start "
            "\n"
            "12-31 23:59:59.500   398   402 D BOOTVIGIL_DEBUG: try to reboot";
    const std::vector<report::Boot> boots = report::bootsOfLines(report::daemonLines(log));
    ASSERT_EQ(boots.size(), 3U);
    EXPECT_EQ(boots[0].title, "boot 1 (its beginning was not kept)");
    ASSERT_EQ(boots[0].events.size(), 2U);
    EXPECT_EQ(boots[0].events[1].t, 1.25);
    EXPECT_EQ(boots[2].title, "boot 3");
    EXPECT_EQ(boots[2].events[1].kind, "request");
}

}  // namespace
