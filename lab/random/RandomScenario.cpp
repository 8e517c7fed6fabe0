// SPDX-License-Identifier: Apache-2.0
// Devices and boots made up from a seed: healthy, slow, stalled, looping and damaged ones, with
// people who cut the power, properties that hold garbage, and calls that fail.

#include "lab/random/RandomScenario.h"

#include <signal.h>

#include <algorithm>
#include <random>

#include "lab/base/DevicePaths.h"
#include "lab/base/Files.h"
#include "lab/rules/Milestones.h"

namespace lab {

namespace {

// A stream of its own for each subject, so that one more draw here leaves the others as they were.
class Draw {
public:
    Draw(uint64_t seed, uint64_t stream) : mEngine(engineOf(seed, stream)) {}

    // From 0 to below `limit`.
    int64_t below(int64_t limit) {
        return static_cast<int64_t>(mEngine() % static_cast<uint64_t>(limit));
    }
    int64_t between(int64_t least, int64_t most) {
        return least + below(most - least + 1);
    }
    bool percent(int64_t chance) {
        return below(100) < chance;
    }
    template <typename List>
    const auto& of(const List& list) {
        return list[static_cast<size_t>(below(static_cast<int64_t>(std::size(list))))];
    }

private:
    static std::mt19937_64 engineOf(uint64_t seed, uint64_t stream) {
        std::seed_seq sequence{static_cast<uint32_t>(seed), static_cast<uint32_t>(seed >> 32),
                               static_cast<uint32_t>(stream)};
        return std::mt19937_64(sequence);
    }

    std::mt19937_64 mEngine;
};

constexpr const char* kGarbage[] = {"", " ", "yes", "-1", "2", "0x1", "1 ", "999999999999", "\x01"};
// Only the first three switch anything off.
constexpr const char* kSwitches[] = {"BfRecover=NO\n",  "BfRecover=NO",     "x\nBfRecover=NO\n",
                                     "BfRecover=YES\n", " BfRecover=NO\n",  "BfRecover=NO \n",
                                     "BfRecover=no\n",  "BfRecover=NO\r\n", ""};
constexpr const char* kCommandLines[] =
        {"quiet FlashID=90014a483942 mem_index=3 poffsts=0x09a1b\n",
         "quiet FlashID=90014a483942 mem_index=3\n",
         "quiet poffsts=0x09 FlashID=90014a483942 mem_index=3\n",
         "poffsts=0x01 quiet\nFlashID=1 mem_index=2 poffsts=0x0a\nmem_index=7 xFlashID=2 quiet\n",
         "quiet poffsts=0x02 poffsts=0x0b\nquiet\n",
         "quiet mem_index=1 poffsts=",
         "poffsts=\nquiet\n",
         ""};
constexpr int64_t kLongestBoot = 1500;  // seconds

// All calls that the daemon makes: it renames nothing.
constexpr Fault::Call kFailingCalls[] = {Fault::Call::OPEN,  Fault::Call::WRITE,
                                         Fault::Call::CLOSE, Fault::Call::REMOVE,
                                         Fault::Call::MKDIR, Fault::Call::CHMOD,
                                         Fault::Call::POPEN, Fault::Call::MALLOC};
constexpr Unsynced kDamages[] = {Unsynced::KEPT, Unsynced::LOST, Unsynced::EMPTIED, Unsynced::CUT,
                                 Unsynced::MIXED};

// The real profile, with times in whole milliseconds as a scenario's file has them.
const ProfileScript& healthyProfile() {
    static const ProfileScript profile = [] {
        ProfileScript rounded;
        for (const ProfileScript::Event& event : ProfileScript::healthy().events()) {
            rounded.add(event.us / 1000, event.by(), event.name);
        }
        return rounded;
    }();
    return profile;
}

// How likely what is, in percent.
struct Odds {
    int64_t stall = 0;
    int64_t loop = 0;
    int64_t slow = 0;
    int64_t wizard = 0;
    int64_t oddEvent = 0;
    int64_t damagedProfile = 0;
    int64_t systemError = 0;
    int64_t keptLogs = 0;
    int64_t person = 0;
    int64_t powerCut = 0;
    int64_t failing = 0;
    int64_t noSpace = 0;
    int64_t absent = 0;
    int64_t clock = 0;
    int64_t signal = 0;
    int64_t garbage = 0;
    int64_t settings = 0;
    int64_t service = 0;
    int64_t collector = 0;
    int64_t leftovers = 0;
    int64_t full = 0;
    int64_t commandLine = 0;

