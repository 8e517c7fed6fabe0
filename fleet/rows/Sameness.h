// SPDX-License-Identifier: Apache-2.0
// One failure may come as a copy's episode, as the upload of its last record, which has only the
// hour, and as the upload of its recovery's success.

#pragma once

#include "fleet/rows/Columns.h"

namespace fleet {

// Whether a row of one device tells of the same failure as another one of it that tells more: an
// upload and a copy's episode, a recovery and either.
bool tellsTheSame(const EpisodeRow& less, const EpisodeRow& more);

// How far `begin` of two such rows can be apart.
constexpr int kMostDaysApart = 60;

}  // namespace fleet
