// SPDX-License-Identifier: Apache-2.0
// Boots made up from a seed whose truth is known: what hangs, or that nothing does.

#include "lab/random/KnownBoots.h"

#include <stdlib.h>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <stdexcept>
#include <utility>

#include "lab/base/DevicePaths.h"
#include "lab/base/Text.h"
#include "lab/rules/Codes.h"
#include "lab/rules/Milestones.h"

namespace lab {

namespace {

using Event = ProfileScript::Event;
using Events = std::vector<Event>;

constexpr int64_t kSecond = 1000000;  // us, the unit of an event's time
constexpr int64_t kLooked = 3600;     // seconds that a stalled device is left alone
constexpr int64_t kSilence = 240 * kSecond;
constexpr int kLoopRounds = 40;
constexpr char kRestart[] = "boot_progress_start";  // the first event after a restart
constexpr char kPackagesReady[] = "Android:PMS_READY";

int pidOf(const Event& event) {
    return atoi(event.rest.c_str() + 1);
}

Events healthyEvents(double stretch) {
    ProfileScript profile = ProfileScript::healthy();
    profile.stretch(stretch);
    Events events = profile.events();
    // A line of the boot loader may look like an event.
    while (pidOf(events.front()) == 0) events.erase(events.begin());
    return events;
}

size_t indexOf(const Events& events, const std::string& name) {
    const auto found = std::find_if(events.begin(), events.end(),
                                    [&](const Event& event) { return event.name == name; });
    if (found == events.end()) throw std::runtime_error("no event " + name);
    return static_cast<size_t>(found - events.begin());
}

Event makeEvent(int64_t us, int pid, const char* process, const std::string& name) {
    return {us, format(":%5d-%-16s: ", pid, process) + name, name};
}

// A device whose log-capture service answers at once: the capture is not what is measured here.
Scenario device(bool firstBoot, Events events, int64_t endMs) {
    Scenario scenario;
    scenario.commandLine = "poffsts=0x09 FlashID=90014a483942 mem_index=3\n";
    scenario.properties = {{"init.svc.kel", "running"}, {"init.svc.kelvservice", "running"}};
    scenario.logSizes = {{"main", 0}};
    if (!firstBoot) scenario.files[kMarker] = "";
    Boot boot;
    boot.profile.setEvents(std::move(events));
    boot.kelAnswersAfter = 0;
    boot.changes = {{endMs, Change::Kind::END, "", ""}};
    scenario.boots.push_back(std::move(boot));
    return scenario;
}

// Where a boot hangs once.
enum Where {
    BEFORE_SERVER,
    IN_SERVER,
    ANYWHERE,  // in one of these
    PACKAGES_READY,
    RESTARTED_SERVER
};

// A boot that hangs, under construction.
class Stall {
public:
    explicit Stall(QuickDraw& draw) : mDraw(draw) {}

    // Once, after an event anywhere in that part of the profile.
    Stall& hang(Where where) {
        mAll = healthyEvents(factor(20));
        const size_t server = indexOf(mAll, "Android:SysServerInit_START");
        const bool early =
                where == BEFORE_SERVER || (where == ANYWHERE && mDraw.between(0, 1) != 0);
        const auto anyEvent = [&] {
            return early ? mDraw.between(0, server - 1) : mDraw.between(server, mAll.size() - 1);
        };
        size_t from = 0;
        if (where == RESTARTED_SERVER) {
            addRound(0, anyEvent(), 0);
            from = indexOf(mAll, kRestart);
        }
        const size_t last = where == PACKAGES_READY ? indexOf(mAll, kPackagesReady) : anyEvent();
        addRound(from, last, from == 0 ? 0 : mDraw.between(3, 30) * kSecond);
        setTruth(early);
        return *this;
    }

