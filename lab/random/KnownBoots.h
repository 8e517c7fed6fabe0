// SPDX-License-Identifier: Apache-2.0
// Boots made up from a seed whose truth is known: what hangs, or that nothing does.

#pragma once

#include <stddef.h>
#include <stdint.h>

#include <string>
#include <vector>

#include "lab/base/Draw.h"
#include "lab/scenario/Scenario.h"

namespace lab {

// What hangs, as the generator made it.
struct Truth {
    int pid = 0;  // 0: the profile does not tell
    int phase = 0;
    int detail = 0;
    int64_t at = 0;  // us
};

struct KnownBoot {
    Scenario scenario;  // of this boot alone
    Truth truth;        // of a stall
    bool silent;        // has four minutes without an event, although healthy
};

std::vector<std::string> stallKinds();
std::vector<std::string> slowKinds();

// The kinds are counted as above.
KnownBoot makeStall(QuickDraw& draw, size_t kind);
KnownBoot makeSlowBoot(QuickDraw& draw, size_t kind);

}  // namespace lab
