// SPDX-License-Identifier: Apache-2.0
// The reference platform: device/prepare before the daemon, and bootvigil-act for what init starts
// it for, both as a device has them, in the device root.

#pragma once

#include <stdint.h>
#include <time.h>

#include <string>
#include <vector>

#include "lab/base/Trace.h"
#include "lab/rules/PlatformRules.h"
#include "lab/scenario/Scenario.h"

namespace lab {

class DeviceRoot;
class RunLog;

// How the daemon's part of a boot ended.
struct BootEnd {
    int64_t at = 0;     // device time, ms
    bool over = false;  // the boot ended with it
};

// Both programs say what they do in the kernel log, which becomes records of the run.
class ReferencePlatform {
public:
    // Adds to a new root what the platform's partitions hold. Both must outlive it; `log` may be
    // null. Throws std::exception, here and below.
    ReferencePlatform(const DeviceRoot& root, RunLog* log);

    // Before the daemon starts; `clock` is the time of day (UTC).
    void prepare(const Scenario& device, const Boot& boot, time_t clock);

    // Adds what that said to the run's records.
    void recordPrepared() const;

    // After the daemon: what became of its request, and of a boot that came up later. `events` are
    // those of the daemon's part.
    PlatformActs finish(const Scenario& device, const Boot& boot,
                        const std::vector<TraceEvent>& events, const BootEnd& end);

private:
    void answer(const Scenario& device, const Boot& boot, int64_t last, PlatformActs& acts);
    // Runs bootvigil-act from a device time on; gives its exit status, or kCutOff when the boot
    // ends before, at `until`. Then mTrace has when it ended.
    int act(const char* verb, int64_t at, const Boot& boot, int64_t until);
    void writeInside(const std::string& path, const std::string& content) const;

    const DeviceRoot& mRoot;
    RunLog* const mLog;
    time_t mClock = 0;
    Trace mTrace;
};

}  // namespace lab
