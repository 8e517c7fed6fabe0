// SPDX-License-Identifier: Apache-2.0
// How well the daemon names what hangs, and how often it takes a slow boot for a stall: counted
// over many seeded boots whose truth is known.

#pragma once

#include <stdint.h>

#include <string>
#include <vector>

namespace lab {

// Runs `count` stalled boots and as many slow but healthy ones, in `jobs` processes, and gives the
// lines of a table for each, as columns or as Markdown. The same seed and count give the same
// lines, whatever `jobs`. Throws std::runtime_error when the boots can't be run.
std::vector<std::string> measureAttribution(uint64_t seed, int count, int jobs, bool markdown);

}  // namespace lab
