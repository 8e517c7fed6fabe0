// SPDX-License-Identifier: Apache-2.0
// Rebuilds the boot that a device recorded, as far as its record allows.

#include "lab/replay/Rebuild.h"

#include <stdlib.h>

#include <algorithm>
#include <iterator>
#include <map>
#include <stdexcept>

#include "bootvigil/BootMilestones.h"
#include "bootvigil/Messages.h"
#include "bootvigil/RecoveryLists.h"
#include "lab/base/Text.h"
#include "report/read/Recovery.h"

namespace lab {

namespace {

constexpr int64_t kLookOn = 3600000;  // ms for which today's daemon may be late
constexpr size_t kMostProperty = 91;

const std::string kSystemServerStart = kMilestoneNames[3];

// A line of the boot profile without its time, and when it is shown.
struct ProfileLine {
    int64_t at = 0;
    std::string rest;
};

// What the polls tell of the profile.
struct Sightings {
    std::vector<ProfileLine> last;  // the last line at each poll, as the log has it
    int64_t loopAt = -1;
    std::string loopMilestone;
    std::map<std::string, int> loopCounts;
};

// Whether a line of the profile tells of this event.
bool isEvent(const std::string& line, const std::string& event) {
    const std::string end = ": " + event;
    return line.size() >= end.size() &&
           line.compare(line.size() - end.size(), end.size(), end) == 0;
}

// Whether this verdict makes the daemon go on to recovery.
bool recovers(const Verdict& verdict) {
    if (!verdict.error) return false;
    const int reason = verdict.error->reason;
    return !verdict.reasonCode.empty() || reason == 20 || reason == 120 || reason == 22;
}

// Turns what the log and the files tell into a scenario of one boot.
class Rebuilder {
public:
    Rebuilder(const Remains& remains, RebuiltBoot& rebuilt)
        : mRemains(remains), mRebuilt(rebuilt), mRecorded(rebuilt.recorded) {
        Scenario& scenario = rebuilt.scenario;
        scenario.properties = {{"ro.boot.mode", "normal"}};
        for (const char* buffer : {"main", "system", "events", "radio", "crash", "kernel"}) {
            scenario.logSizes[buffer] = 0;
        }
        scenario.boots.resize(1);
    }

    void rebuild(const std::vector<Message>& messages, bool beginningKept,
                 const std::optional<std::string>& profile) {
        for (size_t i = 0; i <= mRecorded.message; ++i) readMessage(messages[i]);
        if (!mFirstBootKnown) {
            assume("whether it was a first boot; taken as a later one");
            mRebuilt.scenario.files["/data/vela_dfr/firstboot"] = "";
        }
        if (mSilentPolls > 0) {
            assume("the last event at " + std::to_string(mSilentPolls) +
                   " polls; taken as unchanged");
        }
        inferCapture();
        inferCompletion();
        inferRecovery();
        if (profile) {
            cutProfile(*profile);
        } else {
            composeProfile(beginningKept);
        }
        boot().changes.push_back({mRecorded.at + kLookOn, Change::Kind::END, "", ""});
        std::stable_sort(boot().changes.begin(), boot().changes.end(),
                         [](const Change& a, const Change& b) { return a.at < b.at; });
    }

private:
    Boot& boot() {
        return mRebuilt.scenario.boots[0];
    }

    void assume(const std::string& text) {
        std::vector<std::string>& known = mRebuilt.notKnown;
        if (std::find(known.begin(), known.end(), text) == known.end()) known.push_back(text);
    }

    void set(int64_t at, const std::string& name, const std::string& value) {
        std::string& known = mProperties.at(name);
        if (value == known) return;
        known = value.substr(0, kMostProperty);
        boot().changes.push_back({at, Change::Kind::SET, name, known});
    }

    void readMessage(const Message& message) {
        bool profileRead = false;
        for (const std::string& line : message.lines) {
            readStateLine(line, message.at);
            profileRead |= readProfileLine(line, message.at) || contains(line, "Lines < 3");
        }
        const bool booted = atoi(mProperties.at("sys.boot_completed").c_str()) != 0 &&
                            atoi(mProperties.at("service.bootanim.exit").c_str()) != 0;
        if (message.what == MSG_POLL && !profileRead && !booted && message.at < mRecorded.at) {
            ++mSilentPolls;
        }
    }

