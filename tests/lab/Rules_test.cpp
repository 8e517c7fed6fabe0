// SPDX-License-Identifier: Apache-2.0
// The rules themselves: a healthy boot keeps them, and each kind of misdeed breaks one.

#include "lab/rules/Rules.h"

#include <gtest/gtest.h>
#include <signal.h>

#include <functional>

namespace lab {
namespace {

using Kind = TraceEvent::Kind;
using End = BootObservation::End;

// A boot by hand: healthy, and complete at its first poll.
struct BootByHand {
    Scenario device;
    Boot boot;
    TextMap properties = {{"ro.boot.mode", "normal"},
                          {"sys.boot_completed", "1"},
                          {"service.bootanim.exit", "1"},
                          {"sys.vela.BOOT_COMPLETED", "1"}};
    TextMap before = {{"/data/", ""},
                      {"/data/vela_dfr/", ""},
                      {"/data/vela_dfr/firstboot", ""},
                      {"/velafs/", ""},
                      {"/velafs/SDD/", ""},
                      {"/velafs/boot_vigil/", ""},
                      {"/velafs/boot_vigil/log/", ""}};
    TextMap after = before;
    std::vector<TraceEvent> events;
    End end = End::EXITED;
    int status = 0;
    int64_t endedAt = 170000;

    BootByHand() {
        boot.profileText = "header\n 1.0 :  1-init : INIT:boot\n 2.0 : OFF\n----\n";
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
        BootObservation seen(device, boot);
        seen.properties = properties;
        seen.filesBefore = before;
        seen.filesAfter = after;
        seen.events = events;
        seen.end = end;
        seen.status = status;
        seen.endedAt = endedAt;
        std::string text;
        for (const Violation& violation : checkRules(seen)) {
            text += violation.text + "\n";
        }
        return text;
    }
};

TEST(Rules, HoldInAHealthyBoot) {
    EXPECT_EQ(BootByHand().verdict(), "");
}

TEST(Rules, ObjectToEachMisdeed) {
    const struct {
        std::function<void(BootByHand&)> misdeed;
        const char* objection;
    } cases[] = {
            {[](BootByHand& boot) { boot.addToPoll(Kind::PROPERTY, "sys.velas_recovery_reset 1"); },
             "40.000 s: must not set sys.velas_recovery_reset 1"},
            {[](BootByHand& boot) { boot.events[3].text = "sys.bootvigil.version 3.364"; },
             "must set sys.bootvigil.version 3.365"},
            {[](BootByHand& boot) { boot.events.erase(boot.events.begin()); },
             "0.000 s: must stop the monitor"},
            {[](BootByHand& boot) { boot.addToPoll(Kind::REQUEST, "0xffffff06|393270|0|"); },
             "must not ask for 0xffffff06"},
            {[](BootByHand& boot) { boot.addToPoll(Kind::SIGNAL, "3 567"); },
             "must not send signal 3 567"},
            {[](BootByHand& boot) { boot.addToPoll(Kind::OPERATION, "1 open /velafs/own"); },
             "touches /velafs/own"},
            {[](BootByHand& boot) {
                 boot.addToPoll(Kind::LOG,
                                "D errNotifyWithReason type = 2, phase=5, detailPhase=0, "
                                "reason=20");
             },
             "must not say \"errNotifyWithReason"},
            {[](BootByHand& boot) {
                 boot.addToPoll(Kind::LOG, "E BOOTVIGIL velafs AvailableSize not enough ");
             },
             "must not say \"BOOTVIGIL velafs AvailableSize not"},
            {[](BootByHand& boot) { boot.addToPoll(Kind::IDLE, "files=0 folders=0 zombies=1"); },
             "zombies=1"},
            {[](BootByHand& boot) { boot.events[4].ms = boot.events[5].ms = 41000; },
             "message 20010 was due at 40.000 s"},
            {[](BootByHand& boot) { boot.events.insert(boot.events.begin() + 1, boot.events[1]); },
             "woke up without a message"},
            {[](BootByHand& boot) { boot.events.resize(11); }, "exits with status 0"},
            {[](BootByHand& boot) {
                 boot.events.resize(11);
                 boot.end = End::STILL_RUNNING;
                 boot.endedAt = 7200000;
             },
             "message 20060 was due at 160.000 s"},
            {[](BootByHand& boot) {
                 boot.end = End::KILLED;
                 boot.status = SIGSEGV;
             },
             "is killed by signal 11"},
            {[](BootByHand& boot) { boot.status = 2; }, "exits with status 2"},
            {[](BootByHand& boot) { boot.properties.erase("sys.vela.BOOT_COMPLETED"); },
             "\"boot finished, enter launcher.\", which must not be"},
            {[](BootByHand& boot) { boot.after["/velafs/SDD/bfflag.txt"] = "4"; },
             "/velafs/SDD/bfflag.txt must not be there"},
            {[](BootByHand& boot) { boot.after.erase("/velafs/boot_vigil/log/"); },
             "/velafs/boot_vigil/log/ is missing"},
            {[](BootByHand& boot) {  // a power cut takes nothing back that is said to be kept
                 boot.after["/velafs/SDD/bfflag.txt"] = "4";
                 boot.add(170, Kind::FAULT, "power-cut");
                 boot.end = End::CUT_OFF;
             },
             "/velafs/SDD/bfflag.txt must not be there"},
            {[](BootByHand& boot) {
                 boot.before["/velafs/SDD/bf_upload/boot_vigil"] = "not collected";
                 boot.after["/velafs/SDD/bf_upload/boot_vigil"] = "replaced";
             },
             "was changed before it was collected"},
            {[](BootByHand& boot) {
                 boot.before["/velafs/SDD/bfflag.txt"] = boot.after["/velafs/SDD/bfflag.txt"] = "4";
             },
             "\"enter submitInfo\" is missing"},
            {[](BootByHand& boot) {
                 boot.before["/velafs/boot_vigil/recovery_flag.txt"] = "11d";
                 boot.after["/velafs/boot_vigil/recovery_flag.txt"] = "11d";
             },
             "\"isRecoverySuccess mode=\" is missing"},
    };
    for (const auto& [misdeed, objection] : cases) {
        BootByHand boot;
        misdeed(boot);
        EXPECT_NE(boot.verdict().find(objection), std::string::npos)
                << "expected: " << objection << "\nsaid: " << boot.verdict();
    }
}

// An injected failure excuses what it can cause, and nothing else.
TEST(Rules, ExcuseOnlyWhatAFaultCanCause) {
    BootByHand lost;
    lost.before["/velafs/SDD/bfflag.txt"] = lost.after["/velafs/SDD/bfflag.txt"] = "4";
    lost.addToPoll(Kind::FAULT, "open /velafs/SDD/bfRecord.txt");
    EXPECT_NE(lost.verdict().find("enter submitInfo"), std::string::npos);
    lost.addToPoll(Kind::FAULT, "open /velafs/SDD/bfflag.txt");
    EXPECT_EQ(lost.verdict(), "");

    lost.addToPoll(Kind::IDLE, "files=1 folders=0 zombies=0");
    EXPECT_NE(lost.verdict().find("leaves open"), std::string::npos);
    lost.addToPoll(Kind::PROPERTY, "sys.velas_recovery_reboot");
    EXPECT_NE(lost.verdict().find("must not set sys.velas_recovery_reboot"), std::string::npos);
}

}  // namespace
}  // namespace lab
