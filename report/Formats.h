// SPDX-License-Identifier: Apache-2.0
// The forms in which a report is shown.

#pragma once

#include <string>

#include <nlohmann/json.hpp>

#include "Report.h"

namespace report {

// For a person, as plain text.
std::string toText(const Report& report);

// One object; docs/report.md describes it. Bytes that are no UTF-8 become U+FFFD when dumped.
nlohmann::ordered_json toJson(const Report& report);

// The boots as trace events, for the Perfetto UI.
std::string toPerfetto(const Report& report);

// One self-contained HTML page with every captured log in it. The file appears whole or not at all;
// throws std::runtime_error naming it when it can't be written.
void writePage(const Report& report, const std::string& path);

// Writes a whole file, or throws std::runtime_error and leaves nothing of it.
void writeWhole(const std::string& path, const std::string& content);

// Outside text for a terminal, on one line: what can't be printed becomes \xHH.
std::string printable(const std::string& text);

// Text as JSON, with what is no UTF-8 replaced.
std::string dump(const nlohmann::ordered_json& json);

}  // namespace report
