// SPDX-License-Identifier: Apache-2.0
// What devices a simulated fleet is made of, and the half year that it is seen over.

#pragma once

#include <time.h>

#include <string>
#include <vector>

namespace lab {

constexpr time_t kDay = 86400;  // seconds
constexpr int kSeenDays = 184;
constexpr time_t kSeenUntil = 1794787200;  // 2026-11-16 00:00:00 UTC
constexpr time_t kSeenFrom = kSeenUntil - kSeenDays * kDay;

struct Share {
    std::string name;
    int weight;
};
inline const Share kModels[] = {{"Plover", 38},
                                {"Plover Max", 24},
                                {"Curlew", 22},
                                {"Curlew 5G", 16}};
inline const Share kCountries[] = {{"NG", 26}, {"KE", 14}, {"EG", 12}, {"PK", 12},
                                   {"BD", 10}, {"ID", 10}, {"TZ", 8},  {"GH", 8}};

// Oldest first.
struct Release {
    std::string software;
    int day;  // of those that are seen, on which its roll-out begins
};
inline const std::vector<Release> kReleases = {{"2.9", 0},
                                               {"2.10", 15},
                                               {"3.0", 50},
                                               {"3.1", 95},
                                               {"3.2", 158}};

}  // namespace lab
