// SPDX-License-Identifier: Apache-2.0
// What each message of the daemon must do, from the state that the messages before it left: the
// rules themselves. DaemonModel.cpp has the messages and what they find out of a boot,
// DaemonRecords.cpp what they write and capture of a failure, DaemonRecovery.cpp the recovery.

#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "lab/rules/DeviceModel.h"

namespace lab {

// The rules end the process here.
struct Aborted {};
struct Exited {
    int status;
};

constexpr int kPoll = 0x20010;
constexpr int kTimeout = 0x20020;
constexpr int kStart = 0x20030;
constexpr int kRecovery = 0x20040;
constexpr int kExit = 0x20050;
constexpr int kAfterBoot = 0x20060;

// Fields without the blanks around them, but for as many at the end as there were in front.
// Throws Aborted for a field of blanks.
std::vector<std::string> split(const std::string& text, const std::string& by);

// The recovery list for a reason where none was pushed to the device; null for other reasons.
const std::vector<int>* defaultRecoveryList(int reason);

// What a list that was pushed to the device changes of the table of modes, by the last line for the
// reason. Throws Aborted as split() does.
void readOverrideList(const std::vector<std::string>& lines, int reason, std::vector<int>& modes);

class DaemonModel : protected DeviceModel {
protected:
    DaemonModel(const BootObservation& boot, Books& books);

    void beforeMessages();
    void post(int what, int64_t seconds);
    // Throws Aborted or Exited where the process must end.
    void handle(int what);

    struct Pending {
        int64_t due;
        int what;
    };
    std::vector<Pending> mPending;
    bool mQuits = false;       // it signals itself
    bool mReset = false;       // asked of the platform
    int64_t mRequest = -1;     // to the platform, when
    std::string mRecordLines;  // that were to be written
    bool mCaptured = false;    // the logs, by itself

private:
    // The messages.
    void start();
    void poll();
    void timeout();
    void recover();
    void afterBoot();

    // What is found out.
    bool booted() const;
    int reason();
    bool systemError();
    std::vector<std::string> read(const std::string& path);
    void parseProfile();
    bool bootFinished(int& phase);
    bool allComplete(std::optional<bool> observed);
    void findStuckPid();
    int stuckDetail();
    bool checkReason(int64_t& type, std::string& note);

    // Records and captures.
    bool usable();
    void notify(int type, int phase, int detail, int reason);
    void saveRecord(int detail);
    void backUp();
    void submit();
    std::string lastRecordLine();
    void stamp(int code);
    void upload(const std::string& path, const std::string& text);
    void capture(int64_t type, int pid, std::string note);
    void expectRequest(int64_t type, int pid, const std::string& note);
    void leaveMarker();
    void saveDeviceInfo();
    void captureSelf();
    void followCapture();
    bool isMissing(const std::string& folder, const std::string& part, const std::string& line);
    void handleKeptLogs();
    bool keeps(const std::string& log, const std::string& line);
    std::string healthNote() const;

    // Recovery.
    bool disabled();
    int recoveryMode() const;
    void removeHistory();
    void chooseList(int error);
    int nextMode() const;
    bool runRecovery(int error);
    void act(int mode);
    bool checkSuccess(int kind);

    std::string mProfilePath = "/proc/bootprof", mFileReason;
    bool mBooted = false, mRawDone = false, mFirstBoot = false, mLoop = false;
    int mErrType = 0, mMainPhase = 0, mReason = 0, mCachedReason = 0;
    int mLoopIndex = -1, mStuckPid = -1, mSameLine = 0, mTimeouts = 0;
    int mOobePhase = 0, mOobeChecks = 0, mCaptureState = 0, mDisabled = -1;
    std::string mCoreText, mLastKey;
    std::map<std::string, int> mCounts;  // of milestones
    std::vector<int> mTable = {0, 0, 0, 0, 0};
    const std::vector<int>* mList = nullptr;
};

}  // namespace lab
