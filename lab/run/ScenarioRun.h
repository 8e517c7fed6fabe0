// SPDX-License-Identifier: Apache-2.0
// Runs the boots of a scenario, one after the other, on one simulated device in virtual time.

#pragma once

#include <stdint.h>

#include <optional>
#include <string>
#include <vector>

#include "lab/device/DeviceRoot.h"
#include "lab/device/RunLog.h"
#include "lab/run/BootProcess.h"

namespace lab {

// How much is kept of a run.
enum class Keep {
    LOG,          // the log of the run ("run.jsonl") and each boot's errors ("boot-1.stderr")
    TRACE,        // nothing but what the rules need; several hundred boots a second
    FINGERPRINT,  // the same, and a sum of everything that the daemon did and left, as with LOG
};

// Runs a scenario. Everything is kept in `folder`, which must be missing or empty, and in whose
// folder "root" lies the device.
class ScenarioRun {
public:
    // Throws std::runtime_error when the folder can't be made. `tools` as for DeviceRoot.
    ScenarioRun(const Scenario& scenario, const std::string& folder, Keep keep = Keep::LOG,
                const std::string& tools = "");

    // Throws std::runtime_error when a boot can't be run at all; how the daemon fares is no error.
    void run();

    const std::vector<BootOutcome>& outcomes() const {
        return mOutcomes;
    }
    // Only of a run with Keep::LOG.
    std::vector<Record> records() const;
    const DeviceRoot& root() const {
        return mRoot;
    }
    // Equal for runs that did the same, call by call and byte by byte; not of one with Keep::TRACE.
    uint64_t fingerprint() const {
        return mFingerprint;
    }

private:
    BootOutcome runBoot(BootProcess& process, const BootObservation& seen, int number);
    void addToFingerprint(const Trace& trace);

    const Scenario& mScenario;
    const Keep mKeep;
    const std::string mFolder;
    DeviceRoot mRoot;
    std::optional<RunLog> mLog;
    std::vector<BootOutcome> mOutcomes;
    uint64_t mFingerprint = 0xcbf29ce484222325;
};

}  // namespace lab
