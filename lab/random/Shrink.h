// SPDX-License-Identifier: Apache-2.0
// Makes a scenario shorter as long as what it shows remains.

#pragma once

#include <functional>

#include "lab/scenario/Scenario.h"

namespace lab {

// Leaves out part after part of the scenario as long as `stillShows` is true for the rest; when it
// throws std::runtime_error, the rest can't be run, and the part stays.
Scenario shrink(Scenario scenario, const std::function<bool(const Scenario&)>& stillShows);

}  // namespace lab
