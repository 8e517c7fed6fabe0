// SPDX-License-Identifier: Apache-2.0
// Rows out of lines of JSON: what an uploader collected, and rows that were written before.

#pragma once

#include <string>
#include <string_view>

#include "fleet/rows/Rows.h"

namespace fleet {

// Longer lines are refused, by rowsOfLine() or by whoever cuts them.
constexpr size_t kMostOfLine = 64 << 10;

// The rows of one line: an object with the fields of device.json and `text`, the content of an
// upload file ("BOOTVIGIL|...", "BFRECOVERY|..."), or a row with its `table`. Throws
// std::runtime_error saying what is wrong with it.
Rows rowsOfLine(std::string_view line);

// "{"table":"devices","device":...}", and the same of an episode. In ASCII.
std::string toLine(const DeviceRow& row);
std::string toLine(const EpisodeRow& row);

}  // namespace fleet
