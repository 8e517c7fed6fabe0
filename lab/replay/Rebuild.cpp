// SPDX-License-Identifier: Apache-2.0
// Rebuilds the boot that a device recorded, as far as its record allows.

#include "lab/replay/Rebuild.h"

#include <stdio.h>
#include <stdlib.h>

#include <algorithm>
#include <stdexcept>

#include "bootvigil/Messages.h"
#include "bootvigil/RecoveryLists.h"
#include "lab/base/DevicePaths.h"
#include "lab/base/Text.h"
#include "lab/replay/SeenProfile.h"
#include "report/read/Recovery.h"

namespace lab {

namespace {

constexpr int64_t kLookOn = 3600000;  // ms for which today's daemon may be late
constexpr size_t kMostProperty = 91;

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
        : mRemains(remains),
          mRebuilt(rebuilt),
          mFiles(rebuilt.scenario.files),
          mBoot(rebuilt.scenario.boots.emplace_back()),
          mRecorded(rebuilt.recorded) {
        rebuilt.scenario.commandLine.clear();
        for (auto& log : rebuilt.scenario.logSizes) log.second = 0;
        mBoot.profile = ProfileScript();
    }

    void rebuild(const std::vector<Message>& messages, bool beginningKept,
                 const std::optional<std::string>& profile) {
        for (size_t i = 0; i <= mRecorded.message; ++i) readMessage(messages[i]);
        if (!mFirstBootKnown) {
            assume("whether it was a first boot; taken as a later one");
            mFiles[kMarker] = "";
        }
        if (mSilentPolls > 0) {
            assume("the last event at " + std::to_string(mSilentPolls) +
                   " polls; taken as unchanged");
        }
        inferCapture();
        inferCompletion();
        inferRecovery();
        if (profile) {
            mProfile.cut(mRebuilt, *profile);
        } else {
            mProfile.compose(mRebuilt, beginningKept, mWizard == "2" ? mFinishedAt : std::nullopt);
        }
        mBoot.changes.push_back({mRecorded.at + kLookOn, Change::Kind::END, "", ""});
        std::stable_sort(mBoot.changes.begin(), mBoot.changes.end(),
                         [](const Change& a, const Change& b) { return a.at < b.at; });
    }

private:
    void assume(const std::string& text) {
        mRebuilt.notKnown.push_back(text);
    }

    void set(int64_t at, const std::string& name, const std::string& value) {
        std::string& known = mProperties.at(name);
        if (value == known) return;
        known = value.substr(0, kMostProperty);
        mBoot.changes.push_back({at, Change::Kind::SET, name, known});
    }

    void readMessage(const Message& message) {
        bool profileRead = false;
        for (const std::string& line : message.lines) {
            readProperties(line, message.at);
            readState(line, message.at);
            profileRead |= mProfile.readLine(line, message.at);
        }
        const bool booted = atoi(mProperties.at("sys.boot_completed").c_str()) != 0 &&
                            atoi(mProperties.at("service.bootanim.exit").c_str()) != 0;
        if (message.what == MSG_POLL && !profileRead && !booted && message.at < mRecorded.at) {
            ++mSilentPolls;
        }
    }