    void readStateLine(const std::string& line, int64_t at) {
        static const std::pair<const char*, const char*> changing[] = {
                {"checkBooted get sys.boot_completed =", "sys.boot_completed"},
                {"checkBooted get service.bootanim.exit =", "service.bootanim.exit"},
                {"BOOTVIGIL checkSystemError reason=", "sys.vela.boot_fail_reason"},
        };
        static const std::pair<const char*, const char*> lasting[] = {
                {"checkNormalBootMode ro.boot.mode =", "ro.boot.mode"},
                {"checkFirstBoot  sys.boot.reason =", "sys.boot.reason"},
                {"BOOTVIGIL Start persist.sys.bootvigil.debug.startbootvigil",
                 "persist.sys.bootvigil.debug.startbootvigil"},
        };
        for (const auto& [prefix, name] : changing) {
            if (const auto value = after(line, prefix)) set(at, name, *value);
        }
        for (const auto& [prefix, name] : lasting) {
            if (const auto value = after(line, prefix)) {
                boot().properties[name] = value->substr(0, kMostProperty);
            }
        }
        if (const auto kel = after(line, "checkKELRunning get init.svc.kel =")) {
            mServiceKnown = true;
            const bool runs = kel->rfind("running;", 0) == 0;
            const auto service = kel->find("init.svc.kelvservice = running");
            if (runs) boot().properties["init.svc.kel"] = "running";
            if (service != std::string::npos) boot().properties["init.svc.kelvservice"] = "running";
        }
        if (line == "first timer 8m") {
            mFirstBootKnown = true;
        } else if (line == "checkFirstBootInNative found file" || after(line, "Creat file path")) {
            mFirstBootKnown = true;
            mRebuilt.scenario.files["/data/vela_dfr/firstboot"] = "";
        } else if (line == "access /proc/velabootprof OK") {
            boot().profilePath = "/proc/velabootprof";
        } else if (line == "boot finished, enter launcher.") {
            mFinishedAt = at;
        } else if (const auto error = report::parseNotice(line)) {
            if (error->phase == 7 && error->reason != 22) mWizard = "2";
            if (error->type == 5 && error->phase == 8) {
                boot().files["/dev/velarawlog/init"] = "not known\n";
            } else if (error->type == 1 && error->phase == 3) {
                boot().files["/dev/velarawlog/kernel"] = "not known\n";
            }
        }
    }

    bool readProfileLine(const std::string& line, int64_t at) {
        if (after(line, "parseBootProf Last Line key")) return true;
        if (const auto last = after(line, "parseBootProf Last Line")) {
            mSeen.last.push_back({at, *last});
            return true;
        }
        if (const auto loop = after(line, "parseBootProf reboot reason")) {
            mSeen.loopAt = at;
            mSeen.loopMilestone = loop->substr(0, loop->rfind(", count"));
            return true;
        }
        if (const auto count = after(line, "getRebootReason find Reason key")) {
            const size_t value = count->rfind(", value ");
            if (value == std::string::npos) return false;
            mSeen.loopCounts[count->substr(0, value)] = atoi(count->c_str() + value + 8);
        }
        return false;
    }

    void inferCapture() {
        if (mRecorded.capturedBy == "the daemon" && !mServiceKnown) {
            assume("whether the log-capture service ran; taken as switched off by "
                   "persist.sys.bootvigil.debug");
            boot().properties["persist.sys.bootvigil.debug"] = "1";
        }
        if (mRecorded.capturedBy == "the service") boot().kelAnswersAfter = 0;
    }

