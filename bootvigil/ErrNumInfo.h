// SPDX-License-Identifier: Apache-2.0
// The record of one boot failure and the record file on the persistent partition.

#pragma once

#include <stdint.h>

#include <string>

class ErrNumInfo {
public:
    ErrNumInfo();

    // Sets the time of the failure to now.
    void setLocalTimeStamp();

    // Keeps the first 256 characters of `info`.
    void setCoreErrInfo(std::string info);

    // Appends this failure to the record file, restarting the file (and keeping a backup) once it
    // has 5120 bytes, and writes the main phase to the flag file. True when the line was written.
    bool saveLogInfo();

    // These three read and change the files only.

    // Appends a stamp: error number 0xf00000 + `code`. False when there is no record file.
    static bool saveRecoveryInfo(unsigned int code);

    // Removes the last line of the record file. False when there is none, or it can't be written.
    static bool revertLastInfo();

    // Leaves a short form of the last record line for the uploader, unless an earlier one is still
    // uncollected or the failure was in phase 6 or 7 (set-up wizard, key lock).
    static void submitInfo();

    std::string mTimeStamp;
    uint8_t mMainPhase;
    uint8_t mDetailPhase;
    uint8_t mErrType;  // TYPE_NONE: no failure recorded yet
    uint8_t mReason;
    std::string mCoreErrInfo;
    std::string mExpInfo;   // By design: nobody assigns it; every record line has it, empty.
    std::string mReserved;  // By design: never used; it only keeps its place in the object.
};
