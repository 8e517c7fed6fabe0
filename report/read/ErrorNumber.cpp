// SPDX-License-Identifier: Apache-2.0
// The 24-bit error number of a failure record, taken apart and put into words.

#include "report/read/ErrorNumber.h"

#include <stdio.h>

#include "bootvigil/BootMilestones.h"

namespace report {

std::string missingMilestone(const ErrorNumber& error) {
    const int milestone = error.detailPhase - kFirstMilestoneDetail;
    const bool loop = !error.stamp && error.type == 2 && error.phase == 4;
    return loop && milestone >= 0 && milestone < kMilestoneCount ? kMilestoneNames[milestone] : "";
}

std::string describeSituation(const ErrorNumber& error) {
    if (error.stamp) {
        return error.reason == 1 ? "the boot that failed has completed"
                                 : "a boot completed after the failure";
    }
    if (error.type == 2 && error.phase == 4) {
        const std::string missing = missingMilestone(error);
        const std::string loop = "restarts again and again";
        return missing.empty() ? loop : loop + ", never reaching " + missing;
    }
    if (error.type == 2 && error.phase == 5) return "system error declared by the platform";
    if (error.type == 1 && error.phase == 3) return "kernel log kept from a failed boot";
    if (error.type == 5) {
        switch (error.phase) {
            case 4:
                return "stalled, system server not up";
            case 5:
                return "stalled in the system server";
            case 6:
                return "stalled in the set-up wizard";
            case 7:
                return error.reason == 22 ? "failure reported after boot"
                                          : "stalled in the set-up wizard";
            case 8:
                return "init log kept from a failed boot";
            default:
                break;
        }
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
