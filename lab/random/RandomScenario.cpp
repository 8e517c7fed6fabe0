// SPDX-License-Identifier: Apache-2.0
// Devices and boots made up from a seed: healthy, slow, stalled, looping and damaged ones, with
// people who cut the power, properties that hold garbage, and calls that fail.

#include "lab/random/RandomScenario.h"

#include <signal.h>
#include <stdlib.h>

#include <algorithm>
#include <functional>
#include <iterator>
#include <string>
#include <vector>

#include "lab/base/DevicePaths.h"
#include "lab/base/Draw.h"
#include "lab/rules/Milestones.h"

namespace lab {

namespace {

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
constexpr const char* kOddRecords[] = {"TIME:now;    ERR_NUM:0x401564;    ERR_INFO:567-main;\n",
                                       "TIME:now;    ERR_NUM:0x601564;    ERR_INFO:567-main;\n",
                                       "TIME:now;    ERR_NUM:0x1564;    ERR_INFO:567-main;\n",
                                       "TIME:now;    ERR_NUM:0x401564;    ERR_INFO;\n",
                                       "TIME:now;    ERR_NUM;    ERR_INFO:567-main;\n",
                                       "TIME;    ERR_NUM:0x401564;    ERR_INFO:567-main;\n",
                                       "TIME:now;    ERR_NUM:0x401564\n",
                                       "no record\n"};
using What = Change::Kind;
constexpr int64_t kLongestBoot = 1500;  // seconds

using Call = Fault::Call;
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

// How likely what is, in percent. The order is the one in which the odds are drawn.
struct Odds {
    std::function<int64_t()> next = [] { return 0; };
    int64_t stall = next(), loop = next(), slow = next(), damagedProfile = next(),
            systemError = next(), keptLogs = next(), person = next(), powerCut = next(),
            failing = next(), noSpace = next(), absent = next(), clock = next(), signal = next(),
            garbage = next(), settings = next(), service = next(), collector = next(),
            leftovers = next(), wizard = next(), oddEvent = next(), full = next(),
            commandLine = next();
};

// A text by its name, and what it may be.
struct Choice {
    std::string name;
    std::vector<const char*> values;
};

class BootMaker {
public:
    BootMaker(const Odds& odds, uint64_t seed, int64_t number)
        : mOdds(odds),
          mCourse(seed, 100 * number),
          mPlatform(seed, 100 * number + 1),
          mPeople(seed, 100 * number + 2),
          mFaults(seed, 100 * number + 3) {
        mBoot.profile = healthyProfile();
    }

    Boot make() {
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
        completeAt(20 + mCourse.below(40));
        return finish();
    }

    Boot makeStalled() {
        stall();
        change({600000, What::POWER_CYCLE, "", ""});
        return finish();
    }

private:
    void change(const Change& change) {
        mBoot.changes.push_back(change);
    }

    void set(int64_t second, const std::string& name, const std::string& value) {
        change({second * 1000, What::SET, name, value});
    }

    void completeAt(int64_t second) {
        mBoot.about += " completes at " + std::to_string(second);
        for (const char* name : kCompleted) {
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
        const int64_t everyMs = mCourse.between(1, 120) * 1000;
        mBoot.profile.loop(milestone, static_cast<int>(mCourse.between(1, 12)), everyMs);
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
            const char* reason = mPlatform.of({"20", "22", "120", "21", "300", "276", "x"});
            set(mPlatform.below(400), "sys.vela.boot_fail_reason", reason);
        }
        for (const char* kept : {"init", "kernel"}) {
            if (mPlatform.percent(mOdds.keptLogs)) mBoot.files[kKeptLogs + kept] = "kept\n";
        }
        if (mPlatform.percent(mOdds.keptLogs)) mBoot.files["/" + kHealth] = "good\n";
        if (mPlatform.percent(mOdds.service)) {
            for (const char* name : {"init.svc.kel", "init.svc.kelvservice"}) {
                mBoot.properties[name] = mPlatform.percent(85) ? "running" : "stopped";
            }
            if (mPlatform.percent(70)) mBoot.kelAnswersAfter = mPlatform.below(90) * 1000;
        }
        if (mPlatform.percent(mOdds.settings)) {
            mBoot.properties["persist.sys.oobe"] = mPlatform.of({"1", "2", "0", "x"});
        }
        if (mPlatform.percent(mOdds.garbage) && mPlatform.percent(20)) {
            mBoot.properties["ro.boot.mode"] = mPlatform.percent(50) ? "charger" : "normal ";
        }
        if (mPlatform.percent(mOdds.absent) && mPlatform.percent(30)) mBoot.partitionAbsent = true;
        if (mPlatform.percent(5)) mBoot.profilePath = kVelaBootProfile;
    }