    // Drawn once for a scenario, with whole kinds of events left out.
    void draw(Draw& draw) {
        for (int64_t* chance :
             {&stall,  &loop,     &slow,     &damagedProfile, &systemError, &keptLogs,
              &person, &powerCut, &failing,  &noSpace,        &absent,      &clock,
              &signal, &garbage,  &settings, &service,        &collector,   &leftovers,
              &wizard, &oddEvent, &full,     &commandLine}) {
            *chance = draw.percent(40) ? 0 : draw.between(1, 40);
        }
    }
};

class BootMaker {
public:
    BootMaker(const Odds& odds, uint64_t seed, uint64_t number)
        : mOdds(odds),
          mCourse(seed, 100 * number),
          mPlatform(seed, 100 * number + 1),
          mPeople(seed, 100 * number + 2),
          mFaults(seed, 100 * number + 3) {}

    Boot make() {
        mBoot.profile = healthyProfile();
        if (mCourse.percent(mOdds.stall)) {
            stall();
        } else if (mCourse.percent(mOdds.loop)) {
            loop();
        } else if (mCourse.percent(mOdds.wizard)) {
            wizard();
        } else if (mCourse.percent(mOdds.damagedProfile)) {
            damagedProfile();
        } else {
            complete();
        }
        platform();
        people();
        faults();
        return finish();
    }

    Boot makeHealthy() {
        mBoot.profile = healthyProfile();
        completeAt(20 + mCourse.below(40));
        return finish();
    }

    Boot makeStalled() {
        stall();
        mBoot.changes.push_back({600000, Change::Kind::POWER_CYCLE, "", "", 0});
        return finish();
    }

private:
    void set(int64_t second, const std::string& name, const std::string& value) {
        mBoot.changes.push_back({second * 1000, Change::Kind::SET, name, value, 0});
    }

    void completeAt(int64_t second) {
        mBoot.about += " completes at " + std::to_string(second);
        for (const char* name :
             {"sys.boot_completed", "service.bootanim.exit", "sys.vela.BOOT_COMPLETED"}) {
            // Early, late, never, or not to be read as a number.
            if (mCourse.percent(mOdds.garbage)) {
                if (mCourse.percent(50)) set(second, name, mCourse.of(kGarbage));
            } else {
                set(second + (mCourse.percent(mOdds.slow) ? mCourse.below(300) : 0), name, "1");
            }
        }
    }

    void complete() {
        const bool slow = mCourse.percent(mOdds.slow);
        if (slow && mCourse.percent(mOdds.oddEvent)) {
            cutAnywhere();
            addOddEvent();
        } else if (slow) {
            mBoot.profile.stretch(static_cast<double>(mCourse.between(2, 60)));
        }
        completeAt(slow ? mCourse.between(60, kLongestBoot) : mCourse.between(20, 60));
    }

    // It is waited for so long that it counts as stuck, or nearly so, and then it is done.
    void wizard() {
        mBoot.about += " slow set-up wizard";
        const int64_t second = mCourse.between(20, 60);
        set(second, "sys.boot_completed", "1");
        set(second, "service.bootanim.exit", "1");
        const char* phase = mCourse.percent(50) ? "1" : "2";
        mBoot.properties["persist.sys.oobe"] = phase;
        const int64_t done =
                mCourse.percent(85) ? mCourse.between(1000, 1450) : mCourse.between(240, 1000);
        if (*phase == '2' && mCourse.percent(40)) {
            mBoot.profile.add(done * 1000, "1113-system_server", "Post BOOT_COMPLETED");
        } else {
            set(done, "sys.vela.BOOT_COMPLETED", "1");
        }
    }

    // Gives the last event.
    std::string cutAnywhere() {
        std::string last = mCourse.of(healthyProfile().events()).name;
        mBoot.profile = healthyProfile();
        mBoot.profile.cutAfter(last);
        return last;
    }

    // After the last one: one that the daemon knows to be slow, or one with much to tell.
    void addOddEvent() {
        const int64_t last = mBoot.profile.events().back().us / 1000;
        const bool slow = mCourse.percent(60);
        std::string name = "Android:performDexOpt " + std::to_string(mCourse.below(9));
        if (!slow) {
            name = "a";
            for (int64_t i = mCourse.between(15, 70); i > 0; --i) name += " long story;";
        }
        mBoot.profile.add(last + mCourse.below(60000), "1113-system_server", name);
        mBoot.about += slow ? ", optimising packages" : ", an event of many words";
    }

