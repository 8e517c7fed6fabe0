// SPDX-License-Identifier: Apache-2.0
// What must hold of every boot of a device, whatever befell it: written from the daemon's rules and
// not from its code, and checked against what a boot was seen to do.

#pragma once

#include <set>
#include <string>
#include <vector>

#include "lab/rules/Observation.h"

namespace lab {

class Rules {
public:
    // Checks the device's next boot, in the light of those before it.
    std::vector<Violation> check(const BootObservation& boot);

private:
    std::set<std::string> mSubmitted;  // record lines
};

}  // namespace lab
