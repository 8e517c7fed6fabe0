// SPDX-License-Identifier: Apache-2.0
// What makes two hangs the same hang. docs/fleet.md has the rules with examples.

#include "fleet/rows/Signature.h"

#include <ctype.h>

#include <algorithm>

#include "bootvigil/FailureCodes.h"
#include "common/text/Printable.h"

namespace fleet {

namespace {

constexpr size_t kMostOfName = 96;  // bytes

// What tells hangs of one kind apart.
enum class By { LAST_EVENT, MILESTONE, REASON, NOTHING };

constexpr struct {
    int type;
    int phase;
    int detail;  // the usual one; -1: any
    const char* kind;
    const char* words;
    By by;
} kKinds[] = {
        {TYPE_STALL, PHASE_BEFORE_SYSTEM_SERVER, DETAIL_BEFORE_SYSTEM_SERVER, "stall",
         "stall before the system server", By::LAST_EVENT},
        {TYPE_STALL, PHASE_SYSTEM_SERVER, DETAIL_IN_SYSTEM_SERVER, "stall",
         "stall in the system server", By::LAST_EVENT},
        {TYPE_SYSTEM, PHASE_BEFORE_SYSTEM_SERVER, -1, "loop", "restart loop", By::MILESTONE},
        {TYPE_SYSTEM, PHASE_SYSTEM_SERVER, DETAIL_NONE, "system-error", "system error", By::REASON},
        {TYPE_STALL, PHASE_OOBE, DETAIL_NONE, "wizard", "stall in the set-up wizard", By::NOTHING},
        {TYPE_STALL, PHASE_INIT, DETAIL_RAW_LOG, "kept-log", "init log kept from a failed boot",
         By::NOTHING},
        {TYPE_KERNEL, PHASE_KERNEL, DETAIL_RAW_LOG, "kept-log",
         "kernel log kept from a failed boot", By::NOTHING},
        {TYPE_NONE, PHASE_NONE, DETAIL_ANIMATION_STAYS, "animation", "boot animation stays",
         By::NOTHING},
};

bool isAlnum(char c) {
    return isalnum(static_cast<unsigned char>(c)) != 0;
}
bool isDigit(char c) {
    return c >= '0' && c <= '9';
}
bool isHex(char c) {
    return isxdigit(static_cast<unsigned char>(c)) != 0;
}
bool hasDigit(std::string_view word) {
    return std::any_of(word.begin(), word.end(), isDigit);
}

// An installer names folders "com.example-" and 22 random characters with "==" at their end.
std::string withoutRandomParts(std::string name) {
    constexpr size_t kRandom = 22;
    const auto isRandom = [](char c) { return isAlnum(c) || c == '_' || c == '-'; };
    for (size_t at = 0; (at = name.find("==", at)) != std::string::npos; ++at) {
        if (at < kRandom) continue;
        const auto begin = name.begin() + static_cast<ptrdiff_t>(at - kRandom);
        if (!std::all_of(begin, begin + kRandom, isRandom)) continue;
        name.replace(at - kRandom, kRandom + 2, "*");
        at -= kRandom;
    }
    return name;
}

// A word of letters and digits. Up to two digits after a letter belong to a name: zygote64.
std::string generalWord(std::string_view word) {
    constexpr size_t kLeastHex = 8;
    constexpr size_t kMostOfNumberInName = 2;
    if (word.size() > 2 && word[0] == '0' && (word[1] == 'x' || word[1] == 'X') &&
        std::all_of(word.begin() + 2, word.end(), isHex)) {
        return "#";
    }
    const bool isHash = word.size() >= kLeastHex && hasDigit(word) &&
                        std::all_of(word.begin(), word.end(), isHex);
    if (isHash) return "#";
    std::string general;
    for (size_t at = 0; at < word.size();) {
        const size_t begin = at;
        while (at < word.size() && isDigit(word[at])) ++at;
        const bool ofName = begin > 0 && at - begin <= kMostOfNumberInName;
        if (at > begin) general += ofName ? std::string(word.substr(begin, at - begin)) : "#";
        if (at < word.size()) general += word[at++];
    }
    return general;
}

std::string withoutNumbers(std::string_view name) {
    std::string general;
    for (size_t at = 0; at < name.size();) {
        const size_t begin = at;
        while (at < name.size() && isAlnum(name[at])) ++at;
        if (at == begin) {
            general += name[at++];
            continue;
        }
        const std::string word = generalWord(name.substr(begin, at - begin));
        // "19.62" is one number.
        const size_t size = general.size();
        const bool goesOn = word[0] == '#' && size >= 2 && general[size - 2] == '#' &&
                            (general[size - 1] == '.' || general[size - 1] == ',');
        if (goesOn) general.pop_back();
        general += goesOn ? word.substr(1) : word;
    }
    return general;
}

// "after AMS:systemReady by system_server"
std::string eventWords(const std::string& lastEvent, EventText text) {
    const report::BootEvent event = report::parseBootEvent(lastEvent);
    std::string name = generalName(event.name);
    // The colon that an upload is cut at may be the process's.
    const bool isCut = text == EventText::CUT && !lastEvent.empty();
    if (isCut) name += "…";
    std::string words = name.empty() ? " before any event" : " after " + name;
    if (!event.process.empty()) words += " by " + generalName(event.process);
    return words;
}

std::string milestoneWords(const report::ErrorNumber& number) {
    const std::string missing = report::missingMilestone(number);
    if (!missing.empty()) return " before " + missing;
    return number.detailPhase == DETAIL_NO_MILESTONE
                   ? ""
                   : ", detail phase " + std::to_string(number.detailPhase);
}

}  // namespace

std::string generalName(std::string_view name) {
    std::string text = text::printable(name);
    // Of a process that the framework starts, "AP_Init:[service]:[com.example]:[{...}]:pid:1277":
    // the component is one of several of the same process.
    text.resize(std::min(text.size(), text.find(":pid:")));
    const size_t component = text.find(":[{");
    text.resize(std::min(text.size(), component));
    text = withoutNumbers(withoutRandomParts(std::move(text)));
    const auto bothBlank = [](char a, char b) { return a == ' ' && b == ' '; };
    text.erase(std::unique(text.begin(), text.end(), bothBlank), text.end());
    return text::shortened(text, kMostOfName);
}

Signature unknownSignature(const std::string& why) {
    return {"unknown", "unknown: " + why};
}

Signature signatureOf(const report::ErrorNumber& number, const std::string& lastEvent,
                      EventText text) {
    if (!number.stamp && number.type == TYPE_STALL && number.phase == PHASE_KEY_LOCK) {
        if (number.reason == REASON_AFTER_BOOT) return {"after-boot", "failure after boot"};
        return {"wizard", "stall after the set-up wizard"};
    }
    for (const auto& [type, phase, detail, kind, words, by] : kKinds) {
        if (number.stamp || number.type != type || number.phase != phase) continue;
        Signature signature = {kind, words};
        if (by == By::LAST_EVENT) signature.text += eventWords(lastEvent, text);
        if (by == By::MILESTONE) signature.text += milestoneWords(number);
        if (by == By::REASON) signature.text += ", reason " + std::to_string(number.reason);
        if (detail >= 0 && number.detailPhase != detail) {
            signature.text += ", detail phase " + std::to_string(number.detailPhase);
        }
        return signature;
    }
    return unknownSignature("no rule for " + report::formatErrorNumber(number));
}

}  // namespace fleet
