// SPDX-License-Identifier: Apache-2.0
// Tests of the judgement: what is left on a partition, and the state and the answers that it leads
// to; then a partition of which more and more is lost.

#include <algorithm>
#include <filesystem>
#include <map>
#include <sstream>
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

// Record lines by letter: stalls, system errors, the wizard, kept logs, stamps, torn lines.
std::string record(char letter) {
    const auto line = [](const std::string& at, const std::string& number) {
        const std::string event =
                number == "0x502564" ? "1113-system_server  | AMS:systemReady" : "";
        return "TIME:Sun Nov 15 " + at + " 2026;    ERR_NUM:" + number + ";    ERR_INFO:" + event +
               ";    ERR_EXPINFO:Country(0)  ;\n";
    };
    const std::map<char, std::string> lines = {
            {'F', line("11:04:10", "0x502564")}, {'A', line("11:10:00", "0x502564")},
            {'E', line("11:04:10", "0x500214")}, {'L', line("11:04:10", "0x500278")},
            {'W', line("11:16:10", "0x600500")}, {'I', line("11:04:10", "0x801564")},
            {'K', line("11:04:10", "0x301164")}, {'1', line("11:09:00", "0xf00001")},
            {'2', line("11:20:00", "0xf00002")}, {'t', "TIME:Sun Nov 15 11:04:10 202"},
    };
    return lines.at(letter);
}

// What a journal, by letter, says of captures: of the first failure above, and of none.
std::string capture(char letter) {
    return "Sun Nov 15 " + std::string(letter == 'f' ? "11:04:12" : "12:00:00") +
           " 2026  USER capture log\n";
}

const std::map<std::string, std::string> kPaths = {
        {"record", "SDD/bfRecord.txt"},      {"backup", "SDD/bfRecord_backup.txt"},
        {"flag", "SDD/bfflag.txt"},          {"upload", "SDD/bf_upload/recovery_record"},
        {"code", "boot_vigil/reason.txt"},   {"history", "boot_vigil/recovery_flag.txt"},
        {"list", "boot_vigil/recoveryList"}, {"switch", "boot_vigil/bfEnable"},
        {"hwinfo", "boot_vigil/mem_hwinfo"}, {"journal", "boot_vigil/log/info"},
        {"refused", "boot_vigil/refused"},
};

// Makes a file of "name=content": letters for records and captures, "/" for a folder in its place.
void put(const std::string& folder, const std::string& file) {
    const std::string name = file.substr(0, file.find('='));
    const std::string content = file.substr(name.size() + 1);
    const std::string path = folder + "/" + kPaths.at(name);
    std::string text;
    for (const char c : content) {
        if (name == "record" || name == "backup") {
            text += record(c);
        } else {
            text += name == "journal" ? capture(c) : std::string(1, c);
        }
    }
    if (content == "/") {
        fs::create_directory(path);
    } else {
        lab::writeFile(path, text);
    }
}

struct Case {
    const char* files;  // separated by ";"
    const char* decision;
    std::vector<const char*> says;  // parts of the text for a person, line breaks apart
};

