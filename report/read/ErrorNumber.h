// SPDX-License-Identifier: Apache-2.0
// The 24-bit error number of a failure record, taken apart and put into words.

#pragma once

#include <stdint.h>

#include <string>

namespace report {

struct ErrorNumber {
    uint32_t number = 0;
    int phase = 0;        // 4 bits
    int detailPhase = 0;  // 8 bits
    int type = 0;         // 4 bits
    int reason = 0;       // 8 bits
    bool stamp = false;   // a recovery stamp, not a failure
};

ErrorNumber decodeErrorNumber(unsigned long number);

// "stalled in the system server".
std::string describeSituation(const ErrorNumber& error);

// The milestone that a restart loop never reaches; empty for any other failure.
std::string missingMilestone(const ErrorNumber& error);

// "0x502564", as in the record.
std::string formatErrorNumber(const ErrorNumber& error);

// "stalled in the system server (0x502564: phase 5, detail phase 2, type 5, reason 100)"
std::string describeErrorNumber(const ErrorNumber& error);

}  // namespace report
