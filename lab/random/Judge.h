// SPDX-License-Identifier: Apache-2.0
// What a run of a scenario broke, as one exit status.

#pragma once

#include <optional>
#include <string>
#include <vector>

#include "lab/run/ScenarioRun.h"

namespace lab {

// The lowest counts: a crash comes before a boot that does not end as it must, and that before
// another broken rule.
constexpr int kSagaCrash = 10;
constexpr int kSagaLiveness = 11;
constexpr int kSagaRule = 12;
constexpr int kSagaDifferent = 13;  // two runs of one scenario differed

struct Finding {
    int status;
    int boot;  // from 1; 0: none of them
    std::string text;
};

// The worst violation, and of equals the first; nothing when every rule held.
std::optional<Finding> judge(const std::vector<BootOutcome>& boots);

}  // namespace lab
