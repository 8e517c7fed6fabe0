// SPDX-License-Identifier: Apache-2.0
// Replays a boot that a device recorded: boots today's daemon on it and compares the verdicts.

#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "lab/replay/RebuiltBoot.h"

namespace lab {

// One line with file and reason.
class NothingToReplay : public std::runtime_error {
    using runtime_error::runtime_error;
};

struct ReplayItem {
    std::string name;
    std::optional<std::string> recorded;  // none: not known, and not compared
    std::string today;
    bool same = false;
};

struct ReplayResult {
    std::string about;
    std::vector<ReplayItem> items;
    std::vector<std::string> notKnown;

    bool agrees() const;
};

// A recorded boot, ready to be run, and the log that it was taken from.
struct RebuiltRecord {
    RebuiltBoot boot;
    std::string log;
};

// Reads what is left in `folder`, of a damaged main log what can be read; `profilePath` may be
// empty. Throws NothingToReplay.
RebuiltRecord readRecord(const std::string& folder, const std::string& profilePath);

// Boots on it in the cage, of which `folder` is given. Throws std::runtime_error when that can't be
// done.
ReplayResult replay(const RebuiltRecord& record, const std::string& folder);

// For a person; bytes that would steer a terminal are replaced.
std::vector<std::string> describeReplay(const ReplayResult& result);

}  // namespace lab
