// SPDX-License-Identifier: Apache-2.0
// Handles the six messages that drive a run from the start to exit(0).

#pragma once

#include <utils/RefBase.h>

#include "Bootvigil.h"
#include "Handler.h"

class BootvigilHandler : public Handler {
public:
    BootvigilHandler(const android::sp<android::Looper>& looper,
                     const android::sp<Bootvigil>& monitor);

    void handleMessage(const android::Message& message) override;

    android::sp<Bootvigil> mMonitor;
    bool mBooted = false;          // once true, never asked again
    bool mRawLogDone = false;      // raw logs are handled once per run
    bool mFirstBootTimer = false;  // first boot since /data was wiped

private:
    void onStart();
    void onPoll(const android::Message& message);
    void pollBooting(const android::Message& message);
    void pollBooted(const android::Message& message);
    void onBootTimeout(const android::Message& message);
    void onRecovery();
    void onAfterBoot();

    void followUpCapture();
    void handleRawLogs();
};