    void stall() {
        mFails = true;
        mBoot.about += " stalls after " + cutAnywhere();
        if (mCourse.percent(mOdds.oddEvent)) return addOddEvent();
        // Others may go on logging for a while.
        for (int64_t i = mCourse.percent(30) ? mCourse.below(20) : 0; i > 0; --i) {
            mBoot.profile.add(mCourse.below(400000), "551-surfaceflinger",
                              "still here " + std::to_string(i));
        }
    }

    void loop() {
        mFails = true;
        const std::string milestone = mCourse.of(kMilestones);
        mBoot.profile.cutAfter(mCourse.of(kMilestones));
        mBoot.about += " loops on " + milestone;
        mBoot.profile.loop(milestone, static_cast<int>(mCourse.between(1, 12)),
                           mCourse.between(1, 120) * 1000);
    }

    void damagedProfile() {
        std::string text = healthyProfile().at(mCourse.below(30000));
        for (int64_t i = mCourse.between(1, 20); i > 0 && !text.empty(); --i) {
            const auto at = static_cast<size_t>(mCourse.below(static_cast<int64_t>(text.size())));
            switch (mCourse.below(4)) {
                case 0:
                    text.erase(at, static_cast<size_t>(mCourse.below(200)));
                    break;
                case 1:
                    text.insert(at, mCourse.percent(50) ? " :" : "\n\n");
                    break;
                case 2:
                    text.insert(at, text.substr(text.size() / 2, 300));
                    break;
                default:
                    text[at] = static_cast<char>(mCourse.between(1, 126));
            }
        }
        mBoot.profileText = text;
        mBoot.about += " damaged profile";
        if (mCourse.percent(50)) completeAt(mCourse.between(20, 400));
    }

    void platform() {
        if (mPlatform.percent(mOdds.systemError)) {
            static constexpr const char* kReasons[] = {"20", "22", "120", "21", "300", "276", "x"};
            set(mPlatform.below(400), "sys.vela.boot_fail_reason", mPlatform.of(kReasons));
        }
        for (const char* kept : {"/dev/velarawlog/init", "/dev/velarawlog/kernel"}) {
            if (mPlatform.percent(mOdds.keptLogs)) mBoot.files[kept] = "kept\n";
        }
        if (mPlatform.percent(mOdds.keptLogs)) mBoot.files["/" + kHealth] = "good\n";
        if (mPlatform.percent(mOdds.service)) {
            for (const char* name : {"init.svc.kel", "init.svc.kelvservice"}) {
                mBoot.properties[name] = mPlatform.percent(85) ? "running" : "stopped";
            }
            if (mPlatform.percent(70)) mBoot.kelAnswersAfter = mPlatform.below(90) * 1000;
        }
        if (mPlatform.percent(mOdds.settings)) {
            static constexpr const char* kOobe[] = {"1", "2", "0", "x"};
            mBoot.properties["persist.sys.oobe"] = mPlatform.of(kOobe);
        }
        if (mPlatform.percent(mOdds.garbage) && mPlatform.percent(20)) {
            mBoot.properties["ro.boot.mode"] = mPlatform.percent(50) ? "charger" : "normal ";
        }
        if (mPlatform.percent(mOdds.absent) && mPlatform.percent(30)) mBoot.partitionAbsent = true;
        if (mPlatform.percent(5)) mBoot.profilePath = "/proc/velabootprof";
    }

    void people() {
        for (const std::string& upload : {kFailureUpload, kSuccessUpload}) {
            if (mPeople.percent(mOdds.collector)) {
                mBoot.changes.push_back(
                        {mPeople.below(600000), Change::Kind::REMOVE, upload, "", 0});
            }
        }
        if (mPeople.percent(mOdds.person)) {
            mBoot.changes.push_back(
                    {mPeople.between(1, 900) * 1000, Change::Kind::POWER_CYCLE, "", "", 0});
        }
        if (mPeople.percent(mOdds.settings)) {
            mBoot.changes.push_back({mPeople.below(300000), Change::Kind::WRITE, kSwitch,
                                     mPeople.of(kSwitches), 0});
        }
        if (mPeople.percent(mOdds.clock)) {
            mBoot.changes.push_back({mPeople.below(500000), Change::Kind::CLOCK, "", "",
                                     mPeople.between(-400000, 400000)});
        }
    }

