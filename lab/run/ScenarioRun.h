// SPDX-License-Identifier: Apache-2.0
// Runs the boots of a scenario, one after the other, on one simulated device in virtual time.

#pragma once

#include <stdint.h>

#include <atomic>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "lab/base/Trace.h"
#include "lab/device/DeviceRoot.h"
#include "lab/device/RunLog.h"
#include "lab/rules/Observation.h"
#include "lab/scenario/Scenario.h"

namespace lab {

struct BootOutcome {
    BootObservation::End end = BootObservation::End::EXITED;
    int status = 0;                     // exit status or signal
    int64_t endedAt = 0;                // device time, ms
    int64_t operations = 0;             // of the daemon on files
    double realSeconds = 0;             // of the workstation
    std::string errors;                 // what the daemon wrote to standard error
    std::vector<Violation> violations;  // of the rules that every boot must keep
};

// How much is kept of a run.
enum class Keep {
    LOG,          // the log of the run ("run.jsonl") and each boot's errors ("boot-1.stderr")
    TRACE,        // nothing but what the rules need; several hundred boots a second
    FINGERPRINT,  // the same, and a sum of everything that the daemon did and left
};

// Runs a scenario. Everything is kept in `folder`, which must be missing or empty, and in whose
// folder "root" lies the device.
class ScenarioRun {
public:
    // Throws std::runtime_error when the folder can't be made. `tools` as for DeviceRoot.
    ScenarioRun(const Scenario& scenario, std::string folder, Keep keep = Keep::LOG,
                const std::string& tools = "");

    // Throws std::runtime_error when a boot can't be run at all; how the daemon fares is no error.
    void run();

    const std::vector<BootOutcome>& outcomes() const {
        return mOutcomes;
    }
    // Only of a run with Keep::LOG.
    std::vector<Record> records() const {
        return mLog->read();
    }
    const DeviceRoot& root() const {
        return mRoot;
    }
    // Equal for runs that did the same, call by call and byte by byte.
    uint64_t fingerprint() const {
        return mFingerprint;
    }

private:
    void prepareDevice();
    void prepareBoot(const Boot& boot);
    void fillLogs();
    BootOutcome runBoot(const Boot& boot, int number);
    [[noreturn]] void becomeDaemon(const Boot& boot, const std::string& errors,
                                   std::atomic<int64_t>* clock);
    void finishBoot(const Boot& boot, const BootOutcome& outcome);
    TextMap properties() const;
    TextMap filesKept() const;
    void readArchives(BootObservation& boot) const;
    void addToFingerprint(std::string_view bytes);

    const Scenario& mScenario;
    const Keep mKeep;
    std::string mFolder;
    DeviceRoot mRoot;
    std::optional<RunLog> mLog;
    Trace mTrace;
    std::optional<TextMap> mFilesLeft;  // by the boot before
    uint64_t mFingerprint = 0xcbf29ce484222325;
    std::vector<BootOutcome> mOutcomes;
    time_t mClock;                            // time of day at the start of the next boot
    std::string mBootReason = "cold";         // of the next boot
    TextMap mPersistent;                      // properties that survive a boot
    std::optional<uintmax_t> mOwnBufferSize;  // of the main log buffer at first; unset when the
                                              // log buffers are to be filled anew
    std::string mLastConsole;                 // kernel log of the boot before; empty at first
};

}  // namespace lab
