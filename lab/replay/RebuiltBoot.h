// SPDX-License-Identifier: Apache-2.0
// A boot that a device recorded, as far as it could be rebuilt.

#pragma once

#include <stddef.h>

#include <optional>
#include <string>
#include <vector>

#include "lab/replay/RecordedRun.h"
#include "lab/scenario/Scenario.h"

namespace lab {

struct RebuiltBoot {
    Scenario scenario;  // with this one boot
    Verdict recorded;
    size_t number = 0;                  // of verdicts up to and with `recorded`, in that run
    std::optional<std::string> action;  // of the recovery, where the files tell
    std::string profile;                // where the boot profile was taken from
    std::vector<std::string> notKnown;
};

}  // namespace lab
