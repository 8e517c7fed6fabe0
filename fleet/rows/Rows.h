// SPDX-License-Identifier: Apache-2.0
// The rows that one copy of a partition gives.

#pragma once

#include <string>
#include <vector>

#include "fleet/rows/Columns.h"
#include "fleet/rows/Identity.h"
#include "report/judge/Judgement.h"

namespace fleet {

struct Rows {
    std::vector<DeviceRow> devices;
    std::vector<EpisodeRow> episodes;
};

// `path` is the folder that report and user know the copy by, `name` what a device without a serial
// is called.
Rows rowsOf(const report::Report& report, const Identity& identity, const std::string& name);

// What a row of an episode takes over from its device's.
EpisodeRow episodeOn(const DeviceRow& device);

// Gives a row the signature of today's rules, by its number and its last event.
void groupAgain(EpisodeRow& row);

}  // namespace fleet
