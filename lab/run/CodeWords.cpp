// SPDX-License-Identifier: Apache-2.0
// What the daemon's codes mean, in words.

#include "lab/run/CodeWords.h"

#include <stdlib.h>
#include <string.h>

#include "bootvigil/FailureCodes.h"
#include "lab/base/Text.h"
#include "report/read/Recovery.h"

namespace lab {

namespace {

struct Code {
    int code;
    const char* words;
};

constexpr Code kPhases[] = {
        {PHASE_KERNEL, "kernel"},
        {PHASE_BEFORE_SYSTEM_SERVER, "before the system server"},
        {PHASE_SYSTEM_SERVER, "system server"},
        {PHASE_OOBE, "set-up wizard"},
        {PHASE_KEY_LOCK, "key lock"},
        {PHASE_INIT, "init"},
};

constexpr Code kDetails[] = {
        {DETAIL_BEFORE_SYSTEM_SERVER, "before the system server"},
        {DETAIL_IN_SYSTEM_SERVER, "in the system server"},
        {DETAIL_ANIMATION_STAYS, "the animation stays"},
        {DETAIL_NO_MILESTONE, "no milestone is missing"},
};

constexpr Code kExits[] = {
        {1, "zstd failed"},
        {2, "an archive can't be made"},
        {3, "an archive can't be closed"},
        {4, "a log can't be read"},
        {5, "an archive can't be written"},
        {8, "no memory for an archive"},
};

template <size_t count>
std::string wordsFor(const Code (&table)[count], int code) {
    for (const Code& one : table) {
        if (one.code == code) return one.words;
    }
    return "";
}

std::string detailWords(int detail) {
    const int milestone = detail - kFirstMilestoneDetail;
    if (milestone < 0 || milestone >= kMilestoneCount) return wordsFor(kDetails, detail);
    return std::string("never reaches ") + kMilestoneNames[milestone];
}

// "11d": the list's next entry, the last mode, its reason as a byte.
std::string historyWords(const std::string& history) {
    static constexpr const char* kSteps[] = {"1st", "2nd", "3rd", "4th", "5th"};
    if (history.empty()) return "blocks recovery";
    const int next = history[0] - '0';
    std::string words =
            next >= 0 && next < 5 ? std::string("next: ") + kSteps[next] + " step" : "next: none";
    if (history.size() < report::kHistoryLength) return words;
    return words + "; last: " + report::modeName(history[1] - '0') + ", for reason " +
           std::to_string(static_cast<unsigned char>(history[2]));
}

// "id|type|pid|files"
std::string requestWords(const std::string& request) {
    const size_t type = request.find('|') + 1;
    const size_t pid = request.find('|', type) + 1;
    if (type == 0 || pid == 0) return "";
    return format("type 0x%x, pid %d", atoi(request.c_str() + type), atoi(request.c_str() + pid));
}

}  // namespace

std::string meaningOf(const std::string& kind, const std::string& text) {
    const int code = atoi(text.c_str());
    if (kind == "flag") {
        const std::string phase = wordsFor(kPhases, code);
        return phase.empty() ? "" : "phase " + std::to_string(code) + ": " + phase;
    }
    if (kind == "reason") return detailWords(code);
    if (kind == "history") return historyWords(text);
    if (kind == "kel") return requestWords(text);
    if (kind == "exit") return exitCause(code);
    return "";
}

std::string exitCause(int status) {
    return wordsFor(kExits, status);
}

std::string signalName(int number) {
    const char* name = sigabbrev_np(number);
    return name != nullptr ? std::string("SIG") + name : std::to_string(number);
}

}  // namespace lab