    void people() {
        for (const std::string& upload : {kFailureUpload, kSuccessUpload}) {
            if (mPeople.percent(mOdds.collector)) {
                change({mPeople.below(600000), What::REMOVE, upload, ""});
            }
        }
        if (mPeople.percent(mOdds.person)) {
            change({mPeople.between(1, 900) * 1000, What::POWER_CYCLE, "", ""});
        }
        if (mPeople.percent(mOdds.settings)) {
            change({mPeople.below(300000), What::WRITE, kSwitch, mPeople.of(kSwitches)});
        }
        if (mPeople.percent(mOdds.clock)) {
            change({mPeople.below(500000), What::CLOCK, "", "", mPeople.between(-400000, 400000)});
        }
    }

    void faults() {
        if (mFaults.percent(mOdds.signal)) {
            change({mFaults.below(600000), What::SIGNAL, "", "",
                    mFaults.of({SIGTERM, SIGKILL, SIGCHLD, SIGWINCH, SIGCONT, SIGQUIT})});
        }
        const bool failing = mFaults.percent(mOdds.failing);
        for (int64_t i = failing ? mFaults.between(1, 3) : 0; i > 0; --i) {
            const bool open = mFails && mFaults.percent(30);
            const Call call =
                    open ? Call::OPEN : static_cast<Call>(mFaults.below(std::size(kCallNames)));
            const int64_t nth = nthOf(call);
            mBoot.faults.push_back({call, nth, mFaults.percent(70) ? 1 : mFaults.between(2, 100)});
        }
        if (mFaults.percent(mOdds.noSpace)) {
            mBoot.space = mFaults.percent(50) ? mFaults.below(600) : mFaults.below(60000);
        }
        if (mFaults.percent(mOdds.powerCut)) mBoot.cutAfter = mFaults.between(1, 120);
        mBoot.unsynced = mFaults.of(kDamages);
        mBoot.damageSeed = mFaults.below(1000000);
    }

    int64_t nthOf(Call call) {
        // There are many more allocations than other calls.
        if (call == Call::MALLOC) return mFaults.between(1, 3000);
        // A recovery opens its few files after some thirty others.
        if (call == Call::OPEN && mFails && mFaults.percent(70)) {
            return mFaults.between(24, 38);
        }
        return mFaults.between(1, mFaults.percent(50) ? 30 : 90);
    }

    Boot finish() {
        change({kLongestBoot * 1000, What::END, "", ""});
        std::stable_sort(mBoot.changes.begin(), mBoot.changes.end(),
                         [](const Change& a, const Change& b) { return a.at < b.at; });
        // Nothing comes after the boot's end.
        const auto end =
                std::find_if(mBoot.changes.begin(), mBoot.changes.end(),
                             [](const Change& each) { return each.kind >= What::POWER_CYCLE; });
        mBoot.changes.erase(end + 1, mBoot.changes.end());
        return mBoot;
    }

    const Odds& mOdds;
    Boot mBoot;
    bool mFails = false;  // by itself
    Draw mCourse, mPlatform, mPeople, mFaults;
};

class DeviceMaker {
public:
    explicit DeviceMaker(uint64_t seed) : mSeed(seed), mDraw(seed, 0) {
        mScenario.about = "seed " + std::to_string(seed);
        mScenario.clock += mDraw.below(10000000);
        mScenario.commandLine = "quiet FlashID=90014a483942 mem_index=3 poffsts=0x09\n";
        mScenario.logSizes = {{"main", 3000}, {"system", 500}, {"events", 500},
                              {"radio", 200}, {"crash", 0},    {"kernel", 2000}};
    }

    Scenario make() {
        // Whole kinds of events are left out.
        mOdds = {[&] { return mDraw.percent(40) ? 0 : mDraw.between(1, 40); }};
        if (!mDraw.percent(30)) mScenario.files[kMarker] = "";
        drawSettings();
        drawLogs();
        mScenario.rebootAfter = mDraw.between(5, 20) * 1000;
        drawLeftovers();
        for (int64_t number = mDraw.between(1, 7); number > 0; --number) {
            mScenario.boots.push_back(BootMaker(mOdds, mSeed, number).make());
        }
        makeReadOnly();
        fill();
        return mScenario;
    }

