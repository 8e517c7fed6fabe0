// SPDX-License-Identifier: Apache-2.0
// What each message must do, and what it must find out of a boot.

#include "lab/rules/DaemonModel.h"

#include <stdlib.h>

#include <algorithm>

#include "lab/base/DevicePaths.h"
#include "lab/base/Text.h"
#include "lab/rules/Milestones.h"

namespace lab {

DaemonModel::DaemonModel(const BootObservation& boot)
    : DeviceModel(boot), mFileReason(firstLine(content(kReason))) {
    post(kStart, 10);
}

// ---- Before the messages, and the messages

void DaemonModel::beforeMessages() {
    if (number("persist.sys.bootvigil.debug.startbootvigil") != 0) return;
    expectAct(TraceEvent::MONITOR, "", cannotOpen(kBootMonitor));
}

void DaemonModel::post(int what, int64_t seconds) {
    mPending.emplace(mNow + seconds * 1000, what);
}

void DaemonModel::handle(int what) {
    if (what == kStart) return start();
    if (what == kPoll) return poll();
    if (what == kTimeout) return timeout();
    if (what == kExit) {
        expect("bootvigil exit.");
        throw MustEnd{};
    }
    if (what == kAfterBoot) {
        if (systemError()) return post(kRecovery, 10);
        if (checkSuccess(/* late= */ true)) expect("Have recoveryed.");
    } else if (what == kRecovery) {
        expect(runRecovery() ? "Have found error number."
                             : format("BOOTVIGIL wrong reason to run recovery, %d", mReason));
    } else {
        return broken("a message that no rule names");
    }
    post(kExit, 10);
}

void DaemonModel::start() {
    if (property("ro.boot.mode") != "normal") throw MustEnd{};
    if (worldFile(kVelaBootProfile)) mProfilePath = kVelaBootProfile;
    expectAct(TraceEvent::PROPERTY, "sys.bootvigil.version 3.365");
    post(kPoll, 30);
    const bool made = !exists(kMarker) && write(kMarker, "");
    mFirstBoot = says("first timer 8m", made, excused(kMarker));
    if (made && !mFirstBoot) mUnsure.insert(kMarker);
    if (mFirstBoot) expectAct(TraceEvent::OPERATION, "chmod 0777 " + kMarker);
    post(kTimeout, mFirstBoot ? 480 : 240);
}

void DaemonModel::poll() {
    if (!mBooted) mBooted = booted();
    followCapture();
    if (systemError()) return post(kRecovery, 10);
    mBooted = says("handleMessage booted, Anim closed.", mBooted);
    if (!mBooted) {
        if (mErrType == 0) {
            parseProfile();
            if (mProfile.loop >= 0) {
                if (const auto wanted = checkReason()) capture(*wanted);
            }
        }
        return post(kPoll, 30);
    }
    handleKeptLogs();
    if (says("boot finished, enter launcher.", bootFinished(), cannotOpen(mProfilePath))) {
        settle();
        if (checkSuccess(/* late= */ false)) expect("Have recoveryed.");
        return post(kAfterBoot, 120);
    }
    if (exists(kPmic)) remove(kPmic);
    if ((reason() & 255) != kKeyLockError) return post(kPoll, 30);
    expect("errNotify type = 5, phase=7, detailPhase=0");
    notify(kHang, kKeyLockPhase, 0, reason());
    capture({});
    post(kRecovery, 10);
}

void DaemonModel::timeout() {
    if (mErrType != 0) return;
    if (bootFinished()) return settle();
    if (!mBooted) mBooted = booted();
    if (mBooted) return checkWizard();
    if (!mProfile.optimises()) ++mTimeouts;
    if (const auto wanted = checkReason()) {
        capture(*wanted);
        expect("handleMessage is boot timeout so start kel");
    } else {
        expect("handleMessage is boot timeout, boot slowly, check again.");
        post(kTimeout, 240);
    }
}

// It hangs where it is in the same phase for the fourth time.
void DaemonModel::checkWizard() {
    int phase = 0;
    if (bootFinished(&phase)) return;
    const bool same = phase != 0 && phase == mWizardPhase;
    // A profile that could not be read has started the count again.
    if (says(format("errNotify type = 5, phase=%d, detailPhase=0", phase),
             same && mWizardChecks >= 2, cannotOpen(mProfilePath))) {
        return notify(kHang, phase, 0, reason());
    }
    mWizardChecks = same ? mWizardChecks + 1 : 0;
    mWizardPhase = phase;
    post(kTimeout, 240);
}

// ---- What is found out of a boot

bool DaemonModel::booted() const {
    return number("sys.boot_completed") != 0 && number("service.bootanim.exit") != 0;
}

// Once it is not 0 in its low byte, which all look at, the property no longer counts.
int DaemonModel::reason() {
    if (mReason != 0) return mReason;
    const int value = number("sys.vela.boot_fail_reason");
    mReason = value & 255;
    return value;
}

bool DaemonModel::systemError() {
    const int value = reason();
    expect(format("BOOTVIGIL checkSystemError reason=%d", value & 255));
    if ((value & 255) != kSystemError && (value & 255) != kLateSystemError) return false;
    const bool complete = number("sys.vela.BOOT_COMPLETED") == 1;
    notify(kCrash, kSystemServerPhase, 0, complete ? kLateSystemError : value);
    capture({});
    return true;
}

// Its lines; none where it can't be opened, which the daemon says. A folder can be.
std::vector<std::string> DaemonModel::read(const std::string& path) {
    const std::optional<std::string> text = exists(path) ? content(path) : worldFile(path);
    if (says("parseBootProf open " + path + " failed", !text, cannotOpen(path))) return {};
    return linesOf(text.value_or(""));
}

// Its lines, the last one first; none of a profile that is too short.
std::vector<std::string> DaemonModel::readProfile() {
    std::vector<std::string> lines = read(mProfilePath);
    if (lines.size() > 2) {
        std::reverse(lines.begin(), lines.end());
        return lines;
    }
    expect("parseBootProf Lines < 3");
    return {};
}

void DaemonModel::parseProfile() {
    if (!mProfile.read(readProfile())) return;
    expect(mProfile.loop < 0
                   ? "parseBootProf Last Line key " + mProfile.key.substr(0, kLongestLogged)
                   : "parseBootProf reboot reason " + kMilestones[mProfile.loop] + ", count 5");
}

// `wizardPhase`: set where the set-up wizard may be stuck.
bool DaemonModel::bootFinished(int* wizardPhase) {
    const std::vector<std::string> lines = readProfile();
    if (lines.empty()) return false;
    const int wizard = number("persist.sys.oobe", "2");
    if (wizardPhase != nullptr && wizard == 1) *wizardPhase = kWizardPhase;
    if (wizardPhase != nullptr && wizard == 2) *wizardPhase = kKeyLockPhase;
    for (const std::string& line : lines) {
        if (eventOf(line) == "Post BOOT_COMPLETED" && wizard == 2 && booted()) return true;
    }
    return number("sys.vela.BOOT_COMPLETED") == 1;
}

// The boot is finished: failures are taken back or submitted.
void DaemonModel::settle() {
    if (mWizardPhase >= kWizardPhase && mWizardPhase == mMainPhase) {
        revert();
        remove(kFlag);
        mWizardPhase = 0;
    }
    const std::string flag = content(kFlag, "0");
    const bool flagged = !flag.empty() && static_cast<unsigned char>(flag[0]) >= '1';
    if (!says("enter submitInfo", flagged, excused(kFlag) || cannotOpen(kFlag))) return;
    submit();
    if (exists(kRecord)) {  // after the failure's line: a boot has been good since
        const std::string line = recordLine(0xf00000 + (mErrType != 0 ? 1 : 2), "", "");
        mRecordLines += line;
        writeOrLog(kRecord, line, true);
    }
    remove(kFlag);
}

// 0 for a process that nobody knows, -1 for none.
int DaemonModel::findStuckPid() {
    if (mProfile.optimises()) {
        expect("Now is perform DexOpt");
        return -1;
    }
    if (const auto pid = mProfile.stuckPid()) {
        expect(format("checkStuckPid stuck pid = %d", *pid));
        return *pid;
    }
    return mTimeouts > 2 ? 0 : -1;
}

// Names what the boot is stuck at, and says what to capture of it.
std::optional<DaemonModel::Wanted> DaemonModel::checkReason() {
    const std::string start = "checkReason Reason = ";
    const int pid = findStuckPid();
    const bool animationStays =
            number("sys.boot_completed") == 1 && number("service.bootanim.exit") == 0;
    const int predicted = mProfile.stuckDetail(pid, animationStays);
    const auto line = take(start);
    int detail = line ? atoi(line->c_str() + start.size()) : 0;
    if (mCutShort && !line) detail = predicted;
    if (detail != predicted && !cannotOpen(mProfilePath)) {
        broken(format("finds detail %d where the rules say %d", detail, predicted));
    }
    if (detail == 0) return std::nullopt;
    if (line && !cannotOpen(kReason) &&
        *line != format("%s%d, file Reason = %s", start.c_str(), detail, mFileReason.c_str())) {
        broken("reads another reason file: " + *line);
    }
    return nameStall(detail, pid);
}

DaemonModel::Wanted DaemonModel::nameStall(int detail, int pid) {
    if (detail != kAnimationDetail) {
        const bool server = detail == kSystemServerDetail;
        notify(mProfile.loop >= 0 ? kCrash : kHang, server ? kSystemServerPhase : kNativePhase,
               detail, kFoundByDaemon);
        post(kRecovery, 10);
    }
    const std::string note = healthNote() + capturedFiles(detail);
    if (detail == kSystemServerDetail) {
        expectAct(TraceEvent::SIGNAL, format("%d %d", SIGQUIT, pid));
        if (pid == 0) throw MustEnd{SIGQUIT};  // itself
        mNow += 2000;
        applyChanges(mNow);
    }
    write(kReason, std::to_string(detail));
    return {captureType(detail), pid, note};
}

}  // namespace lab
