// SPDX-License-Identifier: Apache-2.0
// The daemon's messages and the delays with which they are posted.

#pragma once

enum MessageCode {
    MSG_POLL = 0x20010,
    MSG_BOOT_TIMEOUT = 0x20020,
    MSG_START = 0x20030,
    MSG_RECOVERY = 0x20040,
    MSG_EXIT = 0x20050,
    MSG_AFTER_BOOT = 0x20060,
};

constexpr long kSecond = 1000000000L;       // delays are in nanoseconds
constexpr long kShortDelay = 10 * kSecond;  // to start, recovery and exit
constexpr long kPollPeriod = 30 * kSecond;  // while the boot is in progress
constexpr long kAfterBoot = 120 * kSecond;  // from boot completion to the last check
constexpr long kBootTimeout = 240 * kSecond;
constexpr long kFirstBootTimeout = 480 * kSecond;