    // The log does not say by which of two signs a boot was found complete.
    void inferCompletion() {
        const int reason = mRecorded.error ? mRecorded.error->reason : 0;
        const int64_t at = mFinishedAt >= 0 ? mFinishedAt : mRecorded.at;
        const bool declared = reason == 120 && mProperties.at("sys.vela.boot_fail_reason") != "120";
        if (mFinishedAt >= 0 && reason == 20) {
            assume("how the boot was complete; taken as the event, because of the recorded reason");
            mWizard = "2";
        } else if (mFinishedAt >= 0 || declared) {
            assume("when sys.vela.BOOT_COMPLETED was set; taken as " + seconds(at));
            set(at, "sys.vela.BOOT_COMPLETED", "1");
        }
        boot().properties["persist.sys.oobe"] = mWizard;
        if (mProperties.at("sys.boot_completed") != "0") {
            assume("persist.sys.oobe; taken as " + mWizard + ", which agrees with the verdict");
        }
    }

    // The history as it was before this boot's own step, which the captured log no longer holds.
    void inferRecovery() {
        static const std::string path = "/velafs/boot_vigil/recovery_flag.txt";
        TextMap& files = mRebuilt.scenario.files;
        if (mRemains.recoveryList) {
            files["/velafs/boot_vigil/recoveryList"] = *mRemains.recoveryList;
        }
        if (mRemains.disable) files["/velafs/boot_vigil/bfEnable"] = *mRemains.disable;
        const std::string history = mRemains.history.value_or("");
        if (!recovers(mRecorded)) {
            if (!history.empty()) files[path] = history;
            mRebuilt.action = "none";
            return;
        }

        const auto reason = static_cast<char>(mRecorded.error->reason);
        // A first boot clears the history of its own reset: one that is there came before.
        const bool firstBoot = files.count("/data/vela_dfr/firstboot") == 0;
        const bool own = history.size() >= 3 && history[0] >= '1' &&
                         history[0] <= '0' + kRecoveryListSize && history[2] == reason &&
                         !(firstBoot && history[1] == '0' + RECOVERY_DATA_RESET);
        const auto [lastFailure, goodBoot] = readRecords();
        if (lastFailure != 0 && lastFailure != mRecorded.error->number) {
            assume("the recovery action, as bfRecord.txt ends with another failure; not compared");
        } else if (own) {
            mRebuilt.action = actionName(history);
            // Of the mode before only a reset would matter, which would have restarted the list.
            if (history[0] > '1') {
                files[path] = {static_cast<char>(history[0] - 1), '0' + RECOVERY_REBOOT, reason};
                assume("the recovery history before this boot; taken as one step before what "
                       "recovery_flag.txt holds");
            }
        } else if (history.empty() && goodBoot) {
            inferFromReport();
        } else {
            if (!history.empty()) files[path] = history;
            mRebuilt.action = "none";
            const bool listEnd = firstBoot && !history.empty();
            if (listEnd || mRemains.disable) return;
            assume("why no recovery step of this failure is there; taken as disabled by "
                   "ro.vela.bfRecovery.support");
            boot().properties["ro.vela.bfRecovery.support"] = "0";
        }
    }

    // A later good boot has removed the history; its report may still be there.
    void inferFromReport() {
        int mode = 0;
        const std::string report = mRemains.recoveryReport.value_or("");
        const size_t bar = report.rfind('|');
        const int reason = bar == std::string::npos ? 0 : atoi(report.c_str() + bar + 1);
        if (sscanf(report.c_str(), "BFRECOVERY|%2d|", &mode) == 1 && !mRemains.recoveryList &&
            reason == mRecorded.error->reason) {
            for (const RecoveryList& list : kDefaultRecoveryLists) {
                const int* end = std::end(list.modes);
                const int* found = std::find(std::begin(list.modes), end, mode);
                if (list.reason != reason || found == end) continue;
                const auto index = static_cast<char>('0' + (found - std::begin(list.modes)));
                if (index > '0') {
                    mRebuilt.scenario.files["/velafs/boot_vigil/recovery_flag.txt"] =
                            {index, '0' + RECOVERY_REBOOT, static_cast<char>(reason)};
                }
                mRebuilt.action = actionName(std::string(1, index) + static_cast<char>('0' + mode));
                assume("the recovery history, which a later good boot has removed; taken from "
                       "recovery_record");
                return;
            }
        }
        assume("the recovery action, as a later good boot has removed the history; not compared");
    }

