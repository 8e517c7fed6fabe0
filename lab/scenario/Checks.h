// SPDX-License-Identifier: Apache-2.0
// What must hold of a scenario beyond its single fields: what needs another field, and what can be
// held and run at all.

#pragma once

#include <stdint.h>

#include <string>
#include <utility>
#include <vector>

#include "lab/scenario/Fields.h"
#include "lab/scenario/Scenario.h"

namespace lab {

constexpr int64_t kMostLogs = 256 << 20;  // bytes of all log buffers

// Before the fields of `node` are read: how many boots and events they would make.
void checkAmounts(const fields::Node& node);

// The scenario that was read from `node`. Both throw YAML::Exception with the place.
void checkScenario(const Scenario& scenario, const fields::Node& node);

// What nobody reads, which is a misspelt name more often than not.
std::vector<std::pair<YAML::Mark, std::string>> warningsOf(const fields::Node& node);

}  // namespace lab