    // The device restarts again and again at the same step, perhaps after a run that got further.
    void loop(bool afterMore) {
        mAll = healthyEvents(factor(4));
        const size_t milestone = mDraw.between(0, kMilestones.size() - (afterMore ? 2 : 1));
        const bool last = milestone == kMilestones.size() - 1;
        const size_t reached = indexOf(mAll, kMilestones[milestone]);
        const size_t missed = last ? mAll.size() : indexOf(mAll, kMilestones[milestone + 1]);
        const size_t dies = mDraw.between(reached, missed - 1);
        const size_t from = milestone == 0 ? reached : indexOf(mAll, kRestart);
        const int64_t pause = mDraw.between(3, 60) * kSecond;
        addRound(0, afterMore ? mDraw.between(missed, mAll.size() - 1) : dies, 0);
        if (afterMore) addRound(from, dies, pause);
        setTruth(true);
        mTruth.detail =
                last ? kOtherDetail : static_cast<int>(milestone) + 1 + kFirstMilestoneDetail;
        for (int i = 0; i < kLoopRounds; ++i) addRound(from, dies, pause);
    }

    void addOptimisation() {
        mEvents.push_back(
                makeEvent(mTruth.at, mTruth.pid, "system_server", "performDexOpt 37/120"));
    }

    void addNoiseBefore() {
        for (int64_t i = mDraw.between(5, 40); i > 0; --i)
            addStray(mDraw.between(0, mTruth.at - 1));
    }

    void addStraysAfter() {
        for (int64_t i = mDraw.between(1, 3); i > 0; --i) {
            addStray(mTruth.at + mDraw.between(30, 600) * kSecond);
        }
    }

    // Another process logs the same event again and again, or counts in it.
    void addTalkAfter(bool counting) {
        const int64_t period = mDraw.between(5, 150);
        addStray(0);
        const Event sample = mEvents.back();
        mEvents.pop_back();
        for (int64_t i = 1; i * period < kLooked; ++i) {
            mEvents.push_back(sample);
            mEvents.back().us = mTruth.at + i * period * kSecond;
            if (counting) mEvents.back().rest += " " + std::to_string(i);
        }
    }

    void hidePid() {
        mTruth.pid = 0;
        mEvents.back().rest = ":  kernel_worker       : " + mEvents.back().name;
    }

    KnownBoot finish(bool firstBoot) {
        return {device(firstBoot, std::move(mEvents), mTruth.at / 1000 + kLooked * 1000), mTruth,
                false};
    }

private:
    // From 1 to `most`, small ones as often as large ones.
    double factor(double most) {
        return std::pow(most, static_cast<double>(mDraw.between(0, 1000)) / 1000);
    }

    // Adds the events `from` to `to` of the profile, `pause` after what is there.
    void addRound(size_t from, size_t to, int64_t pause) {
        const int64_t shift = (mEvents.empty() ? 0 : mEvents.back().us - mAll[from].us) + pause;
        for (size_t i = from; i <= to; ++i) {
            mEvents.push_back(mAll[i]);
            mEvents.back().us += shift;
        }
    }

    // An event of a process that has nothing to do with the hang.
    void addStray(int64_t us) {
        const int pid = static_cast<int>(mDraw.between(200, 9999));
        mEvents.push_back(makeEvent(us, pid == mTruth.pid ? pid + 1 : pid, "modemd",
                                    "modem " + std::to_string(mDraw.between(1, 1000000))));
    }

    // The last event so far is what hangs.
    void setTruth(bool early) {
        mTruth = {pidOf(mEvents.back()), early ? kNativePhase : kSystemServerPhase,
                  early ? kNativeDetail : kSystemServerDetail, mEvents.back().us};
    }

