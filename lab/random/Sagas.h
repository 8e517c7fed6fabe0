// SPDX-License-Identifier: Apache-2.0
// Runs random scenarios, many at a time, against the rules; shrinks one that breaks a rule.

#pragma once

#include <stdint.h>

#include <string>

#include "lab/random/RandomScenario.h"
#include "lab/random/SagaResult.h"
#include "lab/scenario/Scenario.h"

namespace lab {

struct SagaOrder {
    uint64_t seed = 1;   // of the first scenario; the others follow
    uint64_t count = 1;  // scenarios
    uint64_t part = 1, parts = 1;
    int jobs = 1;  // processes
    Boots boots = Boots::ALL;
    PlatformKind platform = PlatformKind::BARE;
    bool untilBroken = false;  // start no scenario after the first broken rule
};

// What a search leaves in its folder.
constexpr char kSagaResult[] = "result.json";
constexpr char kSagaScenario[] = "worst.yaml";  // the worst finding, reduced; where it repeats

// Runs in the cage, of which `folder` is given, and prints each rule that is broken. The result is
// left in the folder `out` in there. Throws std::runtime_error when nothing can be run.
void runSagas(const SagaOrder& order, const std::string& folder);

// Runs a scenario as `bootvigil-lab run` does, in the cage. Gives the status of the worst that the
// rules have against it, 0 for nothing. Throws std::runtime_error where it can't be run.
int runAgain(const Scenario& scenario, const std::string& folder);

}  // namespace lab
