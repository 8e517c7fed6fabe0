// SPDX-License-Identifier: Apache-2.0
// Makes a simulated fleet: a folder for each device, with what a pull of its partition gives.

#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include "lab/device/Cage.h"
#include "lab/fleet/Regression.h"

namespace lab {

struct FleetOrder {
    uint64_t seed = 1;
    int devices = 1000;
    int jobs = 1;     // processes
    std::string out;  // a folder, missing or empty
    std::vector<Regression> regressions;
    CageOptions cage;
};

constexpr int kFleetBroken = 1;  // a boot broke a rule, or could not be run

// Writes "SERIAL/device.json" and "SERIAL/velafs/" for each device, the same whatever `jobs`, and
// prints what was made; gives 0, kFleetBroken or kLabFailed. A healthy boot leaves nothing on the
// partition: only those are run that are not. Throws
// std::invalid_argument where fewer devices match a regression than it wants.
int makeFleet(const FleetOrder& order);

}  // namespace lab
