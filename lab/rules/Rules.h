// SPDX-License-Identifier: Apache-2.0
// What must hold of every boot of a device, whatever befell it: written from the daemon's rules and
// not from its code, and checked against what a boot was seen to do.

#pragma once

#include <vector>

#include "lab/rules/Observation.h"

namespace lab {

// The rules that the boot broke.
std::vector<Violation> checkRules(const BootObservation& boot);

}  // namespace lab
