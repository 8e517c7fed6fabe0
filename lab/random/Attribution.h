// SPDX-License-Identifier: Apache-2.0
// How well the daemon names what hangs, and how often it takes a slow boot for a stall: counted
// over many seeded boots whose truth is known.

#pragma once

#include <stdint.h>

#include <string>
#include <vector>

namespace lab {

struct AttributionOrder {
    uint64_t seed = 1;
    int count = 2000;  // of stalled boots, and of slow but healthy ones
    int jobs = 1;      // processes
    bool markdown = false;
};

// Runs the boots in the cage, of which `folder` is given, and gives the lines of a table for each
// sort, as columns or as Markdown. The same seed and count give the same lines, whatever `jobs`.
// Throws std::runtime_error when the boots can't be run.
std::vector<std::string> measureAttribution(const AttributionOrder& order,
                                            const std::string& folder);

}  // namespace lab