const std::vector<Case> kCases = {
        {"", "no-failure: no-failure", {"nothing contradicts that"}},
        {"record=F;flag=5;history=11d;code=2;journal=f",
         "failing: open",
         {"system_server (pid 1113): nothing after AMS:systemReady; never reached AMS:AMS_READY",
          "the daemon's log of it was not captured /SDD/bfRecord.txt:1 record",
          "SIGQUIT to the stuck process; logs captured by the daemon; reboot, as its history says",
          "not yet", "leads to: wait for the user", "#slow-boots"}},
        {"record=FA;flag=5;history=11d;journal=f",  // only the first step was taken
         "failing: open",
         {"action: reboot, by the history", "no action: the daemon seems to have ended in the",
          "2 failures in a row", "#capture-ends-daemon"}},
        {"record=F;flag=5;history=22d",  // the step of an earlier failure is not recorded
         "failing: open",
         {"wait for the user to reboot, as its history says", "#waiting"}},
        {"record=FAAA;flag=5;history=35d",
         "failing: open",
         {"factory data reset, by the history", "exhausted in the first boot after a reset",
          "reboot in any later one"}},
        {"record=W;flag=6", "failing: open", {"does not recover from this", "#setup-wizard"}},
        {"record=F2A;flag=5",
         "failing: open",
         {"cured after 15 min 50 s", "on 2026-11-15 11:10:00; no boot"}},
        {"record=F;flag=5;history=",
         "blocked: blocked",
         {"cannot go on: the history is empty", "no action: the history is empty", "never",
          "#empty-history"}},
        {"record=F;flag=5;history=x1d", "blocked: blocked", {"the history is damaged"}},
        {"record=F;flag=5;history=22d;list=100|12000", "blocked: blocked", {"list is exhausted"}},
        {"record=F;flag=5;list=20|12500", "blocked: blocked", {"no list for this reason"}},
        {"record=F;flag=5;list=100| |1", "blocked: blocked", {"of a blank field", "#blank-field"}},
        {"record=F;flag=5;list=100| |1;switch=BfRecover=NO",
         "blocked: blocked",
         {"no action: recovery is disabled from outside"}},
        {"record=F2;code=2;journal=f",
         "cured: stamped",
         {"a boot has completed since, 15 min 50 s after it began", "by what cannot be told",
          "in 2 boots", "reboot was due"}},
        {"record=F2;upload=BFRECOVERY|5|Sun Nov 15 11:20:01 2026|100",
         "cured: stamped",
         {"yes, cured by the data reset"}},
        {"record=F2;upload=BFRECOVERY|5|Sun Nov 15 11:02:00 2026|100",  // an older one
         "cured: stamped",
         {"by what cannot be told"}},
        {"record=FA2", "cured: stamped", {"after somebody rebooted it", "in 3 boots"}},
        {"record=F1", "cured: stamped", {"by itself", "in 1 boot"}},
        {"record=IK1", "cured: stamped", {"cannot be told, after 4 min 50 s, in 1 boot"}},
        {"backup=F;record=2", "cured: stamped", {"2 boots"}},
        {"record=L2;history=11x", "cured: stamped", {"#late-errors"}},  // the good boot was short
        {"record=E2;code=3;journal=f", "cured: stamped", {}},  // the code is an older animation's
        {"flag=/", "unclear: file-unread", {"what it tells is not known"}},
        {"code=3;journal=f",
         "unclear: animation-stays",
         {"although the boot had completed on 2026-11-15 11:04:12", "#animation-stays"}},
        {"record=F2;code=3;journal=fn", "unclear: animation-stays", {"on 2026-11-15 12:00:00"}},
        {"record=F2t", "unclear: record-damaged", {"line 3: is not a complete", "evidence lost"}},
        {"record=t2", "unclear: record-damaged", {}},  // the stamp is joined to it
        {"record=2", "unclear: stamp-alone", {"no record tells of that failure"}},
        {"record=F22", "unclear: stamp-alone", {"What hung? not known", "cured after"}},
        {"backup=F2", "unclear: backup-alone", {}},
        {"record=F2;flag=", "unclear: flag-damaged", {}},
        {"flag=5",
         "unclear: flag-alone",
         {"phase 5 is flagged", "not known: no record", "#nothing"}},
        {"record=F2;flag=5", "unclear: flag-alone", {}},
        {"record=F;flag=4", "unclear: flag-alone", {}},
        {"record=F;history=11d", "unclear: flag-missing", {"neither the flag"}},
        {"journal=f", "unclear: capture-alone", {"were captured on Sun Nov 15 11:04:12 2026"}},
        {"record=F2;journal=n", "unclear: capture-alone", {}},
        {"code=2", "unclear: reason-code-alone", {}},
        {"record=F2;code=10", "unclear: reason-code-alone", {"of the stall recorded last"}},
        {"history=11d", "unclear: history-alone", {"reboot, as its history says"}},
        {"record=F2;history=11d", "unclear: history-alone", {"boot would have removed"}},
        {"record=F2;history=", "unclear: history-alone", {"blocks every later recovery"}},
        {"hwinfo=mem_index=3", "unclear: leftovers", {"mem_hwinfo"}},
        {"list=/", "unclear: damaged", {"recoveryList"}},
        {"record=F;flag=5;history=35d;refused=Sun Nov 15 11:14:10 2026|reset|spent",
         "failing: open",
         {"the platform refused the reset: its budget was spent", "2026 reset: spent"}},
        {"record=F;flag=5;history=11d;refused=Sun Nov 15 11:04:00 2026|reset|x",  // of another
         "failing: open",
         {"reboot, as its history says Did it work", "2026 reset: x"}},
        {"record=F;flag=5;history=11d;refused=Sun Nov 15 11:09:10 2026|re\x1b|x|y",
         "failing: open",
         {"the platform refused the re\\x1b: for a reason of its own, x|y"}},
        {"refused=Sun Nov 15 11:14:10 2026|reset", "unclear: damaged", {"is no refusal of the"}},
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
    for (const auto& [files, decision, says] : kCases) {
        SCOPED_TRACE(files);
        const lab::TemporaryFolder folder;
        fs::create_directories(folder.path() + "/SDD/bf_upload");
        fs::create_directories(folder.path() + "/boot_vigil/log");
        std::istringstream all(files);
        for (std::string file; std::getline(all, file, ';');) put(folder.path(), file);
        const report::Report read = report::readReport(folder.path());
        const report::Judgement judgement = report::judge(read);
        EXPECT_EQ(report::stateName(judgement.state) + (": " + judgement.rule), decision);
        const std::string text = onOneLine(toText(read));
        for (const char* part : says) EXPECT_NE(text.find(part), std::string::npos) << part << text;
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
