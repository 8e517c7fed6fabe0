// SPDX-License-Identifier: Apache-2.0
// The rules themselves: a healthy boot keeps them, and each kind of misdeed breaks one.

#include "lab/rules/Rules.h"

#include <gtest/gtest.h>
#include <signal.h>

#include "lab/base/DevicePaths.h"
#include "lab/rules/PlatformRules.h"

namespace lab {
namespace {

using Kind = TraceEvent::Kind;
using End = BootObservation::End;

Boot makeBoot() {
    Boot boot;
    boot.profileText = "header\n 1.0 :  1-init : INIT:boot\n 2.0 : OFF\n----\n";
    return boot;
}

const Scenario kDevice;
const Boot kBoot = makeBoot();

// A boot by hand: healthy, and complete at its first poll.
struct BootByHand : BootObservation {
    BootByHand() : BootObservation(kDevice, kBoot) {
        properties = {{"ro.boot.mode", "normal"},
                      {"sys.boot_completed", "1"},
                      {"service.bootanim.exit", "1"},
                      {"sys.vela.BOOT_COMPLETED", "1"}};
        for (const char* path :
             {"/data/", "/data/vela_dfr/", "/data/vela_dfr/firstboot", "/velafs/", "/velafs/SDD/",
              "/velafs/boot_vigil/", "/velafs/boot_vigil/log/"}) {
            filesBefore[path] = filesAfter[path] = "";
        }
        endedAt = 170000;
        add(0, Kind::MONITOR, "");
        message(10, "20030");
        add(10, Kind::PROPERTY, "sys.bootvigil.version 3.365");
        message(40, "20010");
        for (const char* line : {"D BOOTVIGIL checkSystemError reason=0\n",
                                 "D handleMessage booted, Anim closed.", "E Init:Not found log.",
                                 "E kernel:Not found log.", "D boot finished, enter launcher."}) {
            add(40, Kind::LOG, line);
        }
        message(160, "20060");
        add(160, Kind::LOG, "D BOOTVIGIL checkSystemError reason=0\n");
        message(170, "20050");
        add(170, Kind::LOG, "D bootvigil exit.");
    }

    void add(int64_t seconds, Kind kind, const std::string& text) {
        events.push_back({seconds * 1000, kind, text});
    }
    void message(int64_t seconds, const std::string& what) {
        add(seconds, Kind::WAKE, "");
        add(seconds, Kind::LOG, "D handleMessage 2 what = " + what);
    }
    // Puts an event where the boot's first poll ends.
    void addToPoll(Kind kind, const std::string& text) {
        events.insert(events.end() - 6, {40000, kind, text});
    }

