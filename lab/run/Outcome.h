// SPDX-License-Identifier: Apache-2.0
// What a boot came to, in one line.

#pragma once

#include <string>
#include <vector>

#include "lab/device/RunLog.h"

namespace lab {

// What the daemon found in the boot, what it kept, what it asked for, and what kept it from any of
// these: "stalled at 250 s in vold (pid 324); recorded; 7 logs; asks for a reboot". Taken from the
// run's records, the daemon's log lines included. Texts of the device may hold any bytes.
std::string describeOutcome(const std::vector<Record>& records, int boot);

}  // namespace lab