    // Five boots of a kind, on a device that nothing is wrong with.
    Scenario make(Boot (BootMaker::*makeBoot)()) {
        mScenario.files[kMarker] = "";
        for (int64_t number = 1; number <= 5; ++number) {
            BootMaker maker(mOdds, mSeed, number);
            mScenario.boots.push_back((maker.*makeBoot)());
        }
        return mScenario;
    }

private:
    void drawSettings() {
        static const Choice kSettings[] = {
                {"ro.vela.bfRecovery.support", {"0", "1", "x"}},
                {"persist.sys.enable_rescue", {"true"}},
                {"persist.sys.bootvigil.debug", {"1"}},
                // Who watches from the kernel: nobody else, unless this is a number.
                {"persist.sys.bootvigil.debug.startbootvigil", {"1", "0", "-1", "x", "01x", " 2"}},
        };
        for (const Choice& setting : kSettings) {
            if (mDraw.percent(mOdds.settings))
                mScenario.properties[setting.name] = mDraw.of(setting.values);
        }
        if (mDraw.percent(mOdds.commandLine)) mScenario.commandLine = mDraw.of(kCommandLines);
        if (mDraw.percent(mOdds.settings)) mScenario.properties["persist.sys.oobe_country"] = "NG";
    }

    void drawLogs() {
        if (mDraw.percent(mOdds.garbage)) mScenario.logSizes["main"] = mDraw.below(300000);
        if (mDraw.percent(mOdds.garbage)) mScenario.nulLogs.insert("system");
        if (mDraw.percent(mOdds.garbage)) mScenario.logSizes["kernel"] = 0;
        if (mDraw.percent(mOdds.absent) && mDraw.percent(20)) mScenario.logFolder = false;
    }

    // What earlier boots, or somebody else, may have left on the partition.
    void drawLeftovers() {
        static const Choice kLeftovers[] = {
                // Most often the next step is a reset.
                {kHistory,
                 {"22d", "22d", "22d", "22d", "11d", "35d", "11\x16", "11x", "53d", "", "1", "x",
                  "13d", "45d"}},
                {kOverride,
                 {"100|11500\n100|51000\n", "100|12500\n20|15000\n", "100|11111\n", "100|51000\n",
                  "100|125\n", "100|13500\n", "120|22222\n", "no list\n|\n", "100|00000\n",
                  "100|52000\n100|1\n", "20|15000\n100|12500\n100|21500\n"}},
                {kSwitch, {std::begin(kSwitches), std::end(kSwitches)}},
                {kReason, {"2"}},
                {kPmic, {"x"}},
                {kHwInfo, {"FlashID=1 "}},
                {kFailureUpload, {"not collected yet"}},
                {kSuccessUpload, {"not collected yet"}},
        };
        const auto maybe = [&](const std::string& path, const std::string& content) {
            if (mDraw.percent(mOdds.leftovers)) mScenario.files[path] = content;
        };
        for (const Choice& left : kLeftovers) maybe(left.name, mDraw.of(left.values));
        std::string records;
        for (int64_t i = mDraw.below(60); i > 0; --i) {
            records +=
                    "TIME:Sun Nov 15 10:05:18 2026;    ERR_NUM:0x401564;    ERR_INFO:567-main  | "
                    "x;    ERR_EXPINFO:Country(NG)  ;\n";
        }
        if (mDraw.percent(20)) records.resize(records.size() / 2);
        maybe(kRecord, records);
        maybe(kFlag, mDraw.percent(80) ? "4" : "");
        if (Draw(mSeed, 2).percent(20)) spoilRecords();
        // A recovery under way on a first boot is the one that must not reset again.
        if (mScenario.files.count(kHistory) != 0 && mDraw.percent(40)) {
            mScenario.files.erase(kMarker);
        }
    }

    // A record file about as large as one that is started again, or one whose last line is short of
    // something and to be submitted.
    void spoilRecords() {
        Draw draw(mSeed, 1);
        std::string& records = mScenario.files[kRecord];
        if (draw.percent(25)) {
            records.resize(static_cast<size_t>(draw.between(5119, 5121)), 'x');
        } else {
            records += draw.of(kOddRecords);
            mScenario.files[kFlag] = "4";
        }
    }

