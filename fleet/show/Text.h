// SPDX-License-Identifier: Apache-2.0
// The tables of a fleet for a terminal of 80 columns.

#pragma once

#include <string>

#include "fleet/tables/Tables.h"

namespace fleet {

std::string toText(const Tables& tables);

// Words that text and page share.

// "1.24 %"
std::string percent(double share);
// "25 of 2,010"
std::string fraction(const Share& share);
// Ready for a shell: a path with a blank or a quote in it is one word.
std::string reportCommand(const std::string& path);
// The comparison in one sentence, whatever it found.
std::string comparisonWords(const Tables& tables);

}  // namespace fleet
