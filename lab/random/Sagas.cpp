// SPDX-License-Identifier: Apache-2.0
// Runs random scenarios, many at a time, against the rules; shrinks one that breaks a rule.

#include "lab/random/Sagas.h"

#include <stdio.h>

#include <atomic>
#include <chrono>
#include <optional>
#include <string>
#include <utility>

#include "common/text/Printable.h"
#include "lab/base/Jobs.h"
#include "lab/base/Progress.h"
#include "lab/base/Shared.h"
#include "lab/base/Text.h"
#include "lab/random/Shrink.h"
#include "lab/random/Workshop.h"
#include "lab/scenario/Scenario.h"

namespace lab {

namespace {

constexpr uint64_t kPrinted = 20;  // broken rules
constexpr uint64_t kTwice = 20;    // every so many scenarios one is run a second time

// The kinds of violations are in the order of their statuses.
static_assert(kSagaCrash + static_cast<int>(Violation::Kind::CRASH) == kSagaCrash &&
              kSagaCrash + static_cast<int>(Violation::Kind::LIVENESS) == kSagaLiveness &&
              kSagaCrash + static_cast<int>(Violation::Kind::RULE) == kSagaRule);

struct Finding {
    int status;
    size_t boot;  // from 1; 0: none of them
    std::string text;
};

// The worst violation, and of equals the first; nothing when every rule held.
std::optional<Finding> judge(const ScenarioRun& run) {
    std::optional<Finding> worst;
    const std::vector<BootOutcome>& boots = run.outcomes();
    for (size_t i = 0; i < boots.size(); ++i) {
        for (const Violation& violation : boots[i].violations) {
            const int status = kSagaCrash + static_cast<int>(violation.kind);
            if (!worst || status < worst->status) worst = {status, i + 1, violation.text};
        }
    }
    return worst;
}

void print(const std::string& line) {
    printf("%s\n", text::printable(line).c_str());
    fflush(stdout);
}

// A broken rule as one number, lower for a worse one, and of equals for an earlier scenario.
constexpr int kIndexBits = 56;
constexpr uint64_t kNoneBroken = UINT64_MAX;

uint64_t rankOf(int status, uint64_t index) {
    return static_cast<uint64_t>(status) << kIndexBits | index;
}

// Sums of all processes.
struct Tally {
    std::atomic<uint64_t> boots{0};
    std::atomic<uint64_t> deviceSeconds{0};
    std::atomic<uint64_t> twice{0};   // scenarios
    std::atomic<uint64_t> broken{0};  // likewise
    std::atomic<uint64_t> worst{kNoneBroken};

    bool becomesWorst(uint64_t rank) {
        for (uint64_t least = worst; rank < least;) {
            if (worst.compare_exchange_weak(least, rank)) return true;
        }
        return false;
    }
};

class Search {
public:
    Search(const SagaOrder& order, const std::string& folder)
        : mOrder(order),
          mFolder(folder),
          mProgress("scenarios", order.count),
          mJobs(order.count, order.jobs,
                [this](uint64_t index) { return "seed " + std::to_string(mOrder.seed + index); }) {}

    int run() {
        print(format("%s scenarios from seed %s on, %d at a time",
                     std::to_string(mOrder.count).c_str(), std::to_string(mOrder.seed).c_str(),
                     mOrder.jobs));
        const auto started = std::chrono::steady_clock::now();
        const Jobs::Outcome jobs = mJobs.run([this] {
            Workshop workshop(mFolder);
            mJobs.forEachTask([&](uint64_t index) { runOne(workshop, index); });
        });
        mProgress.clear();
        printSums(
                std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count());
        if (jobs.notRun > 0) print(std::to_string(jobs.notRun) + " scenarios could not be run");
        if (jobs.failed > 0) print(format("%d of %d jobs failed", jobs.failed, mOrder.jobs));
        if (mTally->worst == kNoneBroken) {
            print(jobs.allRun() ? "every rule held" : "every rule held in those that were run");
            return jobs.allRun() ? 0 : kSagaNotRun;
        }
        print(std::to_string(mTally->broken) + " scenarios broke a rule");
        return explainWorst();
    }

private:
    Scenario scenario(uint64_t index) const {
        return randomScenario(mOrder.seed + index, mOrder.boots, mOrder.platform);
    }

    // Now and then twice.
    void runOne(Workshop& workshop, uint64_t index) {
        const Scenario made = scenario(index);
        const bool twice = index % kTwice == 0;
        const Keep keep = twice ? Keep::FINGERPRINT : Keep::TRACE;
        const ScenarioRun& run = workshop.run(made, keep);
        for (const BootOutcome& outcome : run.outcomes()) {
            ++mTally->boots;
            mTally->deviceSeconds += static_cast<uint64_t>(outcome.endedAt / 1000);
        }
        std::optional<Finding> finding = judge(run);
        if (!finding && twice) {
            ++mTally->twice;
            const uint64_t fingerprint = run.fingerprint();
            if (workshop.run(made, keep).fingerprint() != fingerprint) {
                finding = {kSagaDifferent, 0, "a second run did something else"};
            }
        }
        if (finding) add(*finding, index);
        mProgress.add(run.outcomes().size());
    }

    void add(const Finding& finding, uint64_t index) {
        mProgress.object();
        const bool worst = mTally->becomesWorst(rankOf(finding.status, index));
        if (mTally->broken++ < kPrinted || worst) {
            mProgress.clear();
            print("seed " + std::to_string(mOrder.seed + index) + ", boot " +
                  std::to_string(finding.boot) + ": " + finding.text);
        }
        if (mOrder.untilBroken) mJobs.stop();
    }

    void printSums(double seconds) {
        const auto boots = static_cast<double>(mTally->boots);
        print(
                format("%.0f boots in %.1f s: %.0f a second, %.0f times as fast as real time; %.0f "
                       "scenarios run twice",
                       boots, seconds, boots / seconds,
                       static_cast<double>(mTally->deviceSeconds) / seconds,
                       static_cast<double>(mTally->twice)));
    }

    // Writes the worst scenario, shrunk where that can be seen in a single run; gives its status.
    int explainWorst() {
        const auto status = static_cast<int>(mTally->worst >> kIndexBits);
        const uint64_t index = mTally->worst & ((uint64_t{1} << kIndexBits) - 1);
        Scenario worst = scenario(index);
        std::string what = "as it was made up";
        if (status != kSagaDifferent) {
            const size_t boots = worst.boots.size();
            Workshop workshop(mFolder);
            worst = shrink(std::move(worst), [&](const Scenario& candidate) {
                const auto finding = judge(workshop.run(candidate, Keep::TRACE));
                return finding && finding->status == status;
            });
            what = format("reduced from %zu boots to %zu", boots, worst.boots.size());
        }
        const std::string name = "/saga-" + std::to_string(mOrder.seed + index) + ".yaml";
        writeScenario(worst, mFolder + "/out" + name);
        const std::string path = mOrder.out + name;
        print(path + ": " + what + "; bootvigil-lab run " + path + " shows it");
        return status;
    }

    const SagaOrder& mOrder;
    const std::string& mFolder;
    Progress mProgress;
    Jobs mJobs;
    Shared<Tally> mTally;
};

}  // namespace

int runSagas(const SagaOrder& order, const std::string& folder) {
    return Search(order, folder).run();
}

}  // namespace lab