    // The number of the last failure in bfRecord.txt, 0 when there is none, and whether a boot has
    // completed since.
    std::pair<uint32_t, bool> readRecords() const {
        static const std::string key = "ERR_NUM:0x";
        const std::string records = mRemains.records.value_or("");
        std::pair<uint32_t, bool> result = {0, false};
        for (size_t at = records.find(key); at != std::string::npos;
             at = records.find(key, at + 1)) {
            const auto error = report::decodeErrorNumber(
                    strtoul(records.c_str() + at + key.size(), nullptr, 16));
            result = {error.stamp ? result.first : error.number, error.stamp};
        }
        return result;
    }

    // Builds the profile from the last lines that the polls saw.
    void composeProfile(bool beginningKept) {
        std::vector<ProfileLine> lines;
        int serverStarts = 0;
        for (const ProfileLine& seen : mSeen.last) {
            if (!lines.empty() && seen.rest == mLastRaw) continue;
            mLastRaw = seen.rest;
            const size_t by = seen.rest.find(" :");
            if (by == std::string::npos || seen.rest.find(": ", by + 2) == std::string::npos) {
                assume("what a line of the profile says that has another layout; passed over");
                continue;
            }
            const int64_t at = lines.empty() && !beginningKept ? 0 : seen.at;
            lines.push_back({at, seen.rest.substr(by + 1)});
            if (isEvent(seen.rest, kSystemServerStart)) ++serverStarts;
        }
        if (mRecorded.error && mRecorded.error->type == 5 && !mRecorded.reasonCode.empty()) {
            addServerStart(lines, serverStarts);
        }
        if (mSeen.loopAt >= 0) addLoop(lines);
        if (mFinishedAt >= 0 && mWizard == "2") add(lines, mFinishedAt, "Post BOOT_COMPLETED");
        show(lines, 0);
        mRebuilt.profile = "from the log, which has its last line at " +
                           std::to_string(mSeen.last.size()) + " polls";
        if (lines.empty()) return;
        assume("when each event came, and what came between two polls; taken as the last lines, at "
               "the poll that saw each first");
    }

    static void add(std::vector<ProfileLine>& lines, int64_t at, const std::string& event) {
        lines.push_back({at, ":    1-unknown         : " + event});
    }

    // The stall's phase depends on a count that no line of the log gives.
    void addServerStart(std::vector<ProfileLine>& lines, int seen) {
        assume("how often " + kSystemServerStart +
               " had come; taken from the recorded detail phase");
        const bool missing = mRecorded.reasonCode == "2" ? seen == 0 : seen == 1;
        if (!missing || lines.empty()) return;
        const ProfileLine last = lines.back();
        lines.pop_back();
        add(lines, last.at, kSystemServerStart);
        lines.push_back(last);
    }

    // The tail that the daemon counted: the fifth of the milestone from the end comes first.
    void addLoop(std::vector<ProfileLine>& lines) {
        assume("the order of the events in the restart loop; taken from the counts in the log");
        add(lines, mSeen.loopAt, mSeen.loopMilestone);
        for (const auto& [milestone, count] : mSeen.loopCounts) {
            if (milestone == mSeen.loopMilestone) continue;
            for (int i = 0; i < std::min(count, 4); ++i) add(lines, mSeen.loopAt, milestone);
        }
        for (int i = 0; i < 4; ++i) add(lines, mSeen.loopAt, mSeen.loopMilestone);
    }

