// SPDX-License-Identifier: Apache-2.0
// The rules by which a device's state is decided.

#pragma once

#include <string>
#include <vector>

#include "report/judge/Episodes.h"
#include "report/judge/Judgement.h"
#include "report/read/Report.h"

namespace report {

struct Decision {
    State state;
    const char* rule;
    std::string sentence;
};

Decision decideState(const Report& report, const std::vector<Episode>& episodes);

// "2026-11-15 11:08:10", or the time as it stands where it can't be read.
std::string timeOf(const Failure& failure);

// "22 s", "2 min 5 s", "3 h 4 min", "1 day 3 h".
std::string durationOf(int64_t seconds);

}  // namespace report