    void readProperties(const std::string& line, int64_t at) {
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
                mBoot.properties[name] = value->substr(0, kMostProperty);
            }
        }
        if (const auto kel = after(line, "checkKELRunning get init.svc.kel =")) {
            mServiceKnown = true;
            if (startsWith(*kel, "running;")) mBoot.properties["init.svc.kel"] = "running";
            if (contains(*kel, "init.svc.kelvservice = running")) {
                mBoot.properties["init.svc.kelvservice"] = "running";
            }
        }
    }

    void readState(const std::string& line, int64_t at) {
        if (line == "first timer 8m") {
            mFirstBootKnown = true;
        } else if (line == "checkFirstBootInNative found file" || after(line, "Creat file path")) {
            mFirstBootKnown = true;
            mFiles[kMarker] = "";
        } else if (line == "access " + kVelaBootProfile + " OK") {
            mBoot.profilePath = kVelaBootProfile;
        } else if (line == "boot finished, enter launcher.") {
            mFinishedAt = at;
        } else if (const auto error = report::parseNotice(line)) {
            if (error->phase == 7 && error->reason != 22) mWizard = "2";
            if (error->type == 5 && error->phase == 8) {
                mBoot.files[kKeptLogs + "init"] = "not known\n";
            } else if (error->type == 1 && error->phase == 3) {
                mBoot.files[kKeptLogs + "kernel"] = "not known\n";
            }
        }
    }

    void inferCapture() {
        if (mRecorded.capturedBy == "the daemon" && !mServiceKnown) {
            assume("whether the log-capture service ran; taken as switched off by "
                   "persist.sys.bootvigil.debug");
            mBoot.properties["persist.sys.bootvigil.debug"] = "1";
        }
        if (mRecorded.capturedBy == "the service") mBoot.kelAnswersAfter = 0;
    }

    // The log does not say by which of two signs a boot was found complete.
    void inferCompletion() {
        const int reason = mRecorded.error ? mRecorded.error->reason : 0;
        const bool declared = reason == 120 && mProperties.at("sys.vela.boot_fail_reason") != "120";
        if (mFinishedAt && reason == 20) {
            assume("how the boot was complete; taken as the event, because of the recorded reason");
            mWizard = "2";
        } else if (mFinishedAt || declared) {
            const int64_t at = mFinishedAt.value_or(mRecorded.at);
            assume("when sys.vela.BOOT_COMPLETED was set; taken as " + seconds(at));
            set(at, "sys.vela.BOOT_COMPLETED", "1");
        }
        mBoot.properties["persist.sys.oobe"] = mWizard;
        if (mProperties.at("sys.boot_completed") != "0") {
            assume("persist.sys.oobe; taken as " + mWizard + ", which agrees with the verdict");
        }
    }

    // The history as it was before this boot's own step, which the captured log no longer holds.
    void inferRecovery() {
        if (mRemains.recoveryList) mFiles[kOverride] = *mRemains.recoveryList;
        if (mRemains.disable) mFiles[kSwitch] = *mRemains.disable;
        const std::string history = mRemains.history.value_or("");
        // A first boot clears the history of its own reset: one that is there came before.
        const bool firstBoot = mFiles.count(kMarker) == 0;
        if (recovers(mRecorded)) {
            const bool own = history.size() >= 3 && history[0] >= '1' &&
                             history[0] <= '0' + kRecoveryListSize &&
                             history[2] == static_cast<char>(mRecorded.error->reason) &&
                             !(firstBoot && history[1] == '0' + RECOVERY_DATA_RESET);
            const auto [lastFailure, goodBoot] = readRecords();
            if (lastFailure != 0 && lastFailure != mRecorded.error->number) {
                return assume(
                        "the recovery action, as bfRecord.txt ends with another failure; "
                        "not compared");
            }
            if (own) {
                takeStep(history);
                if (history[0] == '1') return;
                return assume(
                        "the recovery history before this boot; taken as one step before "
                        "what recovery_flag.txt holds");
            }
            if (history.empty() && goodBoot) return inferFromReport();
        }
        if (!history.empty()) mFiles[kHistory] = history;
        mRebuilt.action = "none";
        const bool listEnd = firstBoot && !history.empty();
        if (!recovers(mRecorded) || listEnd || mRemains.disable) return;
        assume("why no recovery step of this failure is there; taken as disabled by "
               "ro.vela.bfRecovery.support");
        mBoot.properties["ro.vela.bfRecovery.support"] = "0";
    }

    // Takes `history` as what this boot left, and goes one step back.
    void takeStep(const std::string& history) {
        mRebuilt.action = actionName(history);
        if (history[0] == '1') return;
        // Of the mode before only a reset would matter, which would have restarted the list.
        mFiles[kHistory] = {static_cast<char>(history[0] - 1), '0' + RECOVERY_REBOOT, history[2]};
    }

    // A later good boot has removed the history; its report may still be there.
    void inferFromReport() {
        int mode = 0;
        const int reason = mRecorded.error->reason;
        const std::string report = mRemains.recoveryReport.value_or("");
        const bool given = sscanf(report.c_str(), "BFRECOVERY|%2d|", &mode) == 1 &&
                           atoi(report.c_str() + report.rfind('|') + 1) == reason;
        const std::vector<int> list = report::readRecovery({}, reason).list;
        const auto step = std::find(list.begin(), list.end(), mode);
        if (!given || mRemains.recoveryList || step == list.end()) {
            return assume(
                    "the recovery action, as a later good boot has removed the history; not "
                    "compared");
        }
        takeStep({static_cast<char>('1' + (step - list.begin())), static_cast<char>('0' + mode),
                  static_cast<char>(reason)});
        assume("the recovery history, which a later good boot has removed; taken from "
               "recovery_record");
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

    const Remains& mRemains;
    RebuiltBoot& mRebuilt;
    TextMap& mFiles;  // of the device
    Boot& mBoot;
    const Verdict& mRecorded;
    SeenProfile mProfile;
    TextMap mProperties = {{"sys.boot_completed", "0"},  // as the log last had them
                           {"service.bootanim.exit", "0"},
                           {"sys.vela.boot_fail_reason", "0"},
                           {"sys.vela.BOOT_COMPLETED", "0"}};
    int mSilentPolls = 0;
    bool mFirstBootKnown = false;
    bool mServiceKnown = false;
    std::optional<int64_t> mFinishedAt;
    std::string mWizard = "1";  // with which the completion event does not count
};

}  // namespace

std::string actionName(const std::string& history) {
    return history.size() < 2 ? "none" : report::modeName(history[1] - '0');
}

RebuiltBoot rebuildBoot(const std::vector<report::DaemonRun>& runs, const Remains& remains,
                        const std::optional<std::string>& profile) {
    if (runs.empty()) throw std::runtime_error("no run of the daemon in it");
    const auto run = std::find_if(runs.rbegin(), runs.rend(),
                                  [](const auto& one) { return !findVerdicts(one).empty(); });
    if (run == runs.rend()) throw std::runtime_error("no verdict of the daemon in it");
    RebuiltBoot rebuilt;
    RecordedRun read = readRun(*run);
    rebuilt.notKnown = std::move(read.notKnown);
    const std::vector<Verdict> verdicts = verdictsOf(read.messages);
    rebuilt.recorded = verdicts.back();
    rebuilt.number = verdicts.size();
    Rebuilder(remains, rebuilt).rebuild(read.messages, run->beginningKept, profile);
    rebuilt.scenario.about = "the boot of " + run->lines.front().clock;
    return rebuilt;
}

}  // namespace lab
