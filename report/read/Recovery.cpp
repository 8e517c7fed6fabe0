// SPDX-License-Identifier: Apache-2.0
// Recovery on a device: the last action, and what the next failure leads to.

#include "report/read/Recovery.h"

#include <algorithm>
#include <stdexcept>

#include "bootvigil/Fields.h"
#include "bootvigil/RecoveryLists.h"
#include "report/read/Files.h"

namespace report {

namespace {

std::vector<std::string> fieldsOf(const std::string& line) {
    std::vector<std::string> fields;
    const auto take = [&](std::string_view field, size_t) { fields.emplace_back(field); };
    cutFields(line + "|", "|", take, [](size_t) {});
    return fields;
}

// The modes for a reason; throws std::out_of_range where the daemon does.
std::vector<int> modesFor(int reason, const std::optional<std::string>& override) {
    std::vector<int> modes(kRecoveryListSize);
    if (override) {
        const std::vector<std::string> lines = linesOf(*override);
        auto line = lines.rbegin();
        while (line != lines.rend() &&
               readOverrideLine(fieldsOf(*line), reason, modes.data()) != OverrideLine::TAKEN) {
            ++line;
        }
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
    if (!recovery.listReadable) return "nothing: the daemon dies of a blank field in the list";
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
    try {
        recovery.list = modesFor(recovery.reason, files.list);
    } catch (const std::out_of_range&) {
        recovery.listReadable = false;
    }
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
