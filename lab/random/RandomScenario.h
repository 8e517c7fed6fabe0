// SPDX-License-Identifier: Apache-2.0
// Devices and boots made up from a seed: healthy, slow, stalled, looping and damaged ones, with
// people who cut the power, properties that hold garbage, and calls that fail.

#pragma once

#include <stdint.h>

#include "lab/scenario/Scenario.h"

namespace lab {

// What kinds of boots are made up.
enum class Boots {
    ALL,
    HEALTHY,  // only ones without a fault, for measuring
    STALLED,  // likewise
};

// By Boots.
constexpr const char* kBootsNames[] = {"all", "healthy", "stalled"};

// The same seed gives the same scenario. Each scenario draws its own probabilities first and leaves
// whole kinds of events out, so that rare combinations come up. On the reference platform the same
// things happen, and more that concerns only that.
Scenario randomScenario(uint64_t seed, Boots boots = Boots::ALL,
                        PlatformKind platform = PlatformKind::BARE);

}  // namespace lab
