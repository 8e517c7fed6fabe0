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
    int type = 0;         // 4 bits; 0 for what the daemon captures without a record
    int reason = 0;       // 8 bits
    bool stamp = false;   // a recovery stamp, not a failure
};

ErrorNumber decodeErrorNumber(unsigned long number);

// A boot animation that stays: captured, and neither recorded nor recovered.
ErrorNumber animationStays();

bool isStall(const ErrorNumber& error);  // found at a time-out, the set-up wizard's not included
bool isRestartLoop(const ErrorNumber& error);
bool isWizardStall(const ErrorNumber& error);  // taken back if the wizard goes on
bool isKeptLog(const ErrorNumber& error);      // of an earlier boot, found by a good one
// Whether the daemon runs a recovery after it.
bool isRecovered(const ErrorNumber& error);

// "stalled in the system server".
std::string describeSituation(const ErrorNumber& error);

// "system server", "system server started"; "phase 9", "detail phase 17" for others.
std::string phaseName(const ErrorNumber& error);
std::string detailName(const ErrorNumber& error);

// The milestone that a restart loop never reaches; empty for any other failure.
std::string missingMilestone(const ErrorNumber& error);

// "0x502564", as in the record.
std::string formatErrorNumber(const ErrorNumber& error);

// "stalled in the system server (0x502564: phase 5, detail phase 2, type 5, reason 100)"
std::string describeErrorNumber(const ErrorNumber& error);

}  // namespace report
