// SPDX-License-Identifier: Apache-2.0
// A report as JSON, for other programs and for the page.

#pragma once

#include <string>

#include <nlohmann/json.hpp>

#include "report/read/Report.h"

namespace report {

// One object; docs/report.md describes it.
nlohmann::ordered_json toJson(const Report& report);

// JSON as text, on one line, in ASCII: nothing in it steers a terminal. Bytes that are not UTF-8
// become U+FFFD.
std::string dump(const nlohmann::ordered_json& json);

}  // namespace report