    // What the rules say, one line per objection.
    std::string verdict() const {
        std::string text;
        for (const Violation& violation : checkRules(*this)) text += violation.text + "\n";
        return text;
    }
};

TEST(Rules, HoldInAHealthyBoot) {
    EXPECT_EQ(BootByHand().verdict(), "");
}

void expectObjection(const BootByHand& boot, const std::string& objection) {
    const std::string verdict = boot.verdict();
    EXPECT_NE(verdict.find(objection), std::string::npos)
            << "expected: " << objection << "\nsaid: " << verdict;
}

TEST(Rules, ObjectToEachActThatIsNotDue) {
    const struct {
        Kind kind;
        const char* text;
        const char* objection;
    } cases[] = {
            {Kind::PROPERTY, "sys.velas_recovery_reset 1",
             "40.000 s: must not set sys.velas_recovery_reset 1"},
            {Kind::REQUEST, "0xffffff06|393270|0|", "must not ask for 0xffffff06"},
            {Kind::SIGNAL, "3 567", "must not send signal 3 567"},
            {Kind::OPERATION, "1 open /velafs/own", "touches /velafs/own"},
            {Kind::LOG, "D errNotifyWithReason type = 2, phase=5, detailPhase=0, reason=20",
             "must not say \"errNotifyWithReason"},
            {Kind::LOG, "E BOOTVIGIL velafs AvailableSize not enough ",
             "must not say \"BOOTVIGIL velafs AvailableSize not"},
            {Kind::IDLE, "files=0 folders=0 zombies=1", "zombies=1"},
    };
    for (const auto& [kind, text, objection] : cases) {
        BootByHand boot;
        boot.addToPoll(kind, text);
        expectObjection(boot, objection);
    }
}

TEST(Rules, ObjectToEachOtherMisdeed) {
    const struct {
        void (*misdeed)(BootByHand& boot);
        const char* objection;
    } cases[] = {
            {[](auto& boot) { boot.events[3].text = "sys.bootvigil.version 3.364"; },
             "must set sys.bootvigil.version 3.365"},
            {[](auto& boot) { boot.events.erase(boot.events.begin()); },
             "0.000 s: must stop the monitor"},
            {[](auto& boot) { boot.events[4].ms = boot.events[5].ms = 41000; },
             "message 20010 was due at 40.000 s"},
            {[](auto& boot) { boot.events.insert(boot.events.begin() + 1, boot.events[1]); },
             "woke up without a message"},
            {[](auto& boot) { boot.events.resize(11); }, "exits with status 0"},
            {[](auto& boot) {
                 boot.events.resize(11);
                 boot.end = End::STILL_RUNNING;
                 boot.endedAt = 7200000;
             },
             "message 20060 was due at 160.000 s"},
            {[](auto& boot) {
                 boot.end = End::KILLED;
                 boot.status = SIGSEGV;
             },
             "is killed by signal 11"},
            {[](auto& boot) { boot.status = 2; }, "exits with status 2"},
            {[](auto& boot) { boot.properties.erase("sys.vela.BOOT_COMPLETED"); },
             "\"boot finished, enter launcher.\", which must not be"},
            {[](auto& boot) { boot.filesAfter[kFlag] = "4"; }, "bfflag.txt must not be there"},
            {[](auto& boot) { boot.filesAfter.erase("/velafs/boot_vigil/log/"); },
             "/velafs/boot_vigil/log/ is missing"},
            {[](auto& boot) {  // a power cut takes nothing back that is said to be kept
                 boot.filesAfter[kFlag] = "4";
                 boot.add(170, Kind::FAULT, "power-cut");
                 boot.end = End::CUT_OFF;
             },
             "bfflag.txt must not be there"},
            {[](auto& boot) {
                 boot.filesBefore[kFailureUpload] = "not collected";
                 boot.filesAfter[kFailureUpload] = "replaced";
             },
             "was changed before it was collected"},
            {[](auto& boot) { boot.filesBefore[kFlag] = boot.filesAfter[kFlag] = "4"; },
             "\"enter submitInfo\" is missing"},
            {[](auto& boot) { boot.filesBefore[kHistory] = boot.filesAfter[kHistory] = "11d"; },
             "\"isRecoverySuccess mode=\" is missing"},
    };
    for (const auto& [misdeed, objection] : cases) {
        BootByHand boot;
        misdeed(boot);
        expectObjection(boot, objection);
    }
}

// An injected failure excuses what it can cause, and nothing else.
TEST(Rules, ExcuseOnlyWhatAFaultCanCause) {
    BootByHand lost;
    lost.filesBefore[kFlag] = lost.filesAfter[kFlag] = "4";
    lost.addToPoll(Kind::FAULT, "open " + kRecord);
    expectObjection(lost, "enter submitInfo");
    lost.addToPoll(Kind::FAULT, "open " + kFlag);
    EXPECT_EQ(lost.verdict(), "");

    lost.addToPoll(Kind::FAULT, "malloc");
    lost.addToPoll(Kind::IDLE, "files=1 folders=0 zombies=0");
    expectObjection(lost, "leaves open");
    lost.addToPoll(Kind::PROPERTY, "sys.velas_recovery_reboot");
    expectObjection(lost, "must not set sys.velas_recovery_reboot");
}

// What a failed allocation excuses ends with its message, and is never an action.
TEST(Rules, AskForTheLadderAfterAFailedAllocation) {
    BootByHand boot;
    boot.events.insert(boot.events.begin() + 6, {40000, Kind::FAULT, "malloc"});
    EXPECT_EQ(boot.verdict(), "");
    boot.filesBefore[kHistory] = "11d";
    boot.add(170, Kind::PROPERTY, "sys.velas_recovery_reboot 1");
    expectObjection(boot, "must not set sys.velas_recovery_reboot 1");
    expectObjection(boot, "160.000 s: \"isRecoverySuccess mode=\" is missing");
}

// Lines of the record are whole; only the last one may be cut.
TEST(Rules, ObjectToALineOfTheRecordThatIsCut) {
    BootByHand boot;
    boot.addToPoll(Kind::FAULT, "write");
    boot.addToPoll(Kind::OPERATION, "1 write " + kRecord + " failed");
    boot.filesBefore[kRecord] = "TIME:1\nTIME:22\n";
    for (const char* whole : {"TIME:1\nTIME:22\n", "TIME:1\nTIME:2", "TIM", ""}) {
        boot.filesAfter[kRecord] = whole;
        EXPECT_EQ(boot.verdict(), "") << whole;
    }
    boot.filesAfter[kRecord] = "TIM\nTIME:22\n";
    expectObjection(boot, "holds a line of nobody: TIM");
}

std::string verdictOf(const std::vector<Violation>& violations) {
    std::string text;
    for (const Violation& violation : violations) text += violation.text + "\n";
    return text;
}

TEST(PlatformRules, ObjectToWhatPreparingMustNotDo) {
    std::string lines;
    for (int i = 0; i < 201; ++i) lines += std::to_string(i) + "\n";
    const struct {
        TextMap before, after;
        const char* objection;
    } cases[] = {
            {{{kHistory, ""}, {kFlag, "x"}}, {}, ""},
            {{{kHistory, ""}}, {{kHistory, ""}}, "a history that blocks"},
            {{{kHistory, "11d"}}, {}, "changes /velafs/boot_vigil/recovery_flag.txt"},
            {{{kFlag, "5"}}, {}, "changes /velafs/SDD/bfflag.txt"},
            {{{kFlag, ""}}, {{kFlag, ""}}, "a flag of no phase"},
            {{{kRecord, "x"}}, {{kRecord, ""}}, "changes /velafs/SDD/bfRecord.txt"},
            {{{kJournal, lines}}, {{kJournal, lines.substr(2)}}, ""},
            {{{kJournal, lines}}, {{kJournal, lines.substr(4)}}, "changes /velafs/boot_vigil/log"},
            {{{kOwnFolder + "/0xffffff06.zip", "x"}},
             {{kOwnFolder + "/0xffffff06.zip", "x"}},
             "to be taken for a new one"},
            {{{kOwnFolder + "/0xffffff06.zip", "x"}}, {}, "keeps 0 captures of 1"},
            {{{kOwnFolder + "/0xffffff06.zip", "x"}},
             {{kOldCaptures + "/1-0xffffff06.zip", "x"}},
             ""},
    };
    for (const auto& [before, after, objection] : cases) {
        const std::string verdict = verdictOf(PlatformRules(kDevice).checkPrepared(before, after));
        EXPECT_EQ(verdict.empty(), *objection == '\0') << verdict;
        EXPECT_NE(verdict.find(objection), std::string::npos) << objection << verdict;
    }
}

TEST(PlatformRules, ObjectToWhatAnswersMustNotDo) {
    const auto acts = [](int64_t askedAt, int64_t upAt, int64_t actedAt, bool reset = true) {
        PlatformActs acts;
        if (askedAt > 0) acts.askedAt = askedAt;
        if (upAt > 0) acts.upAt = upAt;
        if (actedAt > 0) acts.actedAt = actedAt;
        acts.refused = actedAt == 0;
        acts.reset = reset;
        acts.endedAt = 900000;
        return acts;
    };
    const TextMap files = {{kOwnFolder + "/", ""}};
    PlatformRules rules(kDevice);
    EXPECT_EQ(verdictOf(rules.checkActs(kBoot, acts(260000, 0, 860000), files)), "");
    EXPECT_EQ(verdictOf(rules.checkActs(kBoot, acts(260000, 0, 860000), files)),
              "860 s: the platform does a reset beyond its budget\n");
    EXPECT_EQ(verdictOf(rules.checkActs(kBoot, acts(0, 0, 60000, false), files)),
              "60 s: the platform does a reboot that nobody asked for\n");
    EXPECT_EQ(verdictOf(rules.checkActs(kBoot, acts(260000, 300000, 320000, false), files)),
              "320 s: the platform reboots a device that came up\n");
    EXPECT_EQ(verdictOf(rules.checkActs(kBoot, acts(260000, 300000, 0), files)),
              "900 s: the platform does not note that it refused a reset\n");
    PlatformActs declared = acts(170000, 20000, 170000);
    declared.declared = true;
    EXPECT_EQ(verdictOf(PlatformRules(kDevice).checkActs(kBoot, declared, files)),
              "170 s: the platform wipes a device that is up\n");
    declared.reset = false;
    EXPECT_EQ(verdictOf(PlatformRules(kDevice).checkActs(kBoot, declared, files)), "");
}

}  // namespace
}  // namespace lab
