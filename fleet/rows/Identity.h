// SPDX-License-Identifier: Apache-2.0
// Which device a copy or an upload comes from: the fields of device.json.

#pragma once

#include <stdint.h>

#include <string>

#include <nlohmann/json.hpp>

#include "report/read/Files.h"

namespace fleet {

// Everything may be empty: not known.
struct Identity {
    std::string serial, model, software, country;
    std::string pulled;    // in UTC, without a zone
    int64_t problems = 0;  // fields that are there and of no use
};

// Of an object; fields of another name are skipped.
Identity identityOf(const nlohmann::json& object);

// Reads device.json in a folder. Without such a file nothing is known; one that can't be read is a
// problem.
Identity readIdentity(const report::Folder& folder);

// "2026-11-20T10:00:00" in UTC of an ISO 8601 time, which may lack its seconds, its time of day and
// its zone; empty for any other text.
std::string utcTime(const std::string& text);

}  // namespace fleet
