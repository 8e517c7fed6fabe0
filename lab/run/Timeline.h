// SPDX-License-Identifier: Apache-2.0
// A run as lines of text.

#pragma once

#include <optional>
#include <string>
#include <vector>

#include "lab/device/RunLog.h"

namespace lab {

// What the daemon did, as "<seconds> <kind> <fields>", the same on any machine; nothing for records
// of the world's own changes and of log lines.
std::optional<std::string> effectLine(const Record& record);

// The lines of one boot for a person, in order of time, with the world, verdicts and what codes
// mean; with colour if asked.
std::vector<std::string> describeBoot(const std::vector<Record>& records, int boot, bool colour);

}  // namespace lab
