// SPDX-License-Identifier: Apache-2.0
// How much a report holds, whatever a partition does.

#pragma once

#include <stddef.h>

#include <string>
#include <vector>

#include "report/read/Boots.h"

namespace report {

constexpr size_t kMostState = 1 << 20;    // bytes read of a record file or the journal
constexpr size_t kMostNote = 64 << 10;    // of any other state file
constexpr size_t kMostRunLog = 16 << 20;  // of a lab's run log
constexpr size_t kMostCaptures = 16;      // captured logs
constexpr size_t kMostNames = 100000;     // looked at in a folder
constexpr size_t kMostListed = 1000;      // failures, journal lines, damaged records
constexpr size_t kMostBoots = 500;
constexpr size_t kMostEvents = 10000;  // of all boots
constexpr size_t kMostText = 512;      // bytes of a boot's title or an event's text

// Drops boots and events from the middle, shortens texts, and says in each place what is left out.
void boundBoots(std::vector<Boot>& boots);

}  // namespace report