    void faults() {
        if (mFaults.percent(mOdds.signal)) {
            static constexpr int kSignals[] = {SIGTERM,  SIGKILL, SIGCHLD,
                                               SIGWINCH, SIGCONT, SIGQUIT};
            mBoot.changes.push_back(
                    {mFaults.below(600000), Change::Kind::SIGNAL, "", "", mFaults.of(kSignals)});
        }
        if (mFaults.percent(mOdds.failing)) {
            for (int64_t i = mFaults.between(1, 3); i > 0; --i) {
                Fault fault;
                const bool open = mFails && mFaults.percent(30);
                fault.call = open ? Fault::Call::OPEN : mFaults.of(kFailingCalls);
                fault.nth = nthOf(fault.call);
                fault.times = mFaults.percent(70) ? 1 : mFaults.between(2, 100);
                mBoot.faults.push_back(fault);
            }
        }
        if (mFaults.percent(mOdds.noSpace)) {
            mBoot.space = mFaults.percent(50) ? mFaults.below(600) : mFaults.below(60000);
        }
        if (mFaults.percent(mOdds.powerCut)) mBoot.cutAfter = mFaults.between(1, 120);
        mBoot.unsynced = mFaults.of(kDamages);
        mBoot.damageSeed = mFaults.below(1000000);
    }

    int64_t nthOf(Fault::Call call) {
        // There are many more allocations than other calls.
        if (call == Fault::Call::MALLOC) return mFaults.between(1, 3000);
        // A recovery opens its few files after some thirty others.
        if (call == Fault::Call::OPEN && mFails && mFaults.percent(70)) {
            return mFaults.between(24, 38);
        }
        return mFaults.between(1, mFaults.percent(50) ? 30 : 90);
    }

    Boot finish() {
        mBoot.changes.push_back({kLongestBoot * 1000, Change::Kind::END, "", "", 0});
        std::stable_sort(mBoot.changes.begin(), mBoot.changes.end(),
                         [](const Change& a, const Change& b) { return a.at < b.at; });
        // Nothing comes after the boot's end.
        const auto end =
                std::find_if(mBoot.changes.begin(), mBoot.changes.end(), [](const Change& change) {
                    return change.kind >= Change::Kind::POWER_CYCLE;
                });
        mBoot.changes.erase(end + 1, mBoot.changes.end());
        return mBoot;
    }

