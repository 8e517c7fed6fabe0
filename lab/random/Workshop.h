// SPDX-License-Identifier: Apache-2.0
// Runs scenarios, one after the other, in a folder in memory.

#pragma once

#include <optional>
#include <string>

#include "lab/base/TemporaryFolder.h"
#include "lab/run/ScenarioRun.h"
#include "lab/scenario/Scenario.h"

namespace lab {

class Workshop {
public:
    // Gives this process mounts of its own. Throws std::runtime_error.
    Workshop();
    ~Workshop();
    Workshop(const Workshop&) = delete;
    Workshop& operator=(const Workshop&) = delete;

    // Runs a scenario to its end; the run before is gone then. Throws std::runtime_error when it
    // can't be run.
    const ScenarioRun& run(const Scenario& scenario, Keep keep);

private:
    TemporaryFolder mFolder;
    std::optional<ScenarioRun> mRun;
};

}  // namespace lab
