// SPDX-License-Identifier: Apache-2.0
// Recovery on a device: the last action, and what the next failure leads to.

#pragma once

#include <stddef.h>

#include <optional>
#include <string>
#include <vector>

namespace report {

// Bytes of a history: index of the next list entry, mode of the last action, its reason.
constexpr size_t kHistoryLength = 3;

// The texts of the files that recovery depends on; none for a missing file.
struct RecoveryFiles {
    std::optional<std::string> history;
    std::optional<std::string> disable;
    std::optional<std::string> list;
};

// Why recovery cannot go on.
enum class Blocked { NO, DISABLED, DEADLY_LIST, NO_LIST, DAMAGED_HISTORY, EXHAUSTED };

struct Recovery {
    std::string history;            // the history file's text
    int lastMode = 0;               // 0: none
    int lastReason = 0;             // 0: none
    int reason = 0;                 // that the list below is for; 0: no failure is known
    std::vector<int> list;          // modes up to the first 0
    bool override = false;          // the list was pushed to the device
    bool disabled = false;          // from outside
    Blocked blocked = Blocked::NO;  // for that reason
    std::string next;               // what the next failure for that reason leads to, in words
};

// For the last failure's reason; without one, for that of the last action.
Recovery readRecovery(const RecoveryFiles& files, std::optional<int> reason);

// The modes for a reason, up to the first 0, from a pushed list if there is one. Throws
// std::out_of_range where the daemon does, which ends it.
std::vector<int> recoveryModes(int reason, const std::optional<std::string>& pushed);

// "reboot", "wait for the user to reboot", "factory data reset"; "mode N" for others.
std::string modeName(int mode);

}  // namespace report
