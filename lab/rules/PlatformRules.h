// SPDX-License-Identifier: Apache-2.0
// What must hold of the reference platform: what it does about requests, and what it leaves of the
// partition. Written from docs/porting.md and not from the platform's programs.

#pragma once

#include <stdint.h>

#include <optional>
#include <string>
#include <vector>

#include "lab/rules/Observation.h"

namespace lab {

// What it did in one boot; times are device time in ms.
struct PlatformActs {
    std::optional<int64_t> askedAt;  // by the daemon
    bool reset = false;              // what for: else a reboot
    bool declared = false;           // the platform itself had declared a failure by then
    std::optional<int64_t> upAt;     // the framework came up
    std::optional<int64_t> actedAt;  // the request was carried out
    bool refused = false;            // it was decided against
    int64_t endedAt = 0;             // the boot
};

// Follows a device through its boots.
class PlatformRules {
public:
    explicit PlatformRules(const Scenario& device);

    // What preparing the partition has made of the files; keys as in BootObservation.
    std::vector<Violation> checkPrepared(const TextMap& before, const TextMap& after) const;

    // What came of a boot; `files` are those at its end.
    std::vector<Violation> checkActs(const Boot& boot, const PlatformActs& acts,
                                     const TextMap& files);

private:
    struct Done {
        bool reset;
        int64_t at;  // ms since the first boot's start
        int ups;     // boots that had come up by then
    };
    int64_t limit(bool reset) const;
    int64_t upsForNew() const;

    const Scenario& mDevice;
    std::vector<Done> mDone;
    int64_t mBoots = 0;  // ms since the first boot's start
    int mUps = 0;
    size_t mRefusals = 0;  // lines of their file
};

}  // namespace lab
