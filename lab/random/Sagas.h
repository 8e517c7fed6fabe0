// SPDX-License-Identifier: Apache-2.0
// Runs random scenarios, many at a time, against the rules; shrinks one that breaks a rule.

#pragma once

#include <stdint.h>

#include <string>

#include "lab/random/RandomScenario.h"

namespace lab {

struct SagaOrder {
    uint64_t seed = 1;   // of the first scenario; the others follow
    uint64_t count = 1;  // scenarios
    int jobs = 1;        // processes
    Boots boots = Boots::ALL;
    PlatformKind platform = PlatformKind::BARE;
    bool untilBroken = false;  // start no scenario after the first broken rule
    std::string out;           // where a scenario that breaks a rule is to lie in the end
};

// Exit statuses. Of those from 10 on the lowest counts: a crash comes before a boot that does not
// end as it must, and that before another broken rule.
constexpr int kSagaNotRun = 1;  // no rule was broken, but a scenario or a whole job failed
constexpr int kSagaCrash = 10;
constexpr int kSagaLiveness = 11;
constexpr int kSagaRule = 12;
constexpr int kSagaDifferent = 13;  // two runs of one scenario differed

// Runs in the cage, of which `folder` is given; a scenario to keep is left below "out" in it.
// Prints how it went and what was broken; gives 0 or a status above. Throws std::runtime_error when
// nothing can be run.
int runSagas(const SagaOrder& order, const std::string& folder);

}  // namespace lab