    // In some boots; the partition is a file system of its own then.
    void makeReadOnly() {
        std::vector<Boot>& boots = mScenario.boots;
        const bool away = std::any_of(boots.begin(), boots.end(),
                                      [](const Boot& boot) { return boot.partitionAbsent; });
        if (away || !mDraw.percent(mOdds.absent)) return;
        mScenario.partitionSize = 8 << 20;
        for (Boot& boot : boots) {
            if (!mDraw.percent(30)) continue;
            const int64_t at = mDraw.below(300000);
            const auto later = std::find_if(boot.changes.begin(), boot.changes.end(),
                                            [&](const Change& change) { return change.at > at; });
            if (later != boot.changes.end()) {
                boot.changes.insert(later, {at, What::READ_ONLY, kPartition, ""});
            }
        }
    }

    // What a command prints without end must come to an end where there is no room for it.
    void fill() {
        std::vector<Boot>& boots = mScenario.boots;
        const bool full = mDraw.percent(mOdds.full) && mDraw.percent(30);
        for (Boot& boot : boots) {
            if (full && !boot.space) boot.space = mDraw.below(mDraw.percent(50) ? 2000 : 60000);
        }
        const bool limited = std::all_of(boots.begin(), boots.end(),
                                         [](const Boot& boot) { return boot.space.has_value(); });
        if (limited) mScenario.endlessLogs.insert(mDraw.of({"crash", "events", "radio"}));
    }

    const uint64_t mSeed;
    Draw mDraw;
    Odds mOdds;
    Scenario mScenario;
};

// From a stream of its own, so that the bare scenario of a seed stays as it is.
void addReferencePlatform(Scenario& scenario, uint64_t seed) {
    constexpr uint64_t kStream = 10000;
    static const Choice kProperties[] = {
            {"ro.bootvigil.reboots", {"0", "1", "30", "x"}},
            {"ro.bootvigil.resets", {"0", "2", "-1"}},
            {"ro.bootvigil.reboot_wait", {"0", "1", "20", "300"}},
            {"ro.bootvigil.reset_wait", {"0", "30", "1200"}},
            {"ro.bootvigil.budget_boots", {"1", "2"}},
            {"ro.build.date.utc", {"1790000000", "1990000000"}},
    };
    static const Choice kLeftovers[] = {
            {kMetadata + "/bootvigil/budget", {"", "x", "bootvigil-budget 1\nboots 0\n"}},
            {kOwnFolder + "/" + kLogServiceId + ".zip", {"of an earlier failure", ""}},
            {kOldCaptures + "/3-" + kLogServiceId, {"an older one"}},
            {kRefusals, {"Sun Nov 15 11:02:50 2026|reset|spent\n", "x"}},
    };
    Draw draw(seed, kStream);
    scenario.platform = PlatformKind::REFERENCE;
    for (const Choice& property : kProperties) {
        if (draw.percent(10)) scenario.properties[property.name] = draw.of(property.values);
    }
    for (const Choice& left : kLeftovers) {
        if (draw.percent(15)) scenario.files[left.name] = draw.of(left.values);
    }
    if (draw.percent(10)) {
        const int64_t lines = draw.between(150, 400);
        for (int64_t i = 0; i < lines; ++i) {
            scenario.files[kJournal] += "Sun Nov 15 11:08:12 2026  USER capture log\n";
        }
    }
    if (draw.percent(20)) scenario.clock = draw.between(1000000, 2000000);  // in 1970
    // Boots that come up after the daemon has given them up.
    for (Boot& boot : scenario.boots) {
        if (!draw.percent(15)) continue;
        const int64_t at = draw.between(240, 900) * 1000;
        const auto later = std::find_if(boot.changes.begin(), boot.changes.end(),
                                        [&](const Change& change) { return change.at > at; });
        if (later == boot.changes.end()) continue;
        const std::vector<Change> up = {{at, What::SET, kCompleted[0], "1"},
                                        {at, What::SET, kCompleted[1], "1"}};
        boot.changes.insert(later, up.begin(), up.end());
    }
}

}  // namespace

Scenario randomScenario(uint64_t seed, Boots boots, PlatformKind platform) {
    DeviceMaker maker(seed);
    Scenario scenario = boots == Boots::ALL       ? maker.make()
                        : boots == Boots::HEALTHY ? maker.make(&BootMaker::makeHealthy)
                                                  : maker.make(&BootMaker::makeStalled);
    if (platform == PlatformKind::REFERENCE) addReferencePlatform(scenario, seed);
    return scenario;
}

}  // namespace lab
