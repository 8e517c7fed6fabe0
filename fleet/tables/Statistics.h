// SPDX-License-Identifier: Apache-2.0
// How sure a rate is, and which of many differences between two rates are more than chance.

#pragma once

#include <stddef.h>
#include <stdint.h>

#include <vector>

namespace fleet {

// Some of a number of devices; never more than there are.
struct Share {
    int64_t some = 0;
    int64_t all = 0;
};

// The 95 % interval of a share by Wilson's formula: from 0 to 1 where there are no devices.
struct Interval {
    double low = 0;
    double high = 1;
};
Interval wilson(const Share& share);

// Fisher's exact test of two shares of different devices, two-sided.
struct Fisher {
    double p = 1;       // of a difference at least as unlikely, if both had the same rate
    double least = 1;   // the smallest that `p` could be with as many of either and in all
    bool more = false;  // the first share is the larger one
};
Fisher fisher(const Share& one, const Share& other);

// Holm's correction: for each test the level at which it would still be one of the differences that
// are more than chance. Where tests are so small that even the extreme would not be enough at
// `level` and this many tests, they are left out of the count, as Tarone showed: their `least` does
// not depend on how the devices fall. They get 1.
std::vector<double> adjusted(const std::vector<Fisher>& tests, double level);

// How many tests adjusted() counts.
size_t countedTests(const std::vector<Fisher>& tests, double level);

}  // namespace fleet
