// SPDX-License-Identifier: Apache-2.0
// What the platform of a simulated device does between its boots: /dev, /proc and the properties
// are new in each, /velafs and /data stay.

#pragma once

#include <stdint.h>
#include <time.h>

#include <optional>
#include <string>

#include "lab/scenario/Scenario.h"

namespace lab {

class DeviceRoot;

class Platform {
public:
    // Makes of a new root the device before its first boot. Both must outlive the platform.
    // Whatever cannot be made or changed throws std::exception, here and below.
    Platform(const Scenario& device, const DeviceRoot& root);

    void startBoot(const Boot& boot);
    // `endedAt` is device time in ms.
    void endBoot(const Boot& boot, int64_t endedAt);

    // What the boot that was started last finds.
    time_t clock() const {
        return mClock;  // time of day, UTC
    }
    const std::string& bootReason() const {
        return mBootReason;
    }
    const std::string& lastConsole() const {
        return mLastConsole;
    }

    TextMap properties() const;

private:
    // All these inside the device root.
    void clearLastBoot();
    static TextMap readProperties();
    void setProperties(const Boot& boot);
    void fillLogs();
    // What the boot has led to, from its properties.
    bool isToReset(const TextMap& properties) const;
    bool isToReboot(const TextMap& properties) const;

    const Scenario& mDevice;
    const DeviceRoot& mRoot;
    time_t mClock;
    std::string mBootReason = "cold";
    TextMap mPersistent;                      // properties that survive a boot
    std::string mLastConsole;                 // kernel log of the boot before; empty at first
    std::optional<uintmax_t> mOwnBufferSize;  // of the main log buffer at first; unset when the
                                              // log buffers are to be filled again
};

}  // namespace lab
