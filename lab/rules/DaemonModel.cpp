// SPDX-License-Identifier: Apache-2.0
// What each message must do, and what it must find out of a boot.

#include "lab/rules/DaemonModel.h"

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
        if (first >= end) throw MustEnd{SIGABRT};
        const size_t size = text.find_last_not_of(' ', end - 1) + 1 - from;
        fields.push_back(text.substr(first, std::min(size, end - first)));
    }
    return fields;
}

namespace {

std::string eventOf(const std::string& line) {
    const std::vector<std::string> fields = split(line, " :");
    return fields.size() < 3 ? "" : fields[2];
}

}  // namespace

DaemonModel::DaemonModel(const BootObservation& boot)
    : DeviceModel(boot), mFileReason(firstLine(content(kReason))) {
    post(kStart, 10);
}

// ---- Before the messages, and the messages

void DaemonModel::beforeMessages() {
    if (number("persist.sys.bootvigil.debug.startbootvigil") != 0) return;
    if (!cannotOpen(kBootMonitor)) expectAct(TraceEvent::MONITOR, "");
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
            if (mLoopIndex >= 0) {
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
    if (!contains(mLastKey, "performDexOpt")) ++mTimeouts;
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

// Looks for a restart loop, or else for how long the last event has stayed.
void DaemonModel::parseProfile() {
    const std::vector<std::string> lines = readProfile();
    if (lines.empty()) return;
    mCounts.clear();
    for (const std::string& line : lines) {
        const std::string event = eventOf(line);
        const auto milestone = std::find(kMilestones.begin(), kMilestones.end(), event);
        if (milestone == kMilestones.end() || ++mCounts[event] < 5) continue;
        expect("parseBootProf reboot reason " + event + ", count 5");
        mLoopIndex = static_cast<int>(milestone - kMilestones.begin());
        return;
    }
    const std::vector<std::string> fields = split(lines[2], " :");
    if (fields.size() < 3) return;
    const std::string key = fields[1] + " | " + fields[2];
    expect("parseBootProf Last Line key " + key.substr(0, kLongestLogged));
    mSameLine = key == mLastKey ? mSameLine + 1 : 0;
    mLastKey = key;
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
    if (contains(mLastKey, "performDexOpt")) {
        expect("Now is perform DexOpt");
        return -1;
    }
    if (mSameLine >= 3) {
        const std::vector<std::string> fields = split(mLastKey, "-");
        if (!fields.empty() && fields[0].find_first_not_of("0123456789") == std::string::npos) {
            const int pid = atoi(fields[0].c_str());
            expect(format("checkStuckPid stuck pid = %d", pid));
            return pid;
        }
    }
    return mTimeouts > 2 ? 0 : -1;
}

// The detail number, 0 for none.
int DaemonModel::stuckDetail(int pid) {
    if (mLoopIndex >= 0) {
        for (size_t i = mLoopIndex; i < kMilestones.size(); ++i) {
            if (mCounts[kMilestones[i]] == 0) return static_cast<int>(i) + kFirstMilestoneDetail;
        }
        return kOtherDetail;
    }
    if (number("sys.boot_completed") == 1 && number("service.bootanim.exit") == 0) {
        return kAnimationDetail;
    }
    if (pid == -1) return 0;
    return mCounts["Android:SysServerInit_START"] == 1 ? kSystemServerDetail : kNativeDetail;
}

// Names what the boot is stuck at, and says what to capture of it.
std::optional<DaemonModel::Wanted> DaemonModel::checkReason() {
    const std::string start = "checkReason Reason = ";
    const int pid = findStuckPid();
    const int predicted = stuckDetail(pid);
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
        notify(mLoopIndex >= 0 ? kCrash : kHang, server ? kSystemServerPhase : kNativePhase, detail,
               kFoundByDaemon);
        post(kRecovery, 10);
    }
    Wanted wanted = {kCaptureAll, pid, healthNote()};
    if (detail == kNativeDetail) wanted.type += 0x400;
    if (detail == kSystemServerDetail) wanted.type += 0x240;
    if (detail == kAnimationDetail) wanted.type += 0x1000;
    if (detail == kPackageScanDetail || detail == kPackagesReadyDetail) {
        wanted.note += kPackageFiles;
    }
    if (detail == kSystemServerDetail) {
        expectAct(TraceEvent::SIGNAL, format("%d %d", SIGQUIT, pid));
        if (pid == 0) throw MustEnd{SIGQUIT};  // itself
        mNow += 2000;
        applyChanges(mNow);
    }
    write(kReason, std::to_string(detail));
    return wanted;
}

}  // namespace lab
