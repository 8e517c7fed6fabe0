// SPDX-License-Identifier: Apache-2.0
// A failure of a simulated device, and the boots from it until it is cured.

#include "lab/fleet/Trouble.h"

#include <algorithm>
#include <utility>

#include "lab/base/DevicePaths.h"
#include "lab/rules/Milestones.h"

namespace lab {

namespace {

using Kind = Trouble::Kind;
using What = Change::Kind;

constexpr int64_t kHour = 3600;  // seconds
// Percent: of troubles that begin with a boot that is switched off before the verdict, of failing
// boots that end in a power cut, and of good boots whose uploads are collected.
constexpr int64_t kSwitchedOff = 8, kPowerCuts = 4, kCollected = 70;
constexpr const char* kPlatformFailure = "sys.vela.boot_fail_reason";
constexpr const char* kWizard = "persist.sys.oobe";

template <typename Value>
struct Weighted {
    int weight;
    Value value;
};

constexpr Weighted<Kind> kKinds[] = {
        {60, Kind::HANG},      {10, Kind::TALK},    {8, Kind::LOOP},      {6, Kind::ERROR},
        {5, Kind::LATE_ERROR}, {3, Kind::KEY_LOCK}, {5, Kind::ANIMATION}, {3, Kind::LATE_COMPLETE},
};

// Most hangs are at a few steps, the others anywhere.
constexpr const char* kAnywhere = "";
constexpr Weighted<const char*> kHangs[] = {
        {22, "AMS:systemReady"},
        {14, "vold:fbeEnable:START"},
        {12, "Zygote:Preload Start"},
        {10, "Android:PackageManagerService_Start"},
        {8, "post-fs-data: on modem start"},
        {7, "Keyguard bindService"},
        {6, "Android:PMS_scan_data:/system/app"},
        {4, "Android:PMS_scan_START"},
        {17, kAnywhere},
};

constexpr Weighted<Cure> kCures[] = {{62, Cure::REBOOT},
                                     {17, Cure::USER},
                                     {14, Cure::RESET},
                                     {7, Cure::NOTHING}};

// In how many boots the failure comes; without a cure, until the device is given up.
int64_t failingBoots(Cure cure, QuickDraw& people) {
    return cure == Cure::NOTHING ? people.between(4, 9) : static_cast<int64_t>(cure) + 1;
}

class BootMaker {
public:
    explicit BootMaker(QuickDraw& people) : mPeople(people) {}

    void fail(const Trouble& trouble) {
        switch (trouble.kind) {
            case Kind::HANG:
                cutAfter(trouble.event);
                break;
            case Kind::TALK:
                cutAfter(trouble.event);
                talk();
                break;
            case Kind::LOOP:
                loop(trouble.event);
                break;
            case Kind::ERROR:
                cutAfter(trouble.event);
                set(mPeople.between(40, 200), kPlatformFailure, "20");
                break;
            case Kind::LATE_ERROR:
                complete(mPeople.between(20, 40));
                set(100, kPlatformFailure, "20");
                break;
            case Kind::KEY_LOCK:
                set(30, "sys.boot_completed", "1");
                set(30, "service.bootanim.exit", "1");
                set(30, kWizard, "1");
                set(mPeople.between(50, 90), kPlatformFailure, "22");
                break;
            case Kind::ANIMATION:
                set(mPeople.between(20, 40), "sys.boot_completed", "1");
                break;
            case Kind::LATE_COMPLETE:
                cutAfter(trouble.event);
                complete(251);
                break;
        }
        // Where the daemon asks for nothing, the device stays as it is until somebody comes.
        end(kHour, What::POWER_CYCLE);
    }

    void complete(int64_t second) {
        for (const char* name : kCompleted) set(second, name, "1");
    }

    // In a complete boot.
    void collectUploads() {
        const int64_t second = mPeople.between(90, 150);
        for (const std::string& upload : {kFailureUpload, kSuccessUpload}) {
            change({second * 1000, What::REMOVE, upload, ""});
        }
    }

    // While the daemon writes its files.
    void cutPower(QuickDraw& power) {
        mBoot.cutAfter = power.between(5, 70);
        mBoot.unsynced = Unsynced::MIXED;
        mBoot.damageSeed = power.below(1000000);
    }

