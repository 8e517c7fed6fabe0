// SPDX-License-Identifier: Apache-2.0
// Runs random scenarios, many at a time, against the rules; shrinks one that breaks a rule.

#include "lab/random/Sagas.h"

#include <limits.h>
#include <stdio.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include "common/text/Printable.h"
#include "common/version/Version.h"
#include "lab/base/Files.h"
#include "lab/base/Jobs.h"
#include "lab/base/Progress.h"
#include "lab/base/Shared.h"
#include "lab/base/Text.h"
#include "lab/random/Shrink.h"
#include "lab/run/Workshop.h"
#include "lab/scenario/Scenario.h"

namespace lab {

namespace {

constexpr uint64_t kPrinted = 20;  // broken rules
constexpr uint64_t kTwice = 20;    // every so many scenarios one is run a second time

// The kinds of violations are in the order of their statuses.
static_assert(kSagaCrash + static_cast<int>(Violation::Kind::CRASH) == kSagaCrash &&
              kSagaCrash + static_cast<int>(Violation::Kind::LIVENESS) == kSagaLiveness &&
              kSagaCrash + static_cast<int>(Violation::Kind::RULE) == kSagaRule);

// The worst violation, and of equals the first; nothing when every rule held.
std::optional<SagaFinding> judge(const ScenarioRun& run) {
    std::optional<SagaFinding> worst;
    const std::vector<BootOutcome>& boots = run.outcomes();
    for (size_t i = 0; i < boots.size(); ++i) {
        for (const Violation& violation : boots[i].violations) {
            const int status = kSagaCrash + static_cast<int>(violation.kind);
            if (!worst || status < worst->status) worst = {status, 0, i + 1, violation.text};
        }
    }
    return worst;
}

void print(const std::string& line) {
    printf("%s\n", text::printable(line).c_str());
    fflush(stdout);
}

// Sums of all processes.
struct Tally {
    std::atomic<uint64_t> boots{0};
    std::atomic<uint64_t> deviceSeconds{0};
    std::atomic<uint64_t> twice{0};  // scenarios
    std::atomic<uint64_t> fingerprint{0};
    std::atomic<uint64_t> broken{0};  // likewise
    std::atomic<int> worst{INT_MAX};  // status

    bool becomesWorst(int status) {
        for (int least = worst; status < least;) {
            if (worst.compare_exchange_weak(least, status)) return true;
        }
        return false;
    }
};

// Whether a run of the scenario's file shows what the search has seen; not where it can't be run.
bool repeats(const Scenario& scenario, int status, const std::string& folder) {
    const std::string file = folder + "/file-" + std::to_string(getpid()) + ".yaml";
    try {
        writeScenario(scenario, file);
        return runAgain(readScenario(file), folder) == status;
    } catch (const std::runtime_error&) {
        return false;
    }
}

class Search {
public:
    Search(const SagaOrder& order, SagaResult result, const std::string& folder)
        : mOrder(order),
          mResult(std::move(result)),
          mFolder(folder),
          mProgress("scenarios", mResult.last() - mResult.first()),
          mJobs(mResult.last() - mResult.first(), order.jobs,
                [this](uint64_t task) { return "seed " + std::to_string(seedOf(task)); }) {}

    SagaResult run() {
        const auto started = std::chrono::steady_clock::now();
        const Jobs::Outcome jobs = mJobs.run([this] {
            Workshop workshop(mFolder);
            mJobs.forEachTask([&](uint64_t task) { runOne(workshop, seedOf(task)); });
        });
        mProgress.clear();
        mResult.seconds =
                std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
        mResult.bootsRun = mTally->boots;
        mResult.deviceSeconds = mTally->deviceSeconds;
        mResult.twice = mTally->twice;
        mResult.fingerprint = mTally->fingerprint;
        mResult.notRun = jobs.notRun;
        mResult.failedJobs = static_cast<uint64_t>(jobs.failed);
        for (const std::string& line : linesOf(readFileOr(findingsFile(), ""))) {
            mResult.add(readFinding(line));
        }
        return mResult;
    }

