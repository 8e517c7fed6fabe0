// SPDX-License-Identifier: Apache-2.0
// Recovery on a device: the last action, and what the next failure leads to.

#include "report/read/Recovery.h"

#include <stdlib.h>

#include <algorithm>

#include "bootvigil/RecoveryLists.h"
#include "report/read/Files.h"

namespace report {

namespace {

// The modes for a reason by the override list, by the daemon's own rules.
void readOverride(const std::string& text, int reason, int* modes) {
    const std::vector<std::string> all = linesOf(text);
    for (auto line = all.rbegin(); line != all.rend(); ++line) {
        const size_t bar = line->find('|');
        if (bar == std::string::npos || atoi(line->c_str()) != reason) continue;
        std::string digits = line->substr(bar + 1, line->find('|', bar + 1) - bar - 1);
        digits.erase(0, digits.find_first_not_of(' '));
        if (digits.size() < kRecoveryListSize) return;
        for (size_t i = 0; i < kRecoveryListSize; ++i) {
            modes[i] = static_cast<unsigned char>(digits[i]) - '0';
        }
        return;
    }
}

std::vector<int> listFor(int reason, const std::optional<std::string>& override) {
    std::vector<int> modes(kRecoveryListSize);
    if (override) {
        readOverride(*override, reason, modes.data());
    } else {
        for (const RecoveryList& list : kDefaultRecoveryLists) {
            if (list.reason == reason) std::copy_n(list.modes, kRecoveryListSize, modes.begin());
        }
    }
    while (!modes.empty() && modes.back() == 0) modes.pop_back();
    return modes;
}

std::string nextStep(const Recovery& recovery, bool hasHistory) {
    if (recovery.reason == 0) return "no failure is known";
    if (recovery.disabled) return "nothing: recovery is disabled from outside";
    const auto step = [&](size_t index) {
        const bool there = index < recovery.list.size() && recovery.list[index] > 0;
        return there ? modeName(recovery.list[index]) : "nothing more: the list is exhausted";
    };
    if (!hasHistory) return step(0);
    if (recovery.history.empty() || recovery.history[0] < '0' ||
        recovery.history[0] >= '0' + kRecoveryListSize) {
        return "nothing: the history is damaged, which blocks recovery";
    }
    std::string next = step(static_cast<size_t>(recovery.history[0] - '0'));
    if (recovery.lastMode != RECOVERY_DATA_RESET) return next;
    return next + " in the first boot after the reset, " + step(0) + " in any later one";
}

}  // namespace

Recovery readRecovery(const RecoveryFiles& files, std::optional<int> reason) {
    Recovery recovery;
    const std::string history = files.history.value_or("");
    recovery.history = history.substr(0, history.find('\n'));
    if (recovery.history.size() >= 2) recovery.lastMode = recovery.history[1] - '0';
    if (recovery.history.size() >= kHistoryLength) {
        recovery.lastReason = static_cast<unsigned char>(recovery.history[2]);
    }
    const std::vector<std::string> disable = linesOf(files.disable.value_or(""));
    recovery.disabled = std::find(disable.begin(), disable.end(), "BfRecover=NO") != disable.end();
    recovery.override = files.list.has_value();
    recovery.reason = reason.value_or(recovery.lastReason);
    recovery.list = listFor(recovery.reason, files.list);
    recovery.next = nextStep(recovery, files.history.has_value());
    return recovery;
}

std::string modeName(int mode) {
    switch (mode) {
        case RECOVERY_REBOOT:
            return "reboot";
        case RECOVERY_WAIT_USER:
            return "wait for the user to reboot";
        case RECOVERY_DATA_RESET:
            return "factory data reset";
        default:
            return "mode " + std::to_string(mode);
    }
}

}  // namespace report
