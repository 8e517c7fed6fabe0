// SPDX-License-Identifier: Apache-2.0
// The world around the daemon during one boot: what changes by itself, how the platform answers the
// daemon, and what the daemon is seen to do. Runs inside the device root.

#pragma once

#include <stdint.h>

#include <deque>
#include <optional>
#include <string>
#include <vector>

#include "lab/base/Trace.h"
#include "lab/device/LibcTime.h"
#include "lab/device/RunLog.h"
#include "lab/scenario/Scenario.h"

namespace lab {

// A file that the daemon writes: every change of it becomes a record.
struct WatchedFile {
    enum class How { LINES, TEXT, ARCHIVE };
    std::string path;
    const char* kind;       // of the records
    How how;                // new lines, the whole text, or the size of what a .zs file holds
    std::string name = {};  // second word of the record, may be empty
    std::optional<std::string> seen = {};  // content or identity at the last look, if it was there
};

// What a process holds open.
struct Held {
    int files = 0;
    int folders = 0;
};

class DeviceWorld : public World {
public:
    // All must outlive the world. Looks at the files once, so that only later changes are records;
    // without a log nobody looks at them.
    DeviceWorld(const Scenario& device, const Boot& boot, RunLog* log, Trace& trace);

    void advanceTo(int64_t target) override;
    void onIdle() override;
    void onWake() override;
    void onSignal(pid_t pid, int signal) override;
    int onCancelMonitor() override;
    void onFreeSpace(const char* path, struct statfs& info) override;

    // Records what the daemon has done since it was last looked at.
    void observe();

private:
    void apply(const Change& change);
    void applyToFile(const Change& change);
    void add(Change change);
    void answerRequests();
    void showProfile(int64_t now);
    void recordChange(const WatchedFile& file, const std::string& before);
    void recordLines(const WatchedFile& file, const std::string& before, Record fields);
    void tell(const char* kind, const std::string& text, const Record& fields);

    const Boot& mBoot;
    const std::optional<int64_t> mRebootAfter;  // unset: the reference platform answers later
    const bool mOwnPartition;
    RunLog* const mLog;
    Trace& mTrace;
    std::deque<Change> mChanges;  // to come, in order of time
    std::vector<WatchedFile> mWatched;
    size_t mEventsShown = 0;
    int mLowestFree = -1;            // descriptor, when the daemon last went to sleep
    std::optional<Held> mHeldFirst;  // when the daemon first went to sleep
    std::string mHeld;               // and more than that, when it last did
    bool mRequestSeen = false;
    std::string mKelRequests;
};

}  // namespace lab
