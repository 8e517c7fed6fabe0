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
    const auto take = [&](std::string_view field, size_t) {
        fields.emplace_back(trimField(field));
    };
    cutFields(line, "|", take, [](size_t) {});
    return fields;
}

// Says what the next failure leads to, or why to nothing.
void findNextStep(Recovery& recovery, bool hasHistory) {
    const auto block = [&](Blocked why, const char* words) {
        recovery.blocked = why;
        recovery.next = words;
    };
    const auto step = [&](size_t index) {
        if (recovery.list.empty()) {
            block(Blocked::NO_LIST, "nothing: no list for this reason");
        } else if (index >= recovery.list.size() || recovery.list[index] <= 0) {
            block(Blocked::EXHAUSTED, "nothing more: the list is exhausted");
        } else {
            recovery.blocked = Blocked::NO;
            recovery.next = modeName(recovery.list[index]);
        }
        return recovery.next;
    };
    if (recovery.reason == 0) {
        recovery.next = "nothing: no failure is known";
    } else if (recovery.disabled) {
        block(Blocked::DISABLED, "nothing: recovery is disabled from outside");
    } else if (!hasHistory) {
        step(0);
    } else if (recovery.history.empty() || recovery.history[0] < '0' || recovery.history[0] > '9') {
        block(Blocked::DAMAGED_HISTORY, recovery.history.empty()
                                                ? "nothing: the history is empty"
                                                : "nothing: the history is damaged");
    } else {
        const std::string now = step(static_cast<size_t>(recovery.history[0] - '0'));
        if (recovery.lastMode != RECOVERY_DATA_RESET) return;
        recovery.next =
                now + " in the first boot after the reset, " + step(0) + " in any later one";
    }
}

}  // namespace

std::vector<int> recoveryModes(int reason, const std::optional<std::string>& pushed) {
    std::vector<int> modes(kRecoveryListSize);
    if (pushed) {
        const std::vector<std::string> lines = linesOf(*pushed);
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
    bool deadly = false;
    try {
        recovery.list = recoveryModes(recovery.reason, files.list);
    } catch (const std::out_of_range&) {
        deadly = true;
    }
    findNextStep(recovery, files.history.has_value());
    // A daemon that is not to recover doesn't read the list.
    if (deadly && !recovery.disabled) {
        recovery.blocked = Blocked::DEADLY_LIST;
        recovery.next = "nothing: the daemon dies of a blank field in the pushed list";
    }
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