    // The scenario of the worst finding as a file, reduced; where that can be seen in a single run.
    void explainWorst() const {
        const SagaFinding& worst = mResult.findings.front();
        if (worst.status == kSagaNotRepeated) return;
        Scenario scenario = randomScenario(worst.seed, mOrder.boots, mOrder.platform);
        if (worst.status != kSagaDifferent) {
            const size_t boots = scenario.boots.size();
            scenario = shrink(std::move(scenario), [&](const Scenario& candidate) {
                return repeats(candidate, worst.status, mFolder);
            });
            print(format("seed %ju: reduced from %zu boots to %zu", worst.seed, boots,
                         scenario.boots.size()));
        }
        writeScenario(scenario, mFolder + "/out/" + kSagaScenario);
    }

private:
    uint64_t seedOf(uint64_t task) const {
        return mOrder.seed + mResult.first() + task;
    }

    // Now and then twice.
    void runOne(Workshop& workshop, uint64_t seed) {
        const Scenario made = randomScenario(seed, mOrder.boots, mOrder.platform);
        const bool twice = (seed - mOrder.seed) % kTwice == 0;
        const Keep keep = twice ? Keep::FINGERPRINT : Keep::TRACE;
        const ScenarioRun& run = workshop.run(made, keep);
        for (const BootOutcome& outcome : run.outcomes()) {
            ++mTally->boots;
            mTally->deviceSeconds += static_cast<uint64_t>(outcome.endedAt / 1000);
        }
        mProgress.add(run.outcomes().size());
        std::optional<SagaFinding> finding = judge(run);
        if (finding && !repeats(made, finding->status, mFolder)) finding->status = kSagaNotRepeated;
        if (!finding && twice) {
            ++mTally->twice;
            const uint64_t fingerprint = run.fingerprint();
            mTally->fingerprint += fingerprint;
            if (workshop.run(made, keep).fingerprint() != fingerprint) {
                finding = {kSagaDifferent, 0, 0, "a second run did something else"};
            }
        }
        if (!finding) return;
        finding->seed = seed;
        add(*finding);
    }

    void add(const SagaFinding& finding) {
        appendFile(findingsFile(), lineOf(finding) + "\n");
        mProgress.object();
        const bool worst = mTally->becomesWorst(finding.status);
        if (mTally->broken++ < kPrinted || worst) {
            mProgress.clear();
            print(format("seed %ju, boot %ju: ", finding.seed, finding.boot) + finding.text +
                  (finding.status == kSagaNotRepeated ? " (but not when run again)" : ""));
        }
        if (mOrder.untilBroken) mJobs.stop();
    }

    // The jobs' findings, a line each.
    std::string findingsFile() const {
        return mFolder + "/findings";
    }

    const SagaOrder& mOrder;
    SagaResult mResult;
    const std::string& mFolder;
    Progress mProgress;
    Jobs mJobs;
    Shared<Tally> mTally;
};

}  // namespace

void runSagas(const SagaOrder& order, const std::string& folder) {
    SagaResult result;
    result.version = kVersion;
    result.seed = order.seed;
    result.count = order.count;
    result.boots = kBootsNames[static_cast<size_t>(order.boots)];
    result.platform = kPlatformNames[static_cast<size_t>(order.platform)];
    result.part = order.part;
    result.parts = order.parts;
    print(format("%ju scenarios from seed %ju on, %d at a time", result.last() - result.first(),
                 order.seed + result.first(), order.jobs));
    makeFolders(folder + "/out");
    Search search(order, std::move(result), folder);
    result = search.run();
    writeResult(result, folder + "/out/" + kSagaResult);
    if (!result.findings.empty()) search.explainWorst();
}

int runAgain(const Scenario& scenario, const std::string& folder) {
    Workshop workshop(folder);
    const std::optional<SagaFinding> finding = judge(workshop.run(scenario, Keep::LOG));
    return finding ? finding->status : 0;
}

}  // namespace lab
