// SPDX-License-Identifier: Apache-2.0
// What a scenario's file says: the one table of its fields.

#pragma once

#include "lab/scenario/Fields.h"
#include "lab/scenario/Scenario.h"

namespace lab {

const fields::Fields<Scenario>& scenarioFields();

}  // namespace lab
