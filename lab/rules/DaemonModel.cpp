// SPDX-License-Identifier: Apache-2.0
// What each message must do, and what it must find out of a boot.

#include "lab/rules/DaemonModel.h"

#include <signal.h>
#include <stdlib.h>

#include <algorithm>

#include "lab/base/DevicePaths.h"
#include "lab/base/Text.h"
#include "lab/rules/Milestones.h"

namespace lab {

std::vector<std::string> split(const std::string& text, const std::string& by) {
    std::vector<std::string> fields;
    for (size_t from = 0, end = 0; from < text.size(); from = end + by.size()) {
        end = std::min(text.find(by, from), text.size());
        if (end == from) continue;
        const size_t first = text.find_first_not_of(' ', from);
        if (first >= end) throw Aborted();
        const size_t size = text.find_last_not_of(' ', end - 1) + 1 - from;
        fields.push_back(text.substr(first, std::min(size, end - first)));
    }
    return fields;
}

DaemonModel::DaemonModel(const BootObservation& boot, Books& books)
    : DeviceModel(boot, books), mFileReason(firstLine(content(kReason))) {
    post(kStart, 10);
}

// ---- Before the messages, and the messages

void DaemonModel::beforeMessages() {
    if (number("persist.sys.bootvigil.debug.startbootvigil") != 0) return;
    if (!cannotOpen("/dev/bootvigilk")) expectCall(mMonitor, "the boot is the daemon's");
}

void DaemonModel::post(int what, int64_t seconds) {
    mPending.push_back({mNow + seconds * 1000, what});
}

void DaemonModel::handle(int what) {
    switch (what) {
        case kStart:
            return start();
        case kPoll:
            return poll();
        case kTimeout:
            return timeout();
        case kRecovery:
            return recover();
        case kExit:
            expect("bootvigil exit.");
            throw Exited{0};
        case kAfterBoot:
            return afterBoot();
        default:
            return broken("a message that no rule names");
    }
}

void DaemonModel::start() {
    if (property("ro.boot.mode") != "normal") throw Exited{0};
    if (worldFile("/proc/velabootprof")) mProfilePath = "/proc/velabootprof";
    expectCall(mSets, "sys.bootvigil.version 3.365");
    post(kPoll, 30);
    const bool known = exists(kMarker);
    const bool made = !known && write(kMarker, "");
    mFirstBoot = decide(made, take("first timer 8m").has_value(), excused(kMarker),
                        "the first boot's time-out");
    if (made && !mFirstBoot) mUnsure.insert(kMarker);
    if (mFirstBoot) expectCall(mOperations, "chmod 0777 " + kMarker);
    post(kTimeout, mFirstBoot ? 480 : 240);
}

void DaemonModel::poll() {
    if (!mBooted) mBooted = booted();
    followCapture();
    if (systemError()) return post(kRecovery, 10);
    mBooted = decide(mBooted, take("handleMessage booted, Anim closed.").has_value(), false,
                     "the end of the boot");
    if (!mBooted) {
        if (mErrType == 0) {
            parseProfile();
            int64_t type = 0;
            std::string note;
            if (mLoop && checkReason(type, note)) capture(type, mStuckPid, note);
        }
        return post(kPoll, 30);
    }
    handleKeptLogs();
    if (allComplete(take("boot finished, enter launcher.").has_value())) {
        if (checkSuccess(1)) expect("Have recoveryed.");
        return post(kAfterBoot, 120);
    }
    if (exists(kPmic)) remove(kPmic);
    if ((reason() & 255) != 22) return post(kPoll, 30);
    expect("errNotify type = 5, phase=7, detailPhase=0");
    notify(5, 7, 0, reason());
    capture(0x60036, 0, "");
    post(kRecovery, 10);
}

void DaemonModel::timeout() {
    if (mErrType != 0 || allComplete(std::nullopt)) return;
    if (!mBooted) mBooted = booted();
    if (mBooted) {
        int phase = 0;
        if (bootFinished(phase)) return;
        const bool same = phase != 0 && phase == mOobePhase;
        // A profile that could not be read has started the count anew.
        const auto declared = take(format("errNotify type = 5, phase=%d, detailPhase=0", phase));
        if (decide(same && mOobeChecks >= 2, declared.has_value(), cannotOpen(mProfilePath),
                   "a set-up wizard that hangs")) {
            return notify(5, phase, 0, reason());
        }
        mOobeChecks = same ? mOobeChecks + 1 : 0;
        mOobePhase = phase;
        return post(kTimeout, 240);
    }
    if (!contains(mLastKey, "performDexOpt")) ++mTimeouts;
    int64_t type = 0;
    std::string note;
    if (checkReason(type, note)) {
        capture(type, mStuckPid, note);
        expect("handleMessage is boot timeout so start kel");
        return;
    }
    expect("handleMessage is boot timeout, boot slowly, check again.");
    post(kTimeout, 240);
}

void DaemonModel::recover() {
    if (runRecovery(mReason)) {
        expect("Have found error number.");
    } else {
        expect(format("BOOTVIGIL wrong reason to run recovery, %d", mReason));
    }
    post(kExit, 10);
}

void DaemonModel::afterBoot() {
    if (systemError()) return post(kRecovery, 10);
    if (checkSuccess(2)) expect("Have recoveryed.");
    post(kExit, 10);
}

// ---- What is found out of a boot

bool DaemonModel::booted() const {
    return number("sys.boot_completed") != 0 && number("service.bootanim.exit") != 0;
}

// Once it is not 0 in its low byte, which all look at, the property no longer counts.
int DaemonModel::reason() {
    if (mCachedReason != 0) return mCachedReason;
    const int value = number("sys.vela.boot_fail_reason");
    mCachedReason = value & 255;
    return value;
}

bool DaemonModel::systemError() {
    const int value = reason();
    expect(format("BOOTVIGIL checkSystemError reason=%d", value & 255));
    if ((value & 255) != 20 && (value & 255) != 120) return false;
    notify(2, 5, 0, number("sys.vela.BOOT_COMPLETED") == 1 ? 120 : value);
    capture(0x60036, 0, "");
    return true;
}

// Its lines; none where it can't be opened, which the daemon says. A folder can be.
std::vector<std::string> DaemonModel::read(const std::string& path) {
    const bool kept = exists(path);
    const std::optional<std::string> text = kept ? content(path) : worldFile(path);
    const bool failed = take("parseBootProf open " + path + " failed").has_value();
    if (decide(!text, failed, cannotOpen(path), "the failure to open " + path)) return {};
    return linesOf(text.value_or(""));
}

// Looks for a restart loop, or else for how long the last event has stayed.
void DaemonModel::parseProfile() {
    mStuckPid = -1;
    const std::vector<std::string> lines = read(mProfilePath);
    if (lines.size() <= 2) {
        expect("parseBootProf Lines < 3");
        return;
    }
    mCounts.clear();
    for (auto line = lines.rbegin(); line != lines.rend(); ++line) {
        const std::vector<std::string> fields = split(*line, " :");
        if (fields.size() < 3) continue;
        const auto milestone = std::find(kMilestones.begin(), kMilestones.end(), fields[2]);
        if (milestone == kMilestones.end() || ++mCounts[fields[2]] < 5) continue;
        expect("parseBootProf reboot reason " + fields[2] + ", count 5");
        mLoopIndex = static_cast<int>(milestone - kMilestones.begin());
        mLoop = true;
        return;
    }
    const std::vector<std::string> fields = split(lines[lines.size() - 3], " :");
    if (fields.size() < 3) return;
    const std::string key = fields[1] + " | " + fields[2];
    expect("parseBootProf Last Line key " + key.substr(0, 900));
    mSameLine = key == mLastKey ? mSameLine + 1 : 0;
    mLastKey = key;
}

// `phase`: of the set-up wizard, where it may be stuck.
bool DaemonModel::bootFinished(int& phase) {
    const std::vector<std::string> lines = read(mProfilePath);
    if (lines.size() <= 2) {
        expect("parseBootProf Lines < 3");
        return false;
    }
    const int wizard = number("persist.sys.oobe", "2");
    if (wizard == 1 || wizard == 2) phase = wizard + 5;
    for (auto line = lines.rbegin(); line != lines.rend(); ++line) {
        const std::vector<std::string> fields = split(*line, " :");
        if (fields.size() >= 3 && fields[2] == "Post BOOT_COMPLETED" && wizard == 2 && booted()) {
            return true;
        }
    }
    return number("sys.vela.BOOT_COMPLETED") == 1;
}

// Whether the boot is finished; closes the books on earlier failures then. `observed`: whether the
// daemon was seen to find it so, where that can be seen.
bool DaemonModel::allComplete(std::optional<bool> observed) {
    int phase = 0;
    bool finished = bootFinished(phase);
    if (observed) {
        finished = decide(finished, *observed, cannotOpen(mProfilePath),
                          "the end of the boot for good");
    }
    if (!finished) return false;
    if (mOobePhase >= 6 && mOobePhase == mMainPhase) {
        // The wizard was slow, not stuck: the failure is taken back.
        const std::vector<std::string> lines = linesOf(content(kRecord));
        std::string rest;
        for (size_t i = 0; i + 1 < lines.size(); ++i) rest += lines[i] + "\n";
        if (!lines.empty()) write(kRecord, rest);
        remove(kFlag);
        mOobePhase = 0;
    }
    const std::string flag = content(kFlag, "0");
    const bool flagged = !flag.empty() && static_cast<unsigned char>(flag[0]) >= '1';
    if (!decide(flagged, take("enter submitInfo").has_value(), excused(kFlag) || cannotOpen(kFlag),
                "the submission of a flagged failure")) {
        return true;
    }
    submit();
    stamp(mErrType != 0 ? 1 : 2);
    remove(kFlag);
    return true;
}

// 0 for a process that nobody knows, -1 for none.
void DaemonModel::findStuckPid() {
    mStuckPid = -1;
    if (contains(mLastKey, "performDexOpt")) {
        expect("Now is perform DexOpt");
    } else if (mSameLine >= 3) {
        const std::vector<std::string> fields = split(mLastKey, "-");
        if (!fields.empty() && fields[0].find_first_not_of("0123456789") == std::string::npos) {
            mStuckPid = atoi(fields[0].c_str());
            expect(format("checkStuckPid stuck pid = %d", mStuckPid));
        } else if (mTimeouts > 2) {
            mStuckPid = 0;
        }
    } else if (mTimeouts >= 3) {
        mStuckPid = 0;
    }
}

// The detail number, 0 for none.
int DaemonModel::stuckDetail() {
    if (mLoop) {
        for (int i = mLoopIndex; i >= 0 && i < 11; ++i) {
            if (mCounts[kMilestones[i]] == 0) return i + kFirstMilestoneDetail;
        }
        return 255;
    }
    if (number("sys.boot_completed") == 1 && number("service.bootanim.exit") == 0) return 3;
    if (mStuckPid == -1) return 0;
    return mCounts["Android:SysServerInit_START"] == 1 ? 2 : 1;
}

// Names what the boot is stuck at, and says what to capture of it.
bool DaemonModel::checkReason(int64_t& type, std::string& note) {
    const std::string start = "checkReason Reason = ";
    findStuckPid();
    const int predicted = stuckDetail();
    const auto line = take(start);
    int detail = line ? atoi(line->c_str() + start.size()) : 0;
    if (detail != predicted && !cannotOpen(mProfilePath) && !(mCutShort && !line)) {
        broken(format("finds detail %d where the rules say %d", detail, predicted));
    }
    if (mCutShort && !line) detail = predicted;
    if (detail == 0) return false;
    if (line && !cannotOpen(kReason) &&
        *line != format("%s%d, file Reason = %s", start.c_str(), detail, mFileReason.c_str())) {
        broken("reads another reason file: " + *line);
    }
    if (detail != 3) {
        notify(mLoop ? 2 : 5, detail == 2 ? 5 : 4, detail, 100);
        post(kRecovery, 10);
    }
    type = detail == 1 ? 0x60436 : detail == 2 ? 0x60276 : detail == 3 ? 0x61036 : 0x60036;
    note = healthNote();
    if (detail == 10 || detail == 11) {
        note += "/data/system/users/0.xml;/data/system/users/userlist.xml/data/system/"
                "packages.xml;/data/system/uiderrors.txt";
    }
    if (detail == 2) {
        expectCall(mSignals, format("%d %d", SIGQUIT, mStuckPid));
        if (mStuckPid == 0) {
            mQuits = true;
            throw Aborted();
        }
        mNow += 2000;
        applyChanges(mNow);
    }
    write(kReason, std::to_string(detail));
    return true;
}

}  // namespace lab
