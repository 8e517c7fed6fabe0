// SPDX-License-Identifier: Apache-2.0
// Runs scenarios, one after the other, in the cage.

#pragma once

#include <optional>
#include <string>

#include "lab/run/ScenarioRun.h"
#include "lab/scenario/Scenario.h"

namespace lab {

class Workshop {
public:
    // `folder` is the cage's, for all processes in it.
    explicit Workshop(const std::string& folder);

    // Runs a scenario to its end; the run before is gone then. Throws std::runtime_error when it
    // can't be run.
    const ScenarioRun& run(const Scenario& scenario, Keep keep);

private:
    const std::string mTools, mFolder;
    std::optional<ScenarioRun> mRun;
};

}  // namespace lab