    const Odds& mOdds;
    Boot mBoot;
    bool mFails = false;  // by itself
    Draw mCourse;
    Draw mPlatform;
    Draw mPeople;
    Draw mFaults;
};

// What earlier boots, or somebody else, may have left on the partition.
void addLeftovers(Draw& draw, const Odds& odds, TextMap& files) {
    // Most often the next step is a reset.
    static constexpr const char* kHistories[] = {"22d", "22d", "22d", "22d", "11d", "35d", "11\x16",
                                                 "11x", "53d", "",    "1",   "x",   "13d", "45d"};
    static constexpr const char* kLists[] = {"100|11500\n100|51000\n",
                                             "100|12500\n20|15000\n",
                                             "100|11111\n",
                                             "100|51000\n",
                                             "100|125\n",
                                             "100|13500\n",
                                             "120|22222\n",
                                             "no list\n|\n",
                                             "100|00000\n",
                                             "100|52000\n100|1\n",
                                             "20|15000\n100|12500\n100|21500\n"};
    const std::string record =
            "TIME:Sun Nov 15 10:05:18 2026;    ERR_NUM:0x401564;    ERR_INFO:567-main  | x;    "
            "ERR_EXPINFO:Country(NG)  ;\n";
    const auto maybe = [&](const std::string& path, const std::string& content) {
        if (draw.percent(odds.leftovers)) files[path] = content;
    };
    maybe(kHistory, draw.of(kHistories));
    maybe(kOverride, draw.of(kLists));
    maybe(kSwitch, draw.of(kSwitches));
    maybe(kReason, "2");
    maybe(kPmic, "x");
    maybe(kHwInfo, "FlashID=1 ");
    for (const std::string& upload : {kFailureUpload, kSuccessUpload}) {
        maybe(upload, "not collected yet");
    }
    std::string records;
    for (int64_t i = draw.below(60); i > 0; --i) records += record;
    if (draw.percent(20)) records.resize(records.size() / 2);
    maybe(kRecord, records);
    maybe(kFlag, draw.percent(80) ? "4" : "");
}

}  // namespace

Scenario randomScenario(uint64_t seed, Boots boots) {
    Draw device(seed, 0);
    Odds odds;
    Scenario scenario;
    scenario.about = "seed " + std::to_string(seed);
    scenario.clock += device.below(10000000);
    scenario.commandLine = "quiet FlashID=90014a483942 mem_index=3 poffsts=0x09\n";
    scenario.properties["ro.boot.mode"] = "normal";
    scenario.logSizes = {{"main", 3000}, {"system", 500}, {"events", 500},
                         {"radio", 200}, {"crash", 0},    {"kernel", 2000}};
    if (boots != Boots::ALL) {
        scenario.files[kMarker] = "";
        for (uint64_t i = 1; i <= 5; ++i) {
            BootMaker maker(odds, seed, i);
            scenario.boots.push_back(boots == Boots::HEALTHY ? maker.makeHealthy()
                                                             : maker.makeStalled());
        }
        return scenario;
    }

    odds.draw(device);
    if (!device.percent(30)) scenario.files[kMarker] = "";
    if (device.percent(odds.settings)) {
        static constexpr const char* kSupport[] = {"0", "1", "x"};
        scenario.properties["ro.vela.bfRecovery.support"] = device.of(kSupport);
    }
    if (device.percent(odds.settings)) scenario.properties["persist.sys.enable_rescue"] = "true";
    if (device.percent(odds.settings)) scenario.properties["persist.sys.bootvigil.debug"] = "1";
    if (device.percent(odds.settings)) {
        // Who watches from the kernel: nobody else, unless this is a number.
        static constexpr const char* kWatches[] = {"1", "0", "-1", "x", "01x", " 2"};
        scenario.properties["persist.sys.bootvigil.debug.startbootvigil"] = device.of(kWatches);
    }
    if (device.percent(odds.commandLine)) scenario.commandLine = device.of(kCommandLines);
    if (device.percent(odds.settings)) scenario.properties["persist.sys.oobe_country"] = "NG";
    if (device.percent(odds.garbage)) scenario.logSizes["main"] = device.below(300000);
    if (device.percent(odds.garbage)) scenario.nulLogs.insert("system");
    if (device.percent(odds.garbage)) scenario.logSizes["kernel"] = 0;
    if (device.percent(odds.absent) && device.percent(20)) scenario.logFolder = false;
    scenario.rebootAfter = device.between(5, 20) * 1000;
    addLeftovers(device, odds, scenario.files);
    // A recovery under way on a first boot is the one that must not reset again.
    if (scenario.files.count(kHistory) != 0 && device.percent(40)) {
        scenario.files.erase(kMarker);
    }
    for (auto number = static_cast<uint64_t>(device.between(1, 7)); number > 0; --number) {
        scenario.boots.push_back(BootMaker(odds, seed, number).make());
    }

    const bool absentAtTimes = std::any_of(scenario.boots.begin(), scenario.boots.end(),
                                           [](const Boot& boot) { return boot.partitionAbsent; });
    if (!absentAtTimes && device.percent(odds.absent)) {
        // A file system of its own, which can become read-only.
        scenario.partitionSize = 8 << 20;
        for (Boot& boot : scenario.boots) {
            if (!device.percent(30)) continue;
            const Change change = {device.below(300000), Change::Kind::READ_ONLY, kPartition, "",
                                   0};
            const auto later = std::find_if(boot.changes.begin(), boot.changes.end(),
                                            [&](const Change& c) { return c.at > change.at; });
            if (later != boot.changes.end()) boot.changes.insert(later, change);
        }
    }
    // What a command prints without end must come to an end where there is no room for it.
    if (device.percent(odds.full) && device.percent(30)) {
        for (Boot& boot : scenario.boots) {
            if (!boot.space) boot.space = device.below(device.percent(50) ? 2000 : 60000);
        }
    }
    const bool limited = std::all_of(scenario.boots.begin(), scenario.boots.end(),
                                     [](const Boot& boot) { return boot.space.has_value(); });
    if (limited) {
        static constexpr const char* kEndless[] = {"crash", "events", "radio"};
        scenario.endlessLogs.insert(device.of(kEndless));
    }
    return scenario;
}

}  // namespace lab
