// SPDX-License-Identifier: Apache-2.0
// Runs the boots of a scenario, one after the other, on one simulated device in virtual time.

#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include "DeviceRoot.h"
#include "RunLog.h"
#include "Scenario.h"

namespace lab {

struct BootOutcome {
    int64_t endedAt = 0;     // device time, ms
    double realSeconds = 0;  // of the workstation
    std::string errors;      // what the daemon wrote to standard error
};

// Runs a scenario. Everything is kept in `folder`, which must be missing or empty: the device
// root ("root"), the log of the run ("run.jsonl") and each boot's standard error.
class Saga {
public:
    // Throws std::runtime_error when the folder can't be made.
    Saga(const Scenario& scenario, std::string folder);

    // Throws std::runtime_error when a boot can't be run at all; how the daemon fares is no error.
    void run();

    const std::vector<BootOutcome>& outcomes() const {
        return mOutcomes;
    }
    std::vector<Record> records() const {
        return mLog.read();
    }
    const DeviceRoot& root() const {
        return mRoot;
    }

private:
    void prepareDevice();
    void prepareBoot(const Boot& boot);
    void fillLogs();
    BootOutcome runBoot(const Boot& boot, int number);
    void finishBoot(const BootOutcome& outcome);

    const Scenario& mScenario;
    std::string mFolder;
    DeviceRoot mRoot;
    RunLog mLog;
    std::vector<BootOutcome> mOutcomes;
    time_t mClock;                     // time of day at the start of the next boot
    std::string mBootReason = "cold";  // of the next boot
    TextMap mPersistent;               // properties that survive a boot
    std::string mLastConsole;          // kernel log of the boot before; empty at first
};

}  // namespace lab
