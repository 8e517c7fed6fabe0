// SPDX-License-Identifier: Apache-2.0
// Tests of the line that says what a boot came to, and of the order and codes of a printed boot.

#include "lab/run/Outcome.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "lab/run/Timeline.h"

namespace {

using lab::Record;

// "250 log TEXT" or "250 record {...}"; the log may leave out what it begins with.
std::vector<Record> recordsOf(const std::vector<std::string>& lines) {
    std::vector<Record> records;
    for (const std::string& line : lines) {
        const size_t kind = line.find(' ') + 1;
        const size_t rest = line.find(' ', kind) + 1;
        Record record = {{"t", std::stod(line)},
                         {"boot", 1},
                         {"kind", line.substr(kind, rest - 1 - kind)}};
        if (line[rest] == '{') {
            record.update(Record::parse(line.substr(rest)));
        } else {
            record["text"] = line.substr(rest) + " \n";
        }
        records.push_back(record);
    }
    records.push_back({{"t", 0}, {"boot", 2}, {"kind", "killed"}, {"signal", 9}});
    return records;
}

using Lines = std::vector<std::string>;

Lines operator+(Lines a, const Lines& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

const Lines kStart = {R"(0 boot {"about":"","reason":"cold","history":"11d"})",
                      R"(10 version {"text":"3.365"})"};
const Lines kStall = kStart + Lines{"220 log parseBootProf Last Line key 324-vold   | vold:x",
                                    "250 log handleMessage 2 what = 20020",
                                    "250 log checkStuckPid stuck pid = 324",
                                    "250 log errNotifyWithReason type = 5, phase=4, "
                                    "detailPhase=1, reason=100"};
const Lines kRecorded = kStall + Lines{R"(250 record {"text":"TIME:x;    ERR_NUM:0x401564;  "})"};
const Lines kRecovery = {"260 log handleMessage 2 what = 20040"};
const Lines kExit = {"270 log handleMessage 2 what = 20050", R"(270 exit {"status":0})"};
constexpr char kVold[] = "stalled at 250 s in vold (pid 324), before the system server; ";

TEST(Outcome, SaysWhatTheBootCameTo) {
    const std::tuple<const char*, Lines, std::string> cases[] = {
            {"a stall",
             kRecorded +
                     Lines{R"(252 captured {"name":"a","bytes":1})",
                           R"(252 captured {"name":"b","bytes":0,"error":"empty file"})"} +
                     kRecovery + Lines{R"(260 request {"name":"reboot"})"} + kExit,
             std::string(kVold) + "recorded; 2 logs; asks for a reboot"},
            {"no room",
             kStall + Lines{"250 log BOOTVIGIL velafs AvailableSize not enough"} + kRecovery +
                     kExit,
             std::string(kVold) +
                     "no record: the partition is full; no logs; nothing is asked for"},
            {"an archive that can't be written",
             kRecorded + Lines{R"(252 captured {"name":"a","bytes":1,"error":"cut off"})",
                               R"(252 exit {"status":5})"},
             std::string(kVold) + "recorded; 1 log, 1 damaged; the daemon exits with status 5: an "
                                  "archive can't be written"},
            {"a list that is exhausted",
             kRecorded + kRecovery + Lines{"260 log not found next recovery mode"},
             std::string(kVold) + "recorded; no recovery: the list is exhausted"},
            {"an empty history",
             kRecorded + Lines{R"(251 history {"text":""})"} + kRecovery +
                     Lines{"260 log not found next recovery mode"},
             std::string(kVold) +
                     "recorded; the history is left empty; recovery blocked: the history is empty"},
            {"a mode without an action",
             kRecorded + kRecovery +
                     Lines{"260 log saveRecoveryFlag info = 23d.",
                           "260 log BOOTVIGIL wrong reason to run recovery, 100"},
             std::string(kVold) + "recorded; recovery does nothing: no action has mode 3"},
            {"a reset in a first boot",
             kRecorded + kRecovery + Lines{"260 log try to data reset"} + kExit,
             std::string(kVold) +
                     "recorded; no reset, as a first boot has nothing to wipe; no logs"},
            {"pid 0",
             kStart + Lines{"730 log handleMessage 2 what = 20020",
                            "730 log errNotifyWithReason type = 5, phase=5, detailPhase=2, "
                            "reason=100",
                            R"(730 record {"text":"TIME:x"})", R"(730 signal {"signal":3,"pid":0})",
                            R"(730 killed {"signal":3})"},
             "stalled at 730 s in an unknown process; its record is cut short; the daemon is "
             "killed "
             "at 730 s by its own signal to pid 0"},
            {"a service that answers late",
             kRecorded + Lines{R"(252 kel {"text":"0xffffff06|1|2|"})",
                               "252 log kel dont capture log in boot vigil",
                               R"(257 write {"path":"/velafs/boot_vigil/0xffffff06"})"},
             std::string(kVold) + "recorded; the log-capture service captures at 257 s; the "
                                  "service is given up on at 252 s"},
            {"package optimisation, then a good boot that judges a recovery",
             kStart +
                     Lines{"250 log handleMessage 2 what = 20020", "250 log Now is perform DexOpt",
                           "250 log handleMessage is boot timeout, boot slowly, check again.",
                           "280 log handleMessage 2 what = 20010", "280 log enter submitInfo",
                           R"(280 upload {"name":"boot_vigil","text":"BOOTVIGIL|0x401564|x|y"})",
                           "280 log Have recoveryed.", "280 log boot finished, enter launcher."} +
                     kExit,
             "slow, not stuck: in package optimisation at 1 time-out; boot complete at 280 s; "
             "leaves "
             "failure 0x401564 to the uploader; the recovery worked, which is not reported"},
            {"no profile",
             kStart + Lines{"250 log handleMessage is boot timeout, boot slowly, check again.",
                            R"(260 end {"why":"still running","folders":7})"},
             "nothing to judge by: no boot profile at 1 time-out; still running at 260 s with 7 "
             "folders left open"},
            {"an animation that stays",
             kStart + Lines{"250 log checkReason Reason = 3, file Reason = ",
                            R"(300 end {"why":"cut off"})"},
             "the boot animation stays, found at 250 s and not recorded; cut off at 300 s"},
            {"charging",
             {"10 log checkNormalBootMode ro.boot.mode = charger", R"(10 exit {"status":0})"},
             "nothing to watch: the boot mode is charger"},
    };
    for (const auto& [name, lines, outcome] : cases) {
        EXPECT_EQ(lab::describeOutcome(recordsOf(lines), 1), outcome) << name;
    }
}

TEST(Outcome, APrintedBootIsInOrderOfTimeWithItsCodesExplained) {
    const auto records = recordsOf({R"(0 boot {"about":"a\u001b","reason":"cold"})",
                                    R"(20 set {"name":"p","value":"1"})",
                                    R"(10.13 event {"name":"Zygote:Preload End"})", "250 flag 5",
                                    "250 reason 10", R"(260 history {"text":"35\u0014"})",
                                    "270 kel 0xffffff06|393846|1113|", R"(280 exit {"status":2})"});
    EXPECT_EQ(lab::describeBoot(records, 1, false),
              (Lines{"boot 1: a\\x1b (sys.boot.reason cold)",
                     "   10.130  event     Zygote:Preload End", "   20.000  set       p = 1",
                     "  250.000  flag      5 \\x0a (phase 5: system server)",
                     "  250.000  reason    10 \\x0a (never reaches Android:PMS_scan_END)",
                     "  260.000  history   35\\x14 (next: 4th step; last: factory data reset, for "
                     "reason 20)",
                     "  270.000  kel       0xffffff06|393846|1113| \\x0a (type 0x60276, pid 1113)",
                     "  280.000  exit      2 (an archive can't be made)"}));
}

}  // namespace