    // Shows a pulled profile by time where the polls agree with one start of the daemon; else as it
    // stands.
    void cutProfile(const std::string& text) {
        std::vector<ProfileLine> lines;
        std::vector<std::string> whole;
        size_t begin = 0;
        for (size_t end = 0; begin < text.size(); begin = end + 1) {
            end = std::min(text.find('\n', begin), text.size());
            std::string line = text.substr(begin, end - begin);
            line.erase(line.find_last_not_of(" \r") + 1);
            const size_t by = line.find(" :");
            if (by == std::string::npos || line.find(": ", by + 2) == std::string::npos) continue;
            const double ms = strtod(line.c_str(), nullptr);
            const int64_t least = lines.empty() ? 0 : lines.back().at;
            const bool sane = ms >= static_cast<double>(least) && ms < 1e9;
            lines.push_back({sane ? static_cast<int64_t>(ms) : least, line.substr(by + 1)});
            whole.push_back(line.substr(line.find_first_not_of(' ')));
        }
        if (lines.empty()) throw std::runtime_error("no event line");

        const std::optional<int64_t> start = findStart(lines, whole);
        if (start) {
            mRebuilt.profile = "as pulled, cut by time at each poll";
            assume("when the daemon started; taken as " + seconds(*start) +
                   " after the zero of the profile, which agrees with every poll");
        } else {
            mRebuilt.profile = "as pulled, as it stands";
            assume("when the events of the profile came; all taken as there from the start, as it "
                   "is of another boot than the log, or ends too early");
            for (ProfileLine& line : lines) line.at = 0;
        }
        show(lines, start.value_or(0));
    }

    // The daemon's start in the profile's own time: every poll sees the line that it recorded, and
    // none that is later.
    std::optional<int64_t> findStart(const std::vector<ProfileLine>& lines,
                                     const std::vector<std::string>& whole) const {
        int64_t least = INT64_MIN;
        int64_t most = INT64_MAX;
        std::map<std::string, size_t> places;
        for (size_t i = 0; i < whole.size(); ++i) places.emplace(whole[i], i);
        for (const ProfileLine& seen : mSeen.last) {
            const auto place = places.find(seen.rest);
            if (place == places.end()) return std::nullopt;
            least = std::max(least, lines[place->second].at - seen.at);
            if (place->second + 1 < lines.size()) {
                most = std::min(most, lines[place->second + 1].at - seen.at - 1);
            }
        }
        int count = 0;
        for (const ProfileLine& line : lines) {
            if (mSeen.loopAt < 0 || !isEvent(line.rest, mSeen.loopMilestone)) continue;
            if (++count == 5) least = std::max(least, line.at - mSeen.loopAt);
        }
        if (least > most) return std::nullopt;
        return std::clamp<int64_t>(0, least, most);
    }

    void show(const std::vector<ProfileLine>& lines, int64_t start) {
        std::string text;
        for (const ProfileLine& line : lines) {
            text += std::to_string(std::max<int64_t>(line.at - start, 0)) + ".000 " + line.rest +
                    "\n";
        }
        if (!text.empty()) boot().profile = ProfileScript::parse(text, "the profile");
    }

    const Remains& mRemains;
    RebuiltBoot& mRebuilt;
    const Verdict& mRecorded;
    Sightings mSeen;
    TextMap mProperties = {{"sys.boot_completed", "0"},  // as the log last had them
                           {"service.bootanim.exit", "0"},
                           {"sys.vela.boot_fail_reason", "0"},
                           {"sys.vela.BOOT_COMPLETED", "0"}};
    int mSilentPolls = 0;
    bool mFirstBootKnown = false;
    bool mServiceKnown = false;
    int64_t mFinishedAt = -1;
    std::string mWizard = "1";  // with which the completion event does not count
    std::string mLastRaw;
};

}  // namespace

std::string actionName(const std::optional<std::string>& history) {
    return history && history->size() >= 2 ? report::modeName((*history)[1] - '0') : "none";
}

RebuiltBoot rebuildBoot(const std::vector<report::DaemonRun>& runs, const Remains& remains,
                        const std::optional<std::string>& profile) {
    if (runs.empty()) throw std::runtime_error("no run of the daemon in it");
    const auto run = std::find_if(runs.rbegin(), runs.rend(),
                                  [](const auto& one) { return !findVerdicts(one).empty(); });
    if (run == runs.rend()) throw std::runtime_error("no verdict of the daemon in it");
    RebuiltBoot rebuilt;
    const std::vector<Message> messages = readMessages(*run, &rebuilt.notKnown);
    const std::vector<Verdict> verdicts = verdictsOf(messages);
    rebuilt.recorded = verdicts.back();
    rebuilt.number = verdicts.size();
    Rebuilder(remains, rebuilt).rebuild(messages, run->beginningKept, profile);
    rebuilt.scenario.about = "the boot of " + run->lines.front().clock;
    return rebuilt;
}

}  // namespace lab
