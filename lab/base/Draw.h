// SPDX-License-Identifier: Apache-2.0
// Choices drawn from a seed: the same on every machine, which the standard's distributions don't
// promise.

#pragma once

#include <stddef.h>
#include <stdint.h>

#include <initializer_list>
#include <iterator>
#include <random>

namespace lab {

// Whole numbers from a source of random bits. One seed has many streams: give each subject its own,
// so that one more draw for it leaves the others as they were.
template <typename Source>
class BasicDraw {
public:
    BasicDraw(uint64_t seed, uint64_t stream) : mSource(seed, stream) {}

    // From 0 to below `limit`.
    int64_t below(int64_t limit) {
        return static_cast<int64_t>(mSource() % static_cast<uint64_t>(limit));
    }
    int64_t between(int64_t least, int64_t most) {
        return least + below(most - least + 1);
    }
    bool percent(int64_t chance) {
        return below(100) < chance;
    }
    // One of the list. The only element there is costs no draw.
    template <typename List>
    const auto& of(const List& list) {
        const auto size = static_cast<int64_t>(std::size(list));
        return *(std::begin(list) + (size == 1 ? 0 : below(size)));
    }
    template <typename Value>
    Value of(std::initializer_list<Value> list) {
        return of<std::initializer_list<Value>>(list);
    }
    // One of the list, each as often as its `weight` says.
    template <typename Each, size_t count>
    const Each& weighted(const Each (&list)[count]) {
        int64_t all = 0;
        for (const Each& each : list) all += each.weight;
        int64_t left = below(all);
        const Each* found = list;
        while ((left -= found->weight) >= 0) ++found;
        return *found;
    }

private:
    Source mSource;
};

class MersenneTwister : public std::mt19937_64 {
public:
    MersenneTwister(uint64_t seed, uint64_t stream)
        : MersenneTwister(std::seed_seq{static_cast<uint32_t>(seed),
                                        static_cast<uint32_t>(seed >> 32),
                                        static_cast<uint32_t>(stream)}) {}

private:
    explicit MersenneTwister(std::seed_seq&& sequence) : std::mt19937_64(sequence) {}
};

class SplitMix64 {
public:
    SplitMix64(uint64_t seed, uint64_t stream) : mState(seed * kStep ^ stream) {
        mState = (*this)();
    }
    uint64_t operator()() {
        uint64_t z = mState += kStep;
        z = (z ^ z >> 30) * 0xbf58476d1ce4e5b9;
        z = (z ^ z >> 27) * 0x94d049bb133111eb;
        return z ^ z >> 31;
    }

private:
    static constexpr uint64_t kStep = 0x9e3779b97f4a7c15;

    uint64_t mState;
};

using Draw = BasicDraw<MersenneTwister>;
using QuickDraw = BasicDraw<SplitMix64>;  // quick to start: for one stream per boot, and many boots

}  // namespace lab
