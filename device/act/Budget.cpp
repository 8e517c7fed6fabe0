// SPDX-License-Identifier: Apache-2.0
// How often the platform may still reboot or wipe the device at the daemon's request.

#include "device/act/Budget.h"

#include <inttypes.h>
#include <stdio.h>
#include <stdlib.h>

#include <algorithm>

#include <android-base/parseint.h>
#include <android-base/strings.h>

namespace act {

namespace {

using android::base::ParseInt;
using android::base::ParseUint;

constexpr const char* kHeader = "bootvigil-budget 1";
constexpr const char* kNoClock = "-";
constexpr size_t kMostEntries = 64;

// FNV-1a: a flash that lost a bit must not give a device more resets.
uint32_t sumOf(const std::string& text) {
    uint32_t sum = 2166136261;
    for (const char c : text) sum = (sum ^ static_cast<uint8_t>(c)) * 16777619;
    return sum;
}

std::string sumLine(const std::string& text) {
    char line[16];
    snprintf(line, sizeof(line), "sum %08" PRIx32 "\n", sumOf(text));
    return line;
}

// "reboot 11 1794740000"
bool parseEntry(const std::vector<std::string>& words, Ledger& ledger) {
    Ledger::Entry entry = {};
    if (words.size() != 3 || !ParseUint(words[1], &entry.boot)) return false;
    const bool reset = words[0] == nameOf(Action::RESET);
    if (!reset && words[0] != nameOf(Action::REBOOT)) return false;
    entry.action = reset ? Action::RESET : Action::REBOOT;
    if (words[2] != kNoClock) {
        int64_t clock = 0;
        if (!ParseInt(words[2], &clock)) return false;
        entry.clock = clock;
    }
    ledger.entries.push_back(entry);
    return ledger.entries.size() <= kMostEntries && entry.boot <= ledger.boots;
}

}  // namespace

const char* nameOf(Action action) {
    return action == Action::RESET ? "reset" : "reboot";
}

unsigned Ledger::spent(Action action) const {
    return static_cast<unsigned>(
            std::count_if(entries.begin(), entries.end(),
                          [&](const Entry& entry) { return entry.action == action; }));
}

void Ledger::prune(const Clock& now, const Limits& limits) {
    const auto over = [&](const Entry& entry) {
        const bool byClock = now && entry.clock && *now - *entry.clock >= limits.seconds;
        return byClock || boots - entry.boot >= limits.boots;
    };
    entries.erase(std::remove_if(entries.begin(), entries.end(), over), entries.end());
}

void Ledger::add(Action action, const Clock& now) {
    if (now) clock = std::max(clock, *now);
    entries.push_back({action, boots, now});
}

Ledger spentLedger(const Limits& limits) {
    Ledger ledger;
    for (unsigned i = 1; i < limits.reboots; ++i) ledger.add(Action::REBOOT, std::nullopt);
    for (unsigned i = 0; i < limits.resets; ++i) ledger.add(Action::RESET, std::nullopt);
    return ledger;
}

std::string formatLedger(const Ledger& ledger) {
    std::string text = std::string(kHeader) + "\nboots " + std::to_string(ledger.boots) +
                       "\nclock " + std::to_string(ledger.clock) + "\nlate " +
                       (ledger.late ? "1" : "0") + "\n";
    for (const auto& [action, boot, clock] : ledger.entries) {
        text += std::string(nameOf(action)) + " " + std::to_string(boot) + " " +
                (clock ? std::to_string(*clock) : kNoClock) + "\n";
    }
    return text + sumLine(text);
}

std::optional<Ledger> parseLedger(const std::string& text) {
    const size_t last = text.rfind("sum ");
    if (last == std::string::npos) return std::nullopt;
    const std::string body = text.substr(0, last);
    if (text.substr(last) != sumLine(body)) return std::nullopt;
    std::vector<std::string> lines = android::base::Split(body, "\n");
    Ledger ledger;
    uint64_t late = 0;
    const auto number = [&](size_t index, const std::string& name, auto parse) {
        const std::string& line = lines[index];
        return line.compare(0, name.size(), name) == 0 && parse(line.substr(name.size()));
    };
    constexpr size_t kFixed = 4;  // lines; the body ends in a line feed
    if (lines.size() < kFixed + 1 || lines[0] != kHeader || !lines.back().empty()) {
        return std::nullopt;
    }
    if (!number(1, "boots ", [&](const auto& is) { return ParseUint(is, &ledger.boots); }) ||
        !number(2, "clock ", [&](const auto& is) { return ParseInt(is, &ledger.clock); }) ||
        !number(3, "late ", [&](const auto& is) { return ParseUint(is, &late, uint64_t{1}); })) {
        return std::nullopt;
    }
    ledger.late = late == 1;
    for (size_t i = kFixed; i + 1 < lines.size(); ++i) {
        if (!parseEntry(android::base::Split(lines[i], " "), ledger)) return std::nullopt;
    }
    return ledger;
}

const char* codeOf(Verdict verdict) {
    constexpr const char* kCodes[] = {"done",  "came-up",   "in-use",    "slow",
                                      "spent", "uncounted", "no-command"};
    return kCodes[static_cast<size_t>(verdict)];
}

Verdict decide(const Situation& situation, const Ledger& ledger, const Limits& limits) {
    if (situation.up && !situation.declared) return Verdict::CAME_UP;
    if (situation.action == Action::RESET) {
        if (situation.up) return Verdict::IN_USE;
        if (ledger.late) return Verdict::SLOW;
    }
    const bool spent = ledger.spent(situation.action) >= limits.of(situation.action);
    return spent ? Verdict::SPENT : Verdict::DO;
}

}  // namespace act