    // Whatever is due later does not come.
    void end(int64_t second, What how) {
        change({second * 1000, how, "", ""});
        auto& all = mBoot.changes;
        std::stable_sort(all.begin(), all.end(),
                         [](const Change& a, const Change& b) { return a.at < b.at; });
        const auto end = std::find_if(all.begin(), all.end(), [](const Change& each) {
            return each.kind >= What::POWER_CYCLE;
        });
        all.erase(end + 1, all.end());
    }

    Boot mBoot;

private:
    void change(const Change& change) {
        mBoot.changes.push_back(change);
    }

    void set(int64_t second, const std::string& name, const std::string& value) {
        change({second * 1000, What::SET, name, value});
    }

    void cutAfter(const std::string& event) {
        mBoot.profile.cutAfter(event);
    }

    void talk() {
        const int64_t every = mPeople.between(15, 40);
        for (int64_t i = 1; i * every < kHour / 2; ++i) {
            mBoot.profile.add(i * every * 1000, "431-netd", "netd: retry " + std::to_string(i));
        }
    }

    void loop(const std::string& milestone) {
        mBoot.profile.cutAfter(milestone);
        mBoot.profile.loop(milestone == kMilestones.front() ? milestone : "boot_progress_start",
                           static_cast<int>(mPeople.between(6, 12)),
                           mPeople.between(10, 30) * 1000);
    }

    QuickDraw& mPeople;
};

// Whether the daemon does anything about it. What hangs in the system server while others log on
// has no pid, and the daemon sends the signal to itself.
bool isRecovered(const Trouble& trouble) {
    if (trouble.kind != Kind::TALK) return trouble.kind != Kind::ANIMATION;
    const auto& events = ProfileScript::healthy().events();
    const auto place = [&](const std::string& name) {
        return std::find_if(events.begin(), events.end(),
                            [&](const auto& event) { return event.name == name; });
    };
    return place(trouble.event) < place("Android:SysServerInit_START");
}

}  // namespace

Cure drawCure(QuickDraw& draw) {
    return draw.weighted(kCures).value;
}

Trouble drawTrouble(QuickDraw& draw, time_t at) {
    Trouble trouble;
    trouble.at = at;
    trouble.kind = draw.weighted(kKinds).value;
    trouble.event = draw.weighted(kHangs).value;
    if (trouble.event == kAnywhere) {
        trouble.event = draw.of(ProfileScript::healthy().events()).name;
    }
    if (trouble.kind == Kind::LOOP) trouble.event = draw.of(kMilestones);
    if (trouble.kind == Kind::ERROR) trouble.event = "AMS:systemReady";
    trouble.cure = drawCure(draw);
    if (trouble.kind == Kind::LATE_COMPLETE) trouble.cure = Cure::REBOOT;
    return trouble;
}

std::vector<Boot> bootsOf(const Trouble& trouble, QuickDraw& people, QuickDraw& power) {
    std::vector<Boot> boots;
    time_t at = trouble.at;
    // A boot after somebody came to the device; else it follows by itself.
    const auto add = [&](BootMaker& maker, bool somebody) {
        // Whatever the device does by itself is over by then.
        if (!boots.empty() && somebody) at += people.between(2 * kHour, 14 * kHour);
        if (boots.empty() || somebody) maker.mBoot.clock = at;
        boots.push_back(std::move(maker.mBoot));
    };
    if (people.percent(kSwitchedOff)) {
        BootMaker boot(people);
        boot.fail(trouble);
        boot.end(people.between(30, 200), What::POWER_CYCLE);
        add(boot, false);
    }
    const int64_t failing = failingBoots(trouble.cure, people);
    bool waits = false;
    for (int64_t i = 0; i < failing; ++i) {
        BootMaker boot(people);
        boot.fail(trouble);
        if (power.percent(kPowerCuts)) boot.cutPower(power);
        add(boot, waits);
        // Its actions are a reboot, to wait for the user, a reset, and none in the boot after that.
        waits = i % 2 == 1 || !isRecovered(trouble);
    }
    if (trouble.cure == Cure::NOTHING) return boots;
    BootMaker good(people);
    if (trouble.kind == Kind::KEY_LOCK) good.mBoot.properties[kWizard] = "2";  // it was opened
    good.complete(people.between(20, 60));
    if (people.percent(kCollected)) good.collectUploads();
    good.end(kHour, What::END);
    add(good, waits);
    return boots;
}

}  // namespace lab
