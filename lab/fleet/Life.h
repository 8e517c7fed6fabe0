// SPDX-License-Identifier: Apache-2.0
// The life of one device of a simulated fleet, drawn from a seed.

#pragma once

#include <stddef.h>
#include <stdint.h>
#include <time.h>

#include <string>
#include <vector>

#include "lab/base/Draw.h"
#include "lab/fleet/Regression.h"
#include "lab/fleet/Trouble.h"
#include "lab/scenario/Scenario.h"

namespace lab {

// What is known of a device beside its partition.
struct Identity {
    std::string serial, model, country;
    std::string software;       // when it was pulled
    time_t from = 0;            // in use since then, UTC
    time_t pulled = 0;          // UTC
    std::vector<time_t> since;  // when it got each of kReleases; 0: never
};

struct Life {
    Identity identity;
    uint64_t goodBoots = 0;           // that are not in its scenario
    std::vector<Trouble> troubles;    // in order of time
    std::vector<size_t> regressions;  // of those planted, that it has
};

// A seed's devices, by their number. Every subject has a stream of draws of its own: a regression
// changes nothing about the devices that it does not affect.
class Lives {
public:
    // `regressions` must outlive it. Throws std::invalid_argument where one wants more of these
    // devices than match it.
    Lives(uint64_t seed, uint64_t devices, const std::vector<Regression>& regressions);

    Life life(uint64_t number) const;

    // The boots from each trouble to its cure or to the pull, at the device's own clock.
    Scenario scenario(uint64_t number, const Life& life) const;

    // Likewise a stream of its own, for what happens to the pulled copy.
    QuickDraw damage(uint64_t number) const;

private:
    QuickDraw draw(uint64_t number, uint64_t subject) const;
    Identity identity(uint64_t number) const;
    bool affects(uint64_t number, const Identity& device, size_t regression) const;
    Trouble troubleOf(size_t regression, uint64_t number, const Identity& device) const;

    const uint64_t mSeed;
    const std::vector<Regression>& mRegressions;
    std::vector<std::vector<bool>> mChosen;  // by regression, of one that wants so many devices
};

}  // namespace lab
