// SPDX-License-Identifier: Apache-2.0
// The times that a device writes, all of them local and without a zone.

#pragma once

#include <stdint.h>

#include <optional>
#include <string>

namespace report {

// Seconds since 1970 of "Sun Nov 15 11:05:18 2026", read as if it were UTC.
std::optional<int64_t> parseTime(const std::string& text);

// "2026-11-15T11:05:18" of such a time; empty for any other text.
std::string isoTime(const std::string& text);

// "2026-11-15T11:05:18.000" of a log's clock "11-15 11:05:18.000"; empty for any other text, and
// where the year is not known, which is 0.
std::string isoClock(const std::string& clock, int year);

// Seconds since 1970 of either ISO form.
std::optional<int64_t> secondsOfIso(const std::string& iso);

}  // namespace report
