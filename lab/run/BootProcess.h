// SPDX-License-Identifier: Apache-2.0
// A boot of the daemon, in a process of its own.

#pragma once

#include <stdint.h>
#include <time.h>

#include <string>
#include <vector>

#include "lab/base/Trace.h"
#include "lab/rules/Observation.h"

namespace lab {

class DeviceRoot;
class RunLog;

struct BootOutcome {
    BootObservation::End end = BootObservation::End::EXITED;
    int status = 0;                     // exit status or signal
    int64_t endedAt = 0;                // device time, ms
    double realSeconds = 0;             // of the workstation
    std::string errors;                 // what the daemon wrote to standard error
    int64_t operations = 0;             // of the daemon on files
    std::vector<Violation> violations;  // of the rules that every boot must keep
};

class BootProcess {
public:
    // `log` may be null. All must outlive the object.
    BootProcess(const Scenario& device, const DeviceRoot& root, RunLog* log)
        : mDevice(device), mRoot(root), mLog(log) {}

    // Runs a boot to its end; `clock` is the time of day at its start (UTC), and what the daemon
    // writes to standard error goes to `errorFile`. No rule is checked yet. Throws
    // std::runtime_error when the boot can't be run.
    BootOutcome run(const Boot& boot, time_t clock, const std::string& errorFile);

    // Of the last boot.
    const Trace& trace() const {
        return mTrace;
    }

private:
    [[noreturn]] void becomeDaemon(const Boot& boot, time_t clock, const std::string& errorFile);
    void classify(int status, BootOutcome& outcome);

    const Scenario& mDevice;
    const DeviceRoot& mRoot;
    RunLog* const mLog;
    Trace mTrace;
};

}  // namespace lab
