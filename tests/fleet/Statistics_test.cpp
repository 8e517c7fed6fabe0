// SPDX-License-Identifier: Apache-2.0
// The statistics against published values, against another way to the same numbers, and by hand.

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include <boost/math/distributions/hypergeometric.hpp>

#include "fleet/tables/Statistics.h"
#include "fleet/tables/Versions.h"

namespace {

using fleet::adjusted;
using fleet::Fisher;
using fleet::fisher;
using fleet::wilson;

TEST(Wilson, GivesPublishedIntervals) {
    // Newcombe 1998, table I, method 3.
    EXPECT_NEAR(wilson({81, 263}).low, 0.2553, 5e-5);
    EXPECT_NEAR(wilson({81, 263}).high, 0.3662, 5e-5);
    EXPECT_NEAR(wilson({15, 148}).low, 0.0624, 5e-5);
    EXPECT_NEAR(wilson({15, 148}).high, 0.1605, 5e-5);
    EXPECT_EQ(wilson({0, 20}).low, 0);
    EXPECT_NEAR(wilson({0, 20}).high, 0.1611, 5e-5);
    EXPECT_NEAR(wilson({1, 29}).low, 0.0061, 5e-5);
    EXPECT_NEAR(wilson({1, 29}).high, 0.1718, 5e-5);
    EXPECT_EQ(wilson({20, 20}).high, 1);
    EXPECT_EQ(wilson({0, 0}).high, 1);
}

TEST(FisherTest, GivesPublishedValues) {
    // The lady tasting tea, and the convicted twins of Fisher 1935.
    EXPECT_NEAR(fisher({3, 4}, {1, 4}).p, 34.0 / 70, 1e-12);
    EXPECT_NEAR(fisher({2, 17}, {10, 13}).p, 0.0005367, 1e-7);
    EXPECT_TRUE(fisher({10, 13}, {2, 17}).more);
    EXPECT_FALSE(fisher({2, 17}, {10, 13}).more);
}

// By summing probabilities from Boost, over tables of every shape.
TEST(FisherTest, AgreesWithTheHypergeometricDistribution) {
    std::mt19937 draw(1);
    for (int round = 0; round < 60; ++round) {
        const int64_t ones = 1 + static_cast<int64_t>(draw() % 400);
        const int64_t others = 1 + static_cast<int64_t>(draw() % 3000);
        const int64_t some = static_cast<int64_t>(draw() % static_cast<uint64_t>(ones + 1));
        const int64_t more = static_cast<int64_t>(draw() % static_cast<uint64_t>(others / 8 + 1));
        const auto drawn = static_cast<unsigned>(some + more);
        const boost::math::hypergeometric distribution(drawn, static_cast<unsigned>(ones),
                                                       static_cast<unsigned>(ones + others));
        const auto range = boost::math::support(distribution);
        const double here = pdf(distribution, static_cast<unsigned>(some));
        double p = 0;
        for (unsigned k = range.first; k <= range.second; ++k) {
            const double each = pdf(distribution, k);
            if (each <= here * (1 + 1e-7)) p += each;
        }
        const Fisher result = fisher({some, ones}, {more, others});
        EXPECT_NEAR(result.p, p, 1e-9 + 1e-6 * p) << some << "/" << ones << " " << more;
        EXPECT_LE(result.least, result.p * (1 + 1e-9));
    }
}

TEST(FisherTest, SaysNothingWhereThereIsNothing) {
    EXPECT_EQ(fisher({0, 100}, {0, 100}).p, 1);
    EXPECT_EQ(fisher({0, 0}, {5, 100}).p, 1);
    EXPECT_EQ(fisher({0, 0}, {5, 100}).least, 1);
    EXPECT_EQ(fisher({10, 10}, {20, 20}).p, 1);
    EXPECT_LT(fisher({400000, 500000}, {100, 500000}).p, 1e-300);
}

TEST(Adjusted, IsHolmsCorrection) {
    const auto test = [](double p) { return Fisher{p, 1e-9, true}; };
    const std::vector<double> levels = adjusted({test(0.01), test(0.04), test(0.03)}, 0.05);
    EXPECT_DOUBLE_EQ(levels[0], 0.03);
    EXPECT_DOUBLE_EQ(levels[1], 0.06);
    EXPECT_DOUBLE_EQ(levels[2], 0.06);
}

TEST(Adjusted, LeavesOutTestsThatCannotReachTheLevel) {
    std::vector<Fisher> tests(1000, Fisher{0.2, 0.2, true});
    tests[500] = {0.04, 0.001, true};
    const std::vector<double> levels = adjusted(tests, 0.05);
    EXPECT_DOUBLE_EQ(levels[500], 0.04);
    EXPECT_EQ(levels[0], 1);
    EXPECT_EQ(fleet::countedTests(tests, 0.05), 1U);
    // At 0.05 / 2 both count, at 0.05 / 3 no more than the first one.
    const Fisher small = {1, 0.001, true};
    const Fisher large = {1, 0.02, true};
    EXPECT_EQ(fleet::countedTests({small, large}, 0.05), 2U);
    EXPECT_EQ(fleet::countedTests({small, large, large}, 0.05), 1U);
    EXPECT_EQ(fleet::countedTests({}, 0.05), 0U);
}

// Many fleets of equal rates with both rare and frequent signatures, each tested everywhere and in
// four countries: something is named in no more of them than the level says.
TEST(Adjusted, KeepsItsLevel) {
    constexpr int kFleets = 1000;
    std::mt19937 draw(1);
    int named = 0;
    for (int i = 0; i < kFleets; ++i) {
        std::vector<Fisher> tests;
        for (int signature = 0; signature < 60; ++signature) {
            std::binomial_distribution<int64_t> one(500, 0.1 / (1 + signature));
            std::binomial_distribution<int64_t> other(900, 0.1 / (1 + signature));
            fleet::Share ones;
            fleet::Share others;
            for (int country = 0; country < 4; ++country) {
                const fleet::Share here = {one(draw), 500};
                const fleet::Share there = {other(draw), 900};
                tests.push_back(fisher(here, there));
                ones = {ones.some + here.some, ones.all + here.all};
                others = {others.some + there.some, others.all + there.all};
            }
            tests.push_back(fisher(ones, others));
        }
        const std::vector<double> levels = adjusted(tests, 0.05);
        named += *std::min_element(levels.begin(), levels.end()) <= 0.05 ? 1 : 0;
    }
    EXPECT_LE(named, kFleets / 20);
    EXPECT_GT(named, kFleets / 200) << "the correction is larger than it has to be";
}

TEST(Versions, CompareNumbersAsNumbers) {
    const char* const kInOrder[] = {"",       "3.2",   "3.2-rc1",
                                    "3.02.1", "3.9",   "3.10",
                                    "3.10a",  "10.0",  "99999999999999999999999",
                                    "S1-9",   "S1-10", "user-b"};
    const size_t size = std::size(kInOrder);
    for (size_t one = 0; one < size; ++one) {
        for (size_t other = 0; other < size; ++other) {
            EXPECT_EQ(fleet::isOlder(kInOrder[one], kInOrder[other]), one < other)
                    << kInOrder[one] << " " << kInOrder[other];
        }
    }
    // Equal numbers are still two names.
    EXPECT_NE(fleet::isOlder("3.02", "3.2"), fleet::isOlder("3.2", "3.02"));
}

}  // namespace
