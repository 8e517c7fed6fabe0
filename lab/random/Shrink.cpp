// SPDX-License-Identifier: Apache-2.0
// Makes a scenario shorter as long as what it shows remains.

#include "lab/random/Shrink.h"

#include <stdexcept>
#include <utility>

namespace lab {

Scenario shrink(Scenario scenario, const std::function<bool(const Scenario&)>& stillShows) {
    const auto canGo = [&](const Omission& omit, Scenario& candidate) {
        try {
            return omit(candidate) && stillShows(candidate);
        } catch (const std::runtime_error&) {
            return false;
        }
    };
    for (bool shorter = true; shorter;) {
        shorter = false;
        for (const Omission& omit : omissionsOf(scenario)) {
            Scenario candidate = scenario;
            if (!canGo(omit, candidate)) continue;
            scenario = std::move(candidate);
            shorter = true;
            break;
        }
    }
    return scenario;
}

}  // namespace lab