    QuickDraw& mDraw;
    Events mAll;  // of the profile
    Events mEvents;
    Truth mTruth;
};

struct StallKind {
    const char* name;
    void (*make)(Stall&);
};

const StallKind kStalls[] = {
        {"before the system server, then silence", [](Stall& boot) { boot.hang(BEFORE_SERVER); }},
        {"in the system server, then silence", [](Stall& boot) { boot.hang(IN_SERVER); }},
        {"other processes busy before it",
         [](Stall& boot) { boot.hang(ANYWHERE).addNoiseBefore(); }},
        {"1 to 3 stray events of others after it",
         [](Stall& boot) { boot.hang(ANYWHERE).addStraysAfter(); }},
        {"another process counts on after it",
         [](Stall& boot) { boot.hang(ANYWHERE).addTalkAfter(true); }},
        {"another process repeats one event after it",
         [](Stall& boot) { boot.hang(ANYWHERE).addTalkAfter(false); }},
        {"last event logged without a pid", [](Stall& boot) { boot.hang(ANYWHERE).hidePid(); }},
        {"in package optimisation",
         [](Stall& boot) { boot.hang(PACKAGES_READY).addOptimisation(); }},
        {"in a system server that had restarted", [](Stall& boot) { boot.hang(RESTARTED_SERVER); }},
        {"restart loop", [](Stall& boot) { boot.loop(false); }},
        {"restart loop after a run that got further", [](Stall& boot) { boot.loop(true); }},
};

// A boot that takes its time and ends well, under construction.
struct SlowBoot {
    QuickDraw& draw;
    Events events = healthyEvents(1);
    int64_t end = draw.between(60, 2400) * kSecond;
    int64_t late = end - events.back().us;

    void stretch() {
        events = healthyEvents(static_cast<double>(end) / static_cast<double>(events.back().us));
    }

    void delay(size_t first) {
        for (size_t i = first; i < events.size(); ++i) events[i].us += late;
    }

    void delayAnywhere() {
        delay(draw.between(1, events.size() - 1));
    }

    void optimise(bool counting) {
        const int64_t step = counting ? draw.between(5, 60) * kSecond : end;
        const size_t ready = indexOf(events, kPackagesReady);
        delay(ready + 1);
        const int64_t from = events[ready].us + 1000;
        for (int64_t at = from; at < from + late; at += step) {
            events.push_back(makeEvent(at, pidOf(events[ready]), "system_server",
                                       "performDexOpt " + std::to_string((at - from) / step)));
        }
    }
};

struct SlowKind {
    const char* name;
    void (*make)(SlowBoot&);
};

const SlowKind kSlowBoots[] = {
        {"every event later", [](SlowBoot& boot) { boot.stretch(); }},
        {"one long step", [](SlowBoot& boot) { boot.delayAnywhere(); }},
        {"late end, no event before it", [](SlowBoot&) {}},
        {"package optimisation, silent", [](SlowBoot& boot) { boot.optimise(false); }},
        {"package optimisation, counting", [](SlowBoot& boot) { boot.optimise(true); }},
};
constexpr size_t kSlowKinds = std::size(kSlowBoots);

// Whether the boot, or the wait for its end, has four minutes without an event.
bool isSilent(const Events& events, int64_t end) {
    int64_t since = 0;
    for (const Event& event : events) {
        if (event.us - since >= kSilence) return true;
        since = event.us;
    }
    return end - since >= kSilence;
}

}  // namespace

std::vector<std::string> stallKinds() {
    std::vector<std::string> names;
    for (const StallKind& kind : kStalls) names.emplace_back(kind.name);
    return names;
}

std::vector<std::string> slowKinds() {
    std::vector<std::string> names;
    for (const std::string before : {"", "first boot: "}) {
        for (const SlowKind& kind : kSlowBoots) names.push_back(before + kind.name);
    }
    return names;
}

KnownBoot makeStall(QuickDraw& draw, size_t kind) {
    const bool firstBoot = draw.between(1, 5) == 1;
    Stall stall(draw);
    kStalls[kind].make(stall);
    return stall.finish(firstBoot);
}

KnownBoot makeSlowBoot(QuickDraw& draw, size_t kind) {
    SlowBoot slow = {draw};
    kSlowBoots[kind % kSlowKinds].make(slow);
    const int64_t end = slow.end / 1000;
    Scenario scenario = device(kind >= kSlowKinds, std::move(slow.events), end + 300000);
    Boot& boot = scenario.boots.front();
    for (const char* name : kCompleted) {
        boot.changes.insert(boot.changes.end() - 1, {end, Change::Kind::SET, name, "1"});
    }
    const bool silent = isSilent(boot.profile.events(), slow.end);
    return {std::move(scenario), {}, silent};
}

}  // namespace lab
