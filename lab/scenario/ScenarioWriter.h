// SPDX-License-Identifier: Apache-2.0
// Writes a scenario as the YAML that readScenario() reads.

#pragma once

#include <string>

#include "lab/scenario/Scenario.h"

namespace lab {

// Everything but what must come out. Throws std::runtime_error when the file can't be written.
void writeScenario(const Scenario& scenario, const std::string& path);

}  // namespace lab
