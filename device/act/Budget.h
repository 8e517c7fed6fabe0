// SPDX-License-Identifier: Apache-2.0
// How often the platform may still reboot or wipe the device at the daemon's request: pure rules
// and the text that they are kept in. docs/files.md has the format.

#pragma once

#include <stddef.h>
#include <stdint.h>

#include <optional>
#include <string>
#include <vector>

namespace act {

enum class Action { REBOOT, RESET };

const char* nameOf(Action action);

struct Limits {
    unsigned reboots = 3;
    unsigned resets = 1;
    int64_t seconds =
            int64_t{24} * 60 * 60;  // after which an action counts no more, by a trusted clock
    uint64_t boots = 10;            // that came up, after which it doesn't, whatever the clock

    unsigned of(Action action) const {
        return action == Action::RESET ? resets : reboots;
    }
};

// The time of day in seconds since 1970; nothing where it can't be trusted.
using Clock = std::optional<int64_t>;

struct Ledger {
    struct Entry {
        Action action;
        uint64_t boot;  // how many boots had come up by then
        Clock clock;
    };
    uint64_t boots = 0;  // that came up since the first entry
    int64_t clock = 0;   // the latest one that was trusted
    bool late = false;   // the last boot that came up did so after the daemon had given it up
    std::vector<Entry> entries;  // oldest first

    bool empty() const {
        return entries.empty() && !late;
    }
    unsigned spent(Action action) const;
    // Drops what counts no more.
    void prune(const Clock& now, const Limits& limits);
    void add(Action action, const Clock& now);
};

// What stands for one that can't be read: resets are spent, and one reboot is free.
Ledger spentLedger(const Limits& limits);

std::string formatLedger(const Ledger& ledger);
// Nothing for a text that formatLedger() has not made.
std::optional<Ledger> parseLedger(const std::string& text);

// Whether a request is carried out, and if not, why.
enum class Verdict {
    DO,
    CAME_UP,     // the framework came up after the daemon's verdict
    IN_USE,      // a reset, and the framework is up
    SLOW,        // a reset, and the boot before came up, only late
    SPENT,       // the budget is
    UNCOUNTED,   // the budget can't be written
    NO_COMMAND,  // a reset, and recovery can't be told
};

// As the refusals' file has it: "came-up", "spent".
const char* codeOf(Verdict verdict);

struct Situation {
    Action action = Action::REBOOT;
    bool up = false;        // the framework is, now
    bool declared = false;  // it was up at the request, for a failure that the platform declared
};

Verdict decide(const Situation& situation, const Ledger& ledger, const Limits& limits);

}  // namespace act
