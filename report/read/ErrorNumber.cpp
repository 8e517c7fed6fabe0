// SPDX-License-Identifier: Apache-2.0
// The 24-bit error number of a failure record, taken apart and put into words.

#include "report/read/ErrorNumber.h"

#include <stdio.h>

#include "bootvigil/BootMilestones.h"
#include "bootvigil/FailureCodes.h"

namespace report {

namespace {

constexpr struct {
    int type;
    int phase;
    const char* words;
} kSituations[] = {
        {TYPE_SYSTEM, PHASE_BEFORE_SYSTEM_SERVER, "restarts again and again"},
        {TYPE_SYSTEM, PHASE_SYSTEM_SERVER, "system error declared by the platform"},
        {TYPE_KERNEL, PHASE_KERNEL, "kernel log kept from a failed boot"},
        {TYPE_STALL, PHASE_BEFORE_SYSTEM_SERVER, "stalled, system server not up"},
        {TYPE_STALL, PHASE_SYSTEM_SERVER, "stalled in the system server"},
        {TYPE_STALL, PHASE_OOBE, "stalled in the set-up wizard"},
        {TYPE_STALL, PHASE_KEY_LOCK, "stalled in the set-up wizard"},
        {TYPE_STALL, PHASE_INIT, "init log kept from a failed boot"},
        {TYPE_NONE, PHASE_NONE, "boot animation stays although the boot has completed"},
};

constexpr struct {
    int phase;
    const char* words;
} kPhases[] = {
        {PHASE_NONE, "boot animation"},
        {PHASE_KERNEL, "kernel"},
        {PHASE_BEFORE_SYSTEM_SERVER, "before the system server"},
        {PHASE_SYSTEM_SERVER, "system server"},
        {PHASE_OOBE, "set-up wizard"},
        {PHASE_KEY_LOCK, "after the set-up wizard"},
        {PHASE_INIT, "init"},
};

bool isOf(const ErrorNumber& error, int type, int phase) {
    return !error.stamp && error.type == type && error.phase == phase;
}

}  // namespace

ErrorNumber animationStays() {
    return decodeErrorNumber(DETAIL_ANIMATION_STAYS << 12);
}

bool isStall(const ErrorNumber& error) {
    return isOf(error, TYPE_STALL, PHASE_BEFORE_SYSTEM_SERVER) ||
           isOf(error, TYPE_STALL, PHASE_SYSTEM_SERVER);
}

bool isRestartLoop(const ErrorNumber& error) {
    return isOf(error, TYPE_SYSTEM, PHASE_BEFORE_SYSTEM_SERVER);
}

bool isWizardStall(const ErrorNumber& error) {
    return isOf(error, TYPE_STALL, PHASE_OOBE) ||
           (isOf(error, TYPE_STALL, PHASE_KEY_LOCK) && error.reason != REASON_AFTER_BOOT);
}

bool isKeptLog(const ErrorNumber& error) {
    return isOf(error, TYPE_STALL, PHASE_INIT) || isOf(error, TYPE_KERNEL, PHASE_KERNEL);
}

bool isRecovered(const ErrorNumber& error) {
    return error.type != TYPE_NONE && !error.stamp && !isWizardStall(error) && !isKeptLog(error);
}

std::string phaseName(const ErrorNumber& error) {
    for (const auto& [phase, words] : kPhases) {
        if (phase == error.phase) return words;
    }
    return "phase " + std::to_string(error.phase);
}

std::string detailName(const ErrorNumber& error) {
    const std::string missing = missingMilestone(error);
    if (!missing.empty()) return "never reaches " + missing;
    if (isRestartLoop(error)) return "no milestone is missing";
    if (error.detailPhase == DETAIL_NONE) return "none";
    if (isStall(error) && error.detailPhase == DETAIL_IN_SYSTEM_SERVER) {
        return "system server started";
    }
    if (isStall(error) && error.detailPhase == DETAIL_BEFORE_SYSTEM_SERVER) {
        return "system server not started, or more than once";
    }
    if (isKeptLog(error)) return "log kept from a failed boot";
    if (error.type == TYPE_NONE) return "animation stays";
    return "detail phase " + std::to_string(error.detailPhase);
}

std::string missingMilestone(const ErrorNumber& error) {
    const int milestone = error.detailPhase - kFirstMilestoneDetail;
    const bool known = milestone >= 0 && milestone < kMilestoneCount;
    return isRestartLoop(error) && known ? kMilestoneNames[milestone] : "";
}

std::string describeSituation(const ErrorNumber& error) {
    if (error.stamp) {
        return error.reason == 1 ? "the boot that failed has completed"
                                 : "a boot completed after the failure";
    }
    if (isOf(error, TYPE_STALL, PHASE_KEY_LOCK) && error.reason == REASON_AFTER_BOOT) {
        return "failure reported after boot";
    }
    const std::string missing = missingMilestone(error);
    for (const auto& [type, phase, words] : kSituations) {
        if (!isOf(error, type, phase)) continue;
        return words + (missing.empty() ? "" : ", never reaching " + missing);
    }
    return "failure";
}

std::string formatErrorNumber(const ErrorNumber& error) {
    char text[16];
    snprintf(text, sizeof(text), "0x%x", error.number);
    return text;
}

ErrorNumber decodeErrorNumber(unsigned long number) {
    ErrorNumber error;
    error.number = static_cast<uint32_t>(number);
    error.phase = static_cast<int>(number >> 20 & 0xf);
    error.detailPhase = static_cast<int>(number >> 12 & 0xff);
    error.type = static_cast<int>(number >> 8 & 0xf);
    error.reason = static_cast<int>(number & 0xff);
    error.stamp = number >= 0xf00001 && number <= 0xf00002;
    return error;
}

std::string describeErrorNumber(const ErrorNumber& error) {
    const std::string words = describeSituation(error) + " (" + formatErrorNumber(error);
    if (error.stamp) return words + ")";
    char codes[96];
    snprintf(codes, sizeof(codes), ": phase %d, detail phase %d, type %d, reason %d)", error.phase,
             error.detailPhase, error.type, error.reason);
    return words + codes;
}

}  // namespace report
