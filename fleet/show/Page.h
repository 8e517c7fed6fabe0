// SPDX-License-Identifier: Apache-2.0
// The tables of a fleet as one self-contained HTML page, without a script.

#pragma once

#include <string>

#include "fleet/tables/Tables.h"

namespace fleet {

std::string toPage(const Tables& tables);

}  // namespace fleet
