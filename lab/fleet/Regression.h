// SPDX-License-Identifier: Apache-2.0
// Regressions that are planted in a simulated fleet, read from YAML. docs/lab.md describes the
// file.

#pragma once

#include <stddef.h>
#include <stdint.h>

#include <optional>
#include <string>
#include <vector>

#include "lab/fleet/Trouble.h"

namespace lab {

// A boot that fails on some of the devices that match. An empty text matches all.
struct Regression {
    std::string about;
    std::string software;  // of these and newer
    std::string country, model;
    std::optional<int64_t> oneIn, devices;  // of those that match, exactly one of both
    std::string hang, loop;                 // the last event, or the last milestone; one of both
    std::optional<Cure> curedBy;            // unset: drawn
};

constexpr size_t kMostRegressions = 32;

// Throws std::runtime_error("FILE:LINE:COLUMN: what was expected there").
std::vector<Regression> readRegressions(const std::string& path);

// The fields of the file, as tables for docs/lab.md.
std::string regressionReference();

}  // namespace lab
