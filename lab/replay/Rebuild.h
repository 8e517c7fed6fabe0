// SPDX-License-Identifier: Apache-2.0
// Rebuilds the boot that a device recorded, as far as its record allows.

#pragma once

#include <stddef.h>

#include <optional>
#include <string>
#include <vector>

#include "lab/replay/RebuiltBoot.h"

namespace lab {

// What a partition keeps of failures and recovery; a file that isn't there has no value.
struct Remains {
    std::optional<std::string> history;
    std::optional<std::string> records;
    std::optional<std::string> recoveryReport;  // for the uploader
    std::optional<std::string> recoveryList;
    std::optional<std::string> disable;
};

// Rebuilds the last run that holds a verdict; `profile` is the kernel's text where it could be
// pulled. Throws std::runtime_error when there is none, or it is no boot that could have happened.
RebuiltBoot rebuildBoot(const std::vector<report::DaemonRun>& runs, const Remains& remains,
                        const std::optional<std::string>& profile);

// What a history says of its last step, in words.
std::string actionName(const std::string& history);

}  // namespace lab
