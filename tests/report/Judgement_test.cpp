// SPDX-License-Identifier: Apache-2.0
// Tests of the judgement: what is left on a partition, and the state and the answers that it leads
// to; then a partition of which more and more is lost.

#include <algorithm>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "lab/base/DataFolder.h"
#include "lab/base/Files.h"
#include "lab/base/TemporaryFolder.h"
#include "lab/run/ScenarioRun.h"
#include "lab/scenario/Scenario.h"
#include "report/judge/Judgement.h"
#include "report/read/ReadReport.h"
#include "report/read/Times.h"
#include "report/show/Text.h"
#include "report/show/TraceEvents.h"

namespace {

namespace fs = std::filesystem;

// A record line; `at` is a time of day.
std::string record(const std::string& at, const std::string& number) {
    const bool stall = number == "0x502564";
    return "TIME:Sun Nov 15 " + at + " 2026;    ERR_NUM:" + number +
           ";    ERR_INFO:" + (stall ? "1113-system_server  | AMS:systemReady" : "") +
           ";    ERR_EXPINFO:Country(0)  ;\n";
}

std::string captured(const std::string& at) {
    return "Sun Nov 15 " + at + " 2026  USER capture log\n";
}

const std::string kFailed = record("11:04:10", "0x502564");
const std::string kAgain = record("11:10:00", "0x502564");
const std::string kCured = record("11:20:00", "0xf00002");
const std::string kCaptured = captured("11:04:12");
constexpr const char* kFolder = "<a folder>";

// Files by these names are what the daemon leaves.
const std::map<std::string, std::string> kPaths = {
        {"record", "SDD/bfRecord.txt"},
        {"flag", "SDD/bfflag.txt"},
        {"upload", "SDD/bf_upload/recovery_record"},
        {"code", "boot_vigil/reason.txt"},
        {"history", "boot_vigil/recovery_flag.txt"},
        {"list", "boot_vigil/recoveryList"},
        {"switch", "boot_vigil/bfEnable"},
        {"hwinfo", "boot_vigil/mem_hwinfo"},
        {"journal", "boot_vigil/log/info"},
        {"backup", "SDD/bfRecord_backup.txt"},
};

struct Case {
    const char* about;
    std::map<std::string, std::string> files;
    const char* state;
    const char* rule;
    std::vector<const char*> says;  // parts of the text for a person, line breaks apart
};

const std::vector<Case> kCases = {
        {"nothing but folders", {}, "no-failure", "no-failure", {"nothing contradicts that"}},
        {"a failure whose reboot is remembered",
         {{"record", kFailed},
          {"flag", "5"},
          {"history", "11d"},
          {"code", "2"},
          {"journal", kCaptured}},
         "failing",
         "open",
         {"system_server (pid 1113): nothing after AMS:systemReady; never reached AMS:AMS_READY",
          "the daemon's log of it was not captured /SDD/bfRecord.txt:1",
          "SIGQUIT to the stuck process; logs captured by the daemon; reboot, as its history says",
          "not yet", "leads to: wait for the user", "#slow-boots"}},
        {"a second one, and only the first step was taken",
         {{"record", kFailed + kAgain}, {"flag", "5"}, {"history", "11d"}, {"journal", kCaptured}},
         "failing",
         "open",
         {"action: reboot, by the history", "no action: the daemon seems to have",
          "2 failures in a row", "#capture-ends-daemon"}},
        {"steps of failures that are not recorded",
         {{"record", kFailed}, {"flag", "5"}, {"history", "22d"}},
         "failing",
         "open",
         {"wait for the user to reboot, as its history says", "#waiting"}},
        {"the boot after a reset",
         {{"record",
           kFailed + kAgain + record("11:15:10", "0x502564") + record("11:24:40", "0x502564")},
          {"flag", "5"},
          {"history", "35d"}},
         "failing",
         "open",
         {"factory data reset, by the history", "exhausted in the first boot after a reset",
          "reboot in any later one"}},
        {"an empty history",
         {{"record", kFailed}, {"flag", "5"}, {"history", ""}},
         "blocked",
         "blocked",
         {"cannot go on: the history is empty", "no action: the history is empty", "never",
          "#empty-history"}},
        {"a history that is none",
         {{"record", kFailed}, {"flag", "5"}, {"history", "x1d"}},
         "blocked",
         "blocked",
         {"the history is damaged"}},
        {"a list without a reset",
         {{"record", kFailed}, {"flag", "5"}, {"history", "22d"}, {"list", "100|12000\n"}},
         "blocked",
         "blocked",
         {"cannot go on: the list is exhausted"}},
        {"no list for the reason",
         {{"record", kFailed}, {"flag", "5"}, {"list", "20|12500\n"}},
         "blocked",
         "blocked",
         {"no list for this reason"}},
        {"a deadly list",
         {{"record", kFailed}, {"flag", "5"}, {"list", "100| |1\n"}},
         "blocked",
         "blocked",
         {"dies of a blank field", "#blank-field"}},
        {"recovery is switched off",
         {{"record", kFailed}, {"flag", "5"}, {"switch", "BfRecover=NO\n"}, {"list", "100| |1\n"}},
         "blocked",
         "blocked",
         {"no action: recovery is disabled from outside"}},
        {"a stall of the wizard",
         {{"record", record("11:16:10", "0x600500")}, {"flag", "6"}},
         "failing",
         "open",
         {"the daemon does not recover from this", "#setup-wizard"}},
        {"cured, the report of it collected",
         {{"record", kFailed + kCured}, {"code", "2"}, {"journal", kCaptured}},
         "cured",
         "stamped",
         {"a boot has completed since, 15 min 50 s after it began", "by what cannot be told",
          "in 2 boots", "reboot was due"}},
        {"cured by a reset",
         {{"record", kFailed + kCured}, {"upload", "BFRECOVERY|5|Sun Nov 15 11:20:01 2026|100"}},
         "cured",
         "stamped",
         {"yes, cured by the data reset"}},
        {"cured, and the report is of another time",
         {{"record", kFailed + kCured}, {"upload", "BFRECOVERY|5|Sun Nov 15 11:02:00 2026|100"}},
         "cured",
         "stamped",
         {"by what cannot be told"}},
        {"cured by the user",
         {{"record", kFailed + kAgain + kCured}},
         "cured",
         "stamped",
         {"after somebody rebooted it", "in 3 boots"}},
        {"cured by itself",
         {{"record", kFailed + record("11:09:00", "0xf00001")}},
         "cured",
         "stamped",
         {"by itself", "in 1 boot"}},
        {"logs kept from a failed boot",
         {{"record", record("11:00:40", "0x801564") + record("11:00:40", "0x301164") +
                             record("11:01:40", "0xf00001")}},
         "cured",
         "stamped",
         {"cannot be told, after 1 min, in 1 boot"}},
        {"a failure after one that was cured",
         {{"record", kFailed + kCured + kAgain}, {"flag", "5"}},
         "failing",
         "open",
         {"cured after 15 min 50 s", "on 2026-11-15 11:10:00; no boot"}},
        {"two files of records",
         {{"backup", kFailed}, {"record", kCured}},
         "cured",
         "stamped",
         {"2 boots"}},
        {"a short good boot",
         {{"record", record("11:04:10", "0x500278") + kCured}, {"history", "11x"}},
         "cured",
         "stamped",
         {"#late-errors"}},
        {"an older animation that stayed",
         {{"record", record("11:04:10", "0x500214") + kCured},
          {"code", "3"},
          {"journal", kCaptured}},
         "cured",
         "stamped",
         {}},
        {"the flag is a folder",
         {{"flag", kFolder}},
         "unclear",
         "file-unread",
         {"/SDD/bfflag.txt can't be read"}},
        {"an animation that stays",
         {{"code", "3"}, {"journal", kCaptured}},
         "unclear",
         "animation-stays",
         {"stayed although the boot had completed on 2026-11-15 11:04:12", "#animation-stays"}},
        {"one after a failure",
         {{"record", kFailed + kCured},
          {"code", "3"},
          {"journal", kCaptured + captured("12:00:00")}},
         "unclear",
         "animation-stays",
         {"on 2026-11-15 12:00:00"}},
        {"a torn record",
         {{"record", kFailed + kCured + "TIME:Sun Nov"}},
         "unclear",
         "record-damaged",
         {"line 3: is not a complete record", "evidence lost"}},
        {"a torn record that the stamp is joined to",
         {{"record", "TIME:Sun Nov 15 11:04:10 202" + kCured}},
         "unclear",
         "record-damaged",
         {}},
        {"a stamp alone",
         {{"record", kCured}},
         "unclear",
         "stamp-alone",
         {"no record tells of that failure"}},
        {"an empty flag",
         {{"record", kFailed + kCured}, {"flag", ""}},
         "unclear",
         "flag-damaged",
         {}},
        {"a flag alone",
         {{"flag", "5"}},
         "unclear",
         "flag-alone",
         {"a failure of phase 5 is flagged", "not known: no record", "#nothing-is-synced"}},
        {"a flag after the stamp",
         {{"record", kFailed + kCured}, {"flag", "5"}},
         "unclear",
         "flag-alone",
         {}},
        {"the flag of another phase",
         {{"record", kFailed}, {"flag", "4"}},
         "unclear",
         "flag-alone",
         {}},
        {"no flag",
         {{"record", kFailed}, {"history", "11d"}},
         "unclear",
         "flag-missing",
         {"neither the flag"}},
        {"a capture alone",
         {{"journal", kCaptured}},
         "unclear",
         "capture-alone",
         {"logs were captured on Sun Nov 15 11:04:12 2026"}},
        {"a later capture",
         {{"record", kFailed + kCured}, {"journal", captured("12:00:00")}},
         "unclear",
         "capture-alone",
         {}},
        {"a reason code alone", {{"code", "2"}}, "unclear", "reason-code-alone", {}},
        {"another reason code",
         {{"record", kFailed + kCured}, {"code", "10"}},
         "unclear",
         "reason-code-alone",
         {"not that of the stall recorded last"}},
        {"a history alone",
         {{"history", "11d"}},
         "unclear",
         "history-alone",
         {"reboot, as its history says"}},
        {"a history after the stamp",
         {{"record", kFailed + kCured}, {"history", "11d"}},
         "unclear",
         "history-alone",
         {"which a completed boot would have removed"}},
        {"an empty history after the stamp",
         {{"record", kFailed + kCured}, {"history", ""}},
         "unclear",
         "history-alone",
         {"blocks every later recovery"}},
        {"a note alone", {{"hwinfo", "mem_index=3 "}}, "unclear", "leftovers", {"mem_hwinfo"}},
        {"a list that is a folder", {{"list", kFolder}}, "unclear", "damaged", {"recoveryList"}},
};

// Line breaks and indents of a text apart.
std::string onOneLine(const std::string& text) {
    std::string out;
    for (const char c : text) {
        const char put = c == '\n' ? ' ' : c;
        if (put != ' ' || out.empty() || out.back() != ' ') out += put;
    }
    return out;
}

TEST(Judgement, FollowsFromWhatIsLeft) {
    for (const Case& row : kCases) {
        SCOPED_TRACE(row.about);
        const lab::TemporaryFolder folder;
        fs::create_directories(folder.path() + "/SDD/bf_upload");
        fs::create_directories(folder.path() + "/boot_vigil/log");
        for (const auto& [name, content] : row.files) {
            const std::string path = folder.path() + "/" + kPaths.at(name);
            if (content == kFolder) {
                fs::create_directory(path);
            } else {
                lab::writeFile(path, content);
            }
        }
        const report::Report read = report::readReport(folder.path());
        const report::Judgement judgement = report::judge(read);
        EXPECT_STREQ(report::stateName(judgement.state), row.state);
        EXPECT_EQ(judgement.rule, row.rule);
        const std::string text = onOneLine(toText(read));
        for (const char* part : row.says)
            EXPECT_NE(text.find(part), std::string::npos) << part << "\n" << text;
    }
    EXPECT_EQ(report::judge(report::readReport("/proc/self")).state, report::State::UNREADABLE);
}

// Of a device that a reboot has cured, any two files may be lost: it is never one without a
// failure, and without its records or its flag's counterpart, the stamp, not cured either.
TEST(Judgement, LostEvidenceIsNeverNoFailure) {
    const lab::TemporaryFolder temporary;
    const std::string folder = temporary.path() + "/run";
    lab::ScenarioRun(lab::readScenario(lab::dataPath("scenarios/first-boot-stall.yaml")), folder)
            .run();
    const std::string partition = folder + "/root/velafs";
    std::vector<std::string> files;
    for (const auto& entry : fs::recursive_directory_iterator(partition)) {
        if (entry.is_regular_file()) files.push_back(entry.path());
    }
    ASSERT_EQ(report::judge(report::readReport(partition)).state, report::State::CURED);
    const auto isRecord = [](const std::string& file) {
        return file.find("bfRecord.txt") != std::string::npos;
    };
    for (const std::string& one : files) {
        const std::string first = lab::readFile(one);
        fs::remove(one);
        for (const std::string& two : files) {
            const bool both = two != one;
            const std::string second = both ? lab::readFile(two) : "";
            if (both) fs::remove(two);
            const bool lost = isRecord(one) || isRecord(two);
            EXPECT_EQ(report::judge(report::readReport(partition)).state,
                      lost ? report::State::UNCLEAR : report::State::CURED)
                    << one << " " << two;
            if (both) lab::writeFile(two, second);
        }
        lab::writeFile(one, first);
    }
    // the log still tells what has hung
    fs::remove_all(partition + "/SDD");
    const report::Report read = report::readReport(partition);
    const report::Judgement judgement = report::judge(read);
    EXPECT_EQ(judgement.rule, "only-logged");
    EXPECT_EQ(judgement.answers->hung.event.pid, "1113");
    EXPECT_EQ(judgement.answers->hung.silent, 450);
}

TEST(TraceEvents, HangHasItsLengthAndBootsTheirClock) {
    const lab::TemporaryFolder folder;
    lab::ScenarioRun(lab::readScenario(lab::dataPath("scenarios/first-boot-stall.yaml")),
                     folder.path() + "/run")
            .run();
    const auto trace = nlohmann::json::parse(
            report::toTraceEvents(report::readReport(folder.path() + "/run")));
    int64_t hang = 0;
    int64_t second = -1;  // when the second boot begins
    for (const auto& event : trace["traceEvents"]) {
        if (!event.contains("ts")) continue;
        EXPECT_TRUE(event["ts"].is_number_integer()) << event;
        if (event["name"] == "nothing after 1113-system_server  | AMS:systemReady") {
            hang = event["dur"];
        }
        if (event["pid"] == 2 && event["name"] == "the daemon starts") second = event["ts"];
    }
    EXPECT_EQ(hang, 450000000);
    EXPECT_EQ(second, 570000000);  // 11:09:30
}

TEST(ReadReport, NamesDevicesByWhatDiffers) {
    using Names = std::vector<std::string>;
    EXPECT_EQ(report::deviceNames({"dumps/a/velafs", "dumps/b/velafs/"}), (Names{"a", "b"}));
    EXPECT_EQ(report::deviceNames({"x/1/p/velafs", "x/2/velafs", "x/2"}),
              (Names{"1/p/velafs", "2/velafs", "2"}));
    EXPECT_EQ(report::deviceNames({"dumps/a/velafs"}), Names{"a"});
    EXPECT_EQ(report::deviceNames({"same", "same"}), (Names{"same", "same"}));
}

TEST(Times, OnlyWholeOnesAreRead) {
    EXPECT_EQ(report::isoTime("Sun Nov  1 11:05:18 2026"), "2026-11-01T11:05:18");
    EXPECT_EQ(report::isoTime("Sun Nov 15 11:05:18 202"), "");
    EXPECT_EQ(report::isoTime("Sun Nov 15 11:05:18 2026x"), "");
    EXPECT_EQ(report::isoClock("11-15 11:00:40.250", 2026), "2026-11-15T11:00:40.250");
    EXPECT_EQ(report::isoClock("11-15 11:00:40.250", 0), "");
    EXPECT_EQ(report::isoClock("11-15T11:00:40.250", 2026), "");
}

}  // namespace
