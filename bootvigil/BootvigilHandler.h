// SPDX-License-Identifier: Apache-2.0
// The six messages that drive a run from the start to exit(0).

#pragma once

#include <utils/RefBase.h>

#include "Handler.h"

class Bootvigil;

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

class BootvigilHandler : public Handler {
public:
    BootvigilHandler(const android::sp<android::Looper>& looper,
                     const android::sp<Bootvigil>& monitor);

    void handleMessage(const android::Message& message) override;

    android::sp<Bootvigil> mMonitor;
    bool mBooted = false;          // once true, never asked again
    bool mRawLogDone = false;      // raw logs are handled once a run
    bool mFirstBootTimer = false;  // first boot since /data was wiped

private:
    void onStart();
    void onPoll(const android::Message& message);
    void onBootTimeout(const android::Message& message);
    void onRecovery();
    void onAfterBoot();

    void followUpCapture();
    void handleRawLogs();
};
