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
};

bool isOf(const ErrorNumber& error, int type, int phase) {
    return !error.stamp && error.type == type && error.phase == phase;
}

}  // namespace

std::string missingMilestone(const ErrorNumber& error) {
    const int milestone = error.detailPhase - kFirstMilestoneDetail;
    const bool known = milestone >= 0 && milestone < kMilestoneCount;
    const bool loop = isOf(error, TYPE_SYSTEM, PHASE_BEFORE_SYSTEM_SERVER);
    return loop && known ? kMilestoneNames[milestone] : "";
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
