// SPDX-License-Identifier: Apache-2.0
// How sure a rate is, and which of many differences between two rates are more than chance.

#include "fleet/tables/Statistics.h"

#include <algorithm>
#include <cmath>
#include <numeric>

#include <boost/math/distributions/normal.hpp>

namespace fleet {

namespace {

// The largest number of tests whose extremes are enough at `level` divided by that number.
double mostAt(const std::vector<Fisher>& tests, double level) {
    std::vector<double> least;
    least.reserve(tests.size());
    for (const Fisher& test : tests) least.push_back(test.least);
    std::sort(least.begin(), least.end());
    for (size_t count = 1;; ++count) {
        const double limit = level / static_cast<double>(count);
        const auto enough = std::upper_bound(least.begin(), least.end(), limit);
        if (static_cast<size_t>(enough - least.begin()) <= count) return limit;
    }
}

}  // namespace

Interval wilson(const Share& share) {
    if (share.all <= 0) return {};
    static const double z = boost::math::quantile(boost::math::normal(), 0.975);
    const auto n = static_cast<double>(share.all);
    const double rate = static_cast<double>(share.some) / n;
    const double scale = 1 + z * z / n;
    const double middle = (rate + z * z / (2 * n)) / scale;
    const double half = z * std::sqrt(rate * (1 - rate) / n + z * z / (4 * n * n)) / scale;
    // Rounding must not lead below none and above all.
    return {share.some == 0 ? 0 : middle - half, share.some == share.all ? 1 : middle + half};
}

// The weights of all tables with the same sums follow from the most frequent one by their ratios,
// which keeps the digits of the smallest ones.
Fisher fisher(const Share& one, const Share& other) {
    // Tables that are as likely as the one at hand but for rounding are as likely.
    constexpr double kSame = 1 + 1e-7;
    const int64_t drawn = one.some + other.some;
    const int64_t all = one.all + other.all;
    const int64_t low = std::max<int64_t>(0, drawn - other.all);
    const int64_t high = std::min(drawn, one.all);
    Fisher result;
    if (one.all <= 0 || other.all <= 0 || low >= high) return result;
    const auto ratio = [&](int64_t k) {  // of the weight at k + 1 to that at k
        return static_cast<double>(drawn - k) * static_cast<double>(one.all - k) /
               (static_cast<double>(k + 1) * static_cast<double>(other.all - drawn + k + 1));
    };
    const double modeAt = static_cast<double>(drawn + 1) * static_cast<double>(one.all + 1) /
                          static_cast<double>(all + 2);
    const int64_t mode = std::clamp(static_cast<int64_t>(modeAt), low, high);
    std::vector<double> weights(static_cast<size_t>(high - low + 1));
    const auto weight = [&](int64_t k) -> double& { return weights[static_cast<size_t>(k - low)]; };
    weight(mode) = 1;
    for (int64_t k = mode; k < high; ++k) weight(k + 1) = weight(k) * ratio(k);
    for (int64_t k = mode; k > low; --k) weight(k - 1) = weight(k) / ratio(k - 1);
    const double sum = std::accumulate(weights.begin(), weights.end(), 0.0);
    const auto upTo = [&](double most) {
        double some = 0;
        for (const double each : weights) some += each <= most * kSame ? each : 0;
        return std::min(1.0, some / sum);
    };
    result.p = upTo(weight(one.some));
    result.least = upTo(std::min(weight(low), weight(high)));
    result.more = static_cast<double>(one.some) * static_cast<double>(other.all) >
                  static_cast<double>(other.some) * static_cast<double>(one.all);
    return result;
}

size_t countedTests(const std::vector<Fisher>& tests, double level) {
    const double limit = mostAt(tests, level);
    return static_cast<size_t>(std::count_if(tests.begin(), tests.end(), [&](const Fisher& test) {
        return test.least <= limit;
    }));
}

std::vector<double> adjusted(const std::vector<Fisher>& tests, double level) {
    const double limit = mostAt(tests, level);
    std::vector<size_t> order;
    for (size_t i = 0; i < tests.size(); ++i) {
        if (tests[i].least <= limit) order.push_back(i);
    }
    std::sort(order.begin(), order.end(),
              [&](size_t a, size_t b) { return tests[a].p < tests[b].p; });
    std::vector<double> levels(tests.size(), 1);
    double largest = 0;
    for (size_t place = 0; place < order.size(); ++place) {
        const auto left = static_cast<double>(order.size() - place);
        largest = std::max(largest, std::min(1.0, left * tests[order[place]].p));
        levels[order[place]] = largest;
    }
    return levels;
}

}  // namespace fleet
