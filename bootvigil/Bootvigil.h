// SPDX-License-Identifier: Apache-2.0
// The monitor: the daemon's one object, which owns every other and holds the progress of the boot.

#pragma once

#include <map>
#include <string>

#include <utils/RefBase.h>

#include "BfRecovery.h"
#include "BootMilestones.h"
#include "ErrNumInfo.h"
#include "Handler.h"
#include "StoragePaths.h"
#include "compress/CompressBase.h"

// The texts of kMilestoneNames, built once by Bootvigil.cpp.
extern const std::string kBootMilestones[kMilestoneCount];

// The boot profile to read. By design: changeable; MSG_START switches it to "/proc/velabootprof"
// where that exists.
extern std::string kBootProfPath;

// Part of the last boot event while packages are optimised, which is slow but not stuck.
constexpr const char* kDexOptMark = "performDexOpt";

// Base of the type masks handed to the log-capture service, which defines their bits.
constexpr long kCaptureTypeBase = 0x60036;

class BootvigilHandler;

// Once Start() has returned, only the handler thread touches the object, so nothing is locked.
class Bootvigil : public android::RefBase {
public:
    // The one object. The first call makes it, with its handler thread running, and nothing ever
    // releases it. Concurrent first calls are not safe.
    static Bootvigil* createInstance();

    // Posts the first message; cancels the kernel-side monitor unless the debug property is set.
    void Start();

    // Makes missing persistent directories; false when nothing can be written there.
    static bool checkVelafs();

    // Records a failure: the codes and the time in mErrNumInfo, a line in the record file. The
    // codes are bytes, whatever the sign of char.
    void errNotifyWithReason(char type, char phase, char detailPhase, char reason);

    // Records a failure reported or noticed after boot, with the cached boot-failure reason.
    void notifyAfterBoot(char phase);

    // Re-reads the boot profile: sets mRestartLoop and mPhaseIndex when a milestone has come five
    // times, else updates mLastLine and mSameLineCount; fills mMilestones and clears mStuckPID.
    void parseBootProf();

    // Decides whether and where the boot is stuck. True: the capture triple is filled, and unless
    // only the boot animation stays, the failure is recorded and recovery is posted. False: no
    // stuck process could be named, and the triple is untouched.
    bool checkReason(long& type, int& pid, std::string& ext);

    // True when the boot has finished for good. Then it also submits a failure that an earlier boot
    // flagged, and takes back a set-up-wizard stall that has resolved itself.
    bool checkBootAllComplete();

    // The set-up wizard check after boot: true when the boot has finished. `*keepWatching` becomes
    // false once a set-up-wizard stall has been declared, else true.
    bool checkStuckOOBE(bool* keepWatching);

    // True when the platform has declared a system error; it is then recorded and captured.
    bool checkSystemError();

    // Preserves the logs of a failure: asks the log-capture service or captures them itself, and
    // sets mCaptureState. `note` lists extra files, each followed by ";".
    void captureLog(long& type, int& pid, std::string& note);

    // The same for a failure without a stuck process, with the base type.
    void captureSystem(std::string note = "");

    // Makes a log kept by the raw-log library readable and asks for a capture that names it.
    void captureRawLog(std::string path);

    // Compresses the seven logs of a failure into the log directory, replacing earlier ones.
    void compressLogs();

    // Appends what `command` prints to `output`; 0, or -1 when it can't be started.
    int shellCmdFile(const char* command, std::string& output);

    std::string mSpare;  // By design: never used; it only keeps its place in the object.
    android::sp<HandlerThread> mHandlerThread;
    android::sp<BootvigilHandler> mHandler;
    bool mRestartLoop = false;
    int mStuckPID = -1;                      // -1: none, 0: stuck, but the process is unknown
    std::string mLastLine;                   // "pid-process | event" of the last event line
    int mSameLineCount = 0;                  // polls in which mLastLine did not change
    std::map<std::string, int> mMilestones;  // occurrences of each milestone in the last parse
    std::string mStuckReason;                // detail phase that an earlier run stored
    int mPhaseIndex = -1;                    // milestone of the restart loop
    bootvigil::CompressBase* mCompressor = nullptr;
    ErrNumInfo* mErrNumInfo = nullptr;
    BfRecovery* mBfRecovery = nullptr;
    int mOobePhase = 0;       // set-up-wizard phase at the last check: 0, 6 or 7
    int mOobeCheckCount = 0;  // further checks in a row that saw the same phase
    int mTimeoutCount = 0;    // boot time-outs outside the dexopt phase
    int mCaptureState = 0;    // 0 none, 1 asked the service, 2 captured here, 3 that went missing
    std::string mCaptureNote;

private:
    Bootvigil();
    ~Bootvigil() override;
};

// Tells the kernel-side boot monitor that this daemon has taken over; 0, or -1 without the device.
int NotifyCancelBootvigilMonitor();
