// SPDX-License-Identifier: Apache-2.0
// What a search came to: sums, and the worst of what was found. As a file, so that the shards of a
// search on several machines add up to one.

#pragma once

#include <stdint.h>

#include <array>
#include <string>
#include <vector>

namespace lab {

// Exit statuses. Of those from 10 on the lowest counts: a crash comes before a boot that does not
// end as it must, and that before another broken rule.
constexpr int kSagaNotRun = 1;  // no rule was broken, but a scenario or a whole job failed
constexpr int kSagaCrash = 10;
constexpr int kSagaLiveness = 11;
constexpr int kSagaRule = 12;
constexpr int kSagaDifferent = 13;    // two runs of one scenario differed
constexpr int kSagaNotRepeated = 14;  // a rule was broken, but not in a second run, from a file

// What the statuses from kSagaCrash on are called.
constexpr std::array kSagaKinds = {"crash", "liveness", "rule", "different", "not repeated"};
static_assert(kSagaCrash + kSagaKinds.size() - 1 == kSagaNotRepeated);

struct SagaFinding {
    int status = kSagaRule;
    uint64_t seed = 0;
    uint64_t boot = 0;  // from 1; 0: none of them
    std::string text;
};

struct SagaResult {
    // The search: `count` scenarios, with the seeds from `seed` on, of which this is the part
    // `part` of `parts`, counted from 1.
    std::string version;  // of the program
    uint64_t seed = 1, count = 1;
    std::string boots = "all";
    std::string platform = "bare";
    uint64_t part = 1, parts = 1;

    uint64_t bootsRun = 0;
    uint64_t deviceSeconds = 0;
    double seconds = 0;        // of real time, the sum of all parts
    uint64_t twice = 0;        // scenarios that were run a second time
    uint64_t fingerprint = 0;  // the sum of theirs: the same on every machine
    uint64_t notRun = 0, failedJobs = 0;
    std::array<uint64_t, kSagaKinds.size()> broken = {};  // scenarios, by status from kSagaCrash on
    std::vector<SagaFinding> findings;                    // the worst of them, the worst first

    // The scenarios of this part: their numbers from `first` to below `last`, counted from 0.
    uint64_t first() const;
    uint64_t last() const;

    void add(SagaFinding finding);
    // The first of the findings turned out to be one that does not repeat.
    void worstDoesNotRepeat();

    // The exit status.
    int status() const;

    // What it came to, one line each.
    std::vector<std::string> describe() const;
};

// A finding as a line of text, and back; the latter throws std::exception for any other line.
std::string lineOf(const SagaFinding& finding);
SagaFinding readFinding(const std::string& line);

// Both throw std::runtime_error naming the file; the file is whole or as it was.
void writeResult(const SagaResult& result, const std::string& path);
SagaResult readResult(const std::string& path);

// Adds up all parts of one search; throws std::runtime_error where one is missing or there twice,
// or is of another search or program.
SagaResult mergeResults(const std::vector<std::string>& paths);

}  // namespace lab
