// SPDX-License-Identifier: Apache-2.0
// What each message of the daemon must do, from the state that the messages before it left.
// DaemonModel.cpp has the messages and what they find out of a boot, DaemonRecords.cpp what they
// write and capture of a failure, DaemonRecovery.cpp the recovery.

#pragma once

#include <signal.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "lab/base/DevicePaths.h"
#include "lab/rules/Codes.h"
#include "lab/rules/DeviceModel.h"
#include "lab/rules/Reading.h"

namespace lab {

constexpr size_t kLongestLogged = 900;  // of a text that a log line must show whole

class DaemonModel : protected DeviceModel {
protected:
    explicit DaemonModel(const BootObservation& boot);

    void beforeMessages();
    void post(int what, int64_t seconds);
    // Throws MustEnd.
    void handle(int what);

    std::multimap<int64_t, int> mPending;  // messages, by when they are due
    bool mReset = false;                   // asked of the platform
    int64_t mRequest = -1;                 // to the platform, when
    std::string mRecordLines;              // that were to be written
    bool mCaptured = false;                // the logs, by itself

private:
    struct Wanted {  // of a capture
        int64_t type = kCaptureAll;
        int pid = 0;
        std::string note;
    };

    // What the platform has kept of an earlier boot, and what is said of it.
    struct KeptLog {
        std::string name, missing, got, notGot, notCleaned;
        std::string copy;  // to be captured
        int type, phase;   // of the failure
    };

    // What a recovery does.
    struct Step {
        int action = 0;       // 0: none that is asked for
        std::string history;  // that it writes; empty: it doesn't
    };

    // The messages.
    void start();
    void poll();
    void timeout();
    void checkWizard();

    // What is found out.
    bool booted() const;
    int reason();
    bool systemError();
    std::vector<std::string> read(const std::string& path);
    std::vector<std::string> readProfile();
    void parseProfile();
    bool bootFinished(int* wizardPhase = nullptr);
    void settle();
    int findStuckPid();
    std::optional<Wanted> checkReason();
    Wanted nameStall(int detail, int pid);

    // Records and captures.
    bool usable();
    void notify(int type, int phase, int detail, int reason);
    std::string recordLine(int code, const std::string& info, const std::string& extra) const;
    void backUp();
    void revert();
    void submit();
    void upload(const std::string& path, const std::string& text);
    void capture(Wanted wanted);
    void leaveMarker();
    void saveDeviceInfo();
    void captureSelf();
    void journal(const std::string& text);
    void followCapture();
    bool isMissing(const std::string& folder, const std::string& part, const std::string& line);
    void handleKeptLogs();
    void handleKeptLog(const KeptLog& log);
    std::string healthNote() const;

    // Recovery.
    bool disabled();
    std::string historyLine() const;
    int lastAction() const;
    void removeHistory();
    bool runRecovery();
    Step predict(const std::string& place, const std::string& last) const;
    Step observe();
    Step reconcile(const Step& seen, bool unread, bool known);
    void act(int action);
    bool checkSuccess(bool late);

    std::string mProfilePath = kBootProfile, mFileReason;
    bool mBooted = false, mRawDone = false, mFirstBoot = false;
    int mErrType = 0, mMainPhase = 0, mReason = 0;
    ProfileModel mProfile;
    int mTimeouts = 0, mWizardPhase = 0, mWizardChecks = 0;
    int mCaptureState = 0;  // 1: the service was asked, 2: captured itself, 3: in vain
    std::optional<bool> mDisabled;
    std::string mCoreText;
    std::string mTable = "00000",
                mList;  // of actions, a digit for each: the override's, and that in force
};

}  // namespace lab
