// SPDX-License-Identifier: Apache-2.0
// The tables of a fleet for other programs.

#pragma once

#include <string>

#include "fleet/tables/Tables.h"

namespace fleet {

// One object on one line, in ASCII; docs/fleet.md describes it.
std::string toJson(const Tables& tables);

// The tables that toCsv() knows.
extern const char* const kCsvTables[4];

// One of them as comma-separated values with a line of names: signatures (a line for each
// software), changes, cures, places.
std::string toCsv(const Tables& tables, const std::string& table);

}  // namespace fleet
