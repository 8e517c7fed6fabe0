// SPDX-License-Identifier: Apache-2.0
// The four codes of a failure record: type, phase, detail phase and reason.

#pragma once

#include <stdint.h>

#include "BootMilestones.h"

enum FailureType : uint8_t {
    TYPE_NONE = 0,    // no failure recorded yet
    TYPE_KERNEL = 1,  // a kernel log was kept from a failed boot
    TYPE_SYSTEM = 2,  // a restart loop, or a failure that the platform has declared
    TYPE_STALL = 5,   // and whatever else has the last boot event in its record
};

enum FailurePhase : uint8_t {
    PHASE_NONE = 0,
    PHASE_KERNEL = 3,
    PHASE_BEFORE_SYSTEM_SERVER = 4,  // restart loops count as this too
    PHASE_SYSTEM_SERVER = 5,
    PHASE_OOBE = 6,      // in the set-up wizard, which waits for somebody to use the device
    PHASE_KEY_LOCK = 7,  // after it; a failure after boot counts as this too
    PHASE_INIT = 8,
};

enum FailureDetail : uint8_t {
    DETAIL_NONE = 0,
    DETAIL_RAW_LOG = 1,  // kept from a failed boot
    DETAIL_BEFORE_SYSTEM_SERVER = 1,
    DETAIL_IN_SYSTEM_SERVER = 2,
    DETAIL_ANIMATION_STAYS = 3,  // although the boot has completed
    // From kFirstMilestoneDetail on: the milestone that a restart loop never reaches.
    DETAIL_PMS_SCAN_END = kFirstMilestoneDetail + 6,
    DETAIL_PMS_READY = kFirstMilestoneDetail + 7,
    DETAIL_NO_MILESTONE = 255,
};

enum FailureReason : uint8_t {
    REASON_SYSTEM_ERROR = 20,          // declared by the platform
    REASON_AFTER_BOOT = 22,            // reported by the platform after boot
    REASON_STUCK = 100,                // found by the monitor
    REASON_SYSTEM_ERROR_BOOTED = 120,  // REASON_SYSTEM_ERROR once the boot is complete
};
