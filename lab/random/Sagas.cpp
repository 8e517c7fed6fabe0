// SPDX-License-Identifier: Apache-2.0
// Runs random scenarios, many at a time, against the rules; reduces one that breaks a rule.

#include "lab/random/Sagas.h"

#include <errno.h>
#include <inttypes.h>
#include <sched.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <functional>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "lab/base/Files.h"
#include "lab/run/ScenarioRun.h"
#include "lab/scenario/ScenarioWriter.h"

namespace lab {

namespace {

constexpr uint64_t kPrinted = 10;  // broken rules of each job
constexpr uint64_t kTwice = 20;    // every so many scenarios one is run a second time

// The worst violation of a scenario, and of those the first.
struct Finding {
    uint64_t seed = 0;
    int status = 0;
    int boot = 0;
    char text[512] = {};

    bool isWorseThan(const Finding& other) const {
        return std::tie(status, seed) < std::tie(other.status, other.seed);
    }
};

// What a job tells, in memory that outlives it.
struct Report {
    uint64_t seed = 0;  // the last one run
    uint64_t sagas = 0;
    uint64_t boots = 0;
    uint64_t twice = 0;
    uint64_t deviceSeconds = 0;
    uint64_t broken = 0;
    uint64_t notRun = 0;  // scenarios
    Finding worst;        // of those it found
};

// An error of the lab; a boot's may have several lines.
void printError(uint64_t seed, std::string text) {
    while (!text.empty() && text.back() == '\n') text.pop_back();
    std::replace(text.begin(), text.end(), '\n', ' ');
    printf("seed %" PRIu64 ": cannot be run: %s\n", seed, text.c_str());
    fflush(stdout);
}

int statusOf(Violation::Kind kind) {
    switch (kind) {
        case Violation::Kind::CRASH:
            return kSagaCrash;
        case Violation::Kind::LIVENESS:
            return kSagaLiveness;
        case Violation::Kind::RULE:
            return kSagaRule;
    }
    abort();
}

// How a scenario went.
struct Course {
    std::vector<BootOutcome> boots;
    uint64_t fingerprint = 0;
};

// A folder in memory, which goes away with the process.
class Workshop {
public:
    Workshop() {
        std::string folder = std::filesystem::temp_directory_path() / "bootvigil-saga-XXXXXX";
        if (mkdtemp(folder.data()) == nullptr) failWithErrno("cannot make", folder);
        mFolder = folder;
        if (unshare(CLONE_NEWNS) != 0 ||
            (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 && errno != EINVAL) ||
            mount("sagas", folder.c_str(), "tmpfs", 0, nullptr) != 0) {
            failWithErrno("cannot mount a file system in memory at", folder);
        }
        copyDeviceTools(mFolder + "/tools");
    }
    ~Workshop() {
        umount2(mFolder.c_str(), MNT_DETACH);
        rmdir(mFolder.c_str());
    }
    Workshop(const Workshop&) = delete;
    Workshop& operator=(const Workshop&) = delete;

    // Runs one scenario to its end.
    Course run(const Scenario& scenario, Keep keep) {
        const std::string folder = mFolder + "/saga";
        // A run that could not go on may have left its partition.
        umount2((folder + "/root/velafs").c_str(), MNT_DETACH);
        std::filesystem::remove_all(folder);
        makeFolders(folder);
        ScenarioRun scenarioRun(scenario, folder, keep, mFolder + "/tools");
        scenarioRun.run();
        return {scenarioRun.outcomes(), scenarioRun.fingerprint()};
    }

    std::optional<Finding> judge(const Course& course) const {
        std::optional<Finding> worst;
        for (size_t i = 0; i < course.boots.size(); ++i) {
            for (const Violation& violation : course.boots[i].violations) {
                const int status = statusOf(violation.kind);
                if (worst && worst->status <= status) continue;
                worst.emplace();
                worst->status = status;
                worst->boot = static_cast<int>(i) + 1;
                snprintf(worst->text, sizeof(worst->text), "%s", violation.text.c_str());
            }
        }
        return worst;
    }

private:
    std::string mFolder;
};

// Runs one scenario, now and then twice, and gives what it broke.
std::optional<Finding> runOne(Workshop& workshop, const Scenario& scenario, bool twice,
                              Report& report) {
    const Keep keep = twice ? Keep::FINGERPRINT : Keep::TRACE;
    const Course course = workshop.run(scenario, keep);
    ++report.sagas;
    for (const BootOutcome& outcome : course.boots) {
        ++report.boots;
        report.deviceSeconds += static_cast<uint64_t>(outcome.endedAt / 1000);
    }
    std::optional<Finding> finding = workshop.judge(course);
    if (!finding && twice) {
        ++report.twice;
        if (workshop.run(scenario, keep).fingerprint != course.fingerprint) {
            finding.emplace();
            finding->status = kSagaDifferent;
            strcpy(finding->text, "a second run did something else");
        }
    }
    return finding;
}

void runShare(const SagaOrder& order, uint64_t job, Report& report) {
    report.seed = order.seed + job;
    Workshop workshop;
    for (uint64_t i = job; i < order.count; i += static_cast<uint64_t>(order.jobs)) {
        report.seed = order.seed + i;
        std::optional<Finding> finding;
        try {
            finding = runOne(workshop, randomScenario(report.seed, order.boots), i % kTwice == 0,
                             report);
        } catch (const std::exception& error) {
            // The others are worth running all the same.
            ++report.notRun;
            printError(report.seed, error.what());
            continue;
        }
        if (!finding) continue;
        finding->seed = report.seed;
        const bool worst = report.broken == 0 || finding->isWorseThan(report.worst);
        if (report.broken++ < kPrinted || worst) {
            printf("seed %" PRIu64 ", boot %d: %s\n", report.seed, finding->boot, finding->text);
            fflush(stdout);
        }
        if (worst) report.worst = *finding;
        if (order.untilBroken) return;
    }
}

// The parts of a scenario that may be left out, each as a change of it; false when it has no such
// part any more.
using Omission = std::function<bool(Scenario&)>;

template <typename Member>
void omitElements(std::vector<Omission>& omissions, size_t count, Member member) {
    // In halves, quarters and so on, then one by one.
    for (size_t size = count; size > 0; size /= 2) {
        for (size_t from = 0; from < count; from += size) {
            omissions.push_back([=](Scenario& scenario) {
                auto& list = member(scenario);
                if (list.size() != count) return false;
                auto first = std::next(list.begin(), static_cast<long>(from));
                list.erase(first,
                           std::next(first, static_cast<long>(std::min(size, count - from))));
                return true;
            });
        }
    }
}

std::vector<Omission> omissionsOf(const Scenario& scenario) {
    std::vector<Omission> list;
    omitElements(
            list, scenario.boots.size(), [](Scenario & s) -> auto& { return s.boots; });
    omitElements(
            list, scenario.files.size(), [](Scenario & s) -> auto& { return s.files; });
    omitElements(
            list, scenario.properties.size(), [](Scenario & s) -> auto& { return s.properties; });
    list.push_back([](Scenario& s) { return std::exchange(s.partitionSize, {}).has_value(); });
    list.push_back([](Scenario& s) { return !std::exchange(s.endlessLogs, {}).empty(); });
    list.push_back([](Scenario& s) { return !std::exchange(s.nulLogs, {}).empty(); });
    for (size_t b = 0; b < scenario.boots.size(); ++b) {
        const Boot& boot = scenario.boots[b];
        omitElements(
                list, boot.faults.size(), [b](Scenario & s) -> auto& { return s.boots[b].faults; });
        // The last change ends the boot.
        if (boot.changes.size() > 1) {
            for (size_t i = 0; i + 1 < boot.changes.size(); ++i) {
                list.push_back([b, i, count = boot.changes.size()](Scenario& s) {
                    auto& changes = s.boots[b].changes;
                    if (changes.size() != count) return false;
                    changes.erase(changes.begin() + static_cast<long>(i));
                    return true;
                });
            }
        }
        omitElements(
                list, boot.properties.size(), [b](Scenario & s) -> auto& {
                    return s.boots[b].properties;
                });
        omitElements(
                list, boot.files.size(), [b](Scenario & s) -> auto& { return s.boots[b].files; });
        list.push_back(
                [b](Scenario& s) { return std::exchange(s.boots[b].partitionAbsent, false); });
        list.push_back(
                [b](Scenario& s) { return std::exchange(s.boots[b].space, {}).has_value(); });
        list.push_back(
                [b](Scenario& s) { return std::exchange(s.boots[b].cutAfter, {}).has_value(); });
        list.push_back([b](Scenario& s) {
            return std::exchange(s.boots[b].unsynced, Unsynced::KEPT) != Unsynced::KEPT;
        });
        list.push_back([b](Scenario& s) {
            return std::exchange(s.boots[b].kelAnswersAfter, {}).has_value();
        });
        if (!boot.profileText) {
            omitElements(
                    list, boot.profile.events().size(), [b](Scenario & s) -> auto& {
                        return s.boots[b].profile.events();
                    });
        }
    }
    return list;
}

// The shortest scenario found that still ends in the same way.
Scenario reduce(Workshop& workshop, Scenario scenario, int status) {
    const auto stillBroken = [&](const Scenario& candidate) {
        if (candidate.boots.empty()) return false;
        // What prints without end must run out of room.
        const bool bounded = candidate.endlessLogs.empty() ||
                             std::all_of(candidate.boots.begin(), candidate.boots.end(),
                                         [](const Boot& boot) { return boot.space.has_value(); });
        if (!bounded) return false;
        try {
            const auto finding = workshop.judge(workshop.run(candidate, Keep::TRACE));
            return finding && finding->status == status;
        } catch (const std::runtime_error&) {
            return false;  // without that part the rest can't be run
        }
    };
    for (bool shorter = true; shorter;) {
        shorter = false;
        for (const Omission& omit : omissionsOf(scenario)) {
            Scenario candidate = scenario;
            if (!omit(candidate) || !stillBroken(candidate)) continue;
            scenario = std::move(candidate);
            shorter = true;
            break;
        }
    }
    return scenario;
}

void explain(const SagaOrder& order, const Finding& finding) {
    Workshop workshop;
    Scenario scenario = randomScenario(finding.seed, order.boots);
    std::string what = "as it was made up";
    if (finding.status != kSagaDifferent) {
        const size_t boots = scenario.boots.size();
        scenario = reduce(workshop, scenario, finding.status);
        what = "reduced from " + std::to_string(boots) + " boots to " +
               std::to_string(scenario.boots.size());
    }
    const std::string path = order.folder + "/saga-" + std::to_string(finding.seed) + ".yaml";
    writeScenario(scenario, path);
    printf("%s: %s; bootvigil-lab run %s shows it\n", path.c_str(), what.c_str(), path.c_str());
}

// What the jobs report, in memory that they share with the process that started them.
class Reports {
public:
    explicit Reports(int jobs) : mSize(sizeof(Report) * static_cast<size_t>(jobs)), mJobs(jobs) {
        void* memory =
                mmap(nullptr, mSize, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        if (memory == MAP_FAILED) failWithErrno("cannot map", "the reports");
        mReports = static_cast<Report*>(memory);
        for (Report& report : *this) new (&report) Report();
    }
    ~Reports() {
        munmap(mReports, mSize);
    }
    Reports(const Reports&) = delete;
    Reports& operator=(const Reports&) = delete;

    Report* begin() {
        return mReports;
    }
    Report* end() {
        return mReports + mJobs;
    }

private:
    const size_t mSize;
    const int mJobs;
    Report* mReports = nullptr;
};

[[noreturn]] void becomeJob(const SagaOrder& order, uint64_t job, Report& report) {
    try {
        runShare(order, job, report);
    } catch (const std::exception& error) {
        printError(report.seed, error.what());
        _exit(kSagaNotRun);
    }
    _exit(0);
}

// Runs a process for each job and waits for all; gives how many have failed.
int runJobs(const SagaOrder& order, Reports& reports) {
    std::vector<pid_t> children;
    for (Report& report : reports) {
        fflush(nullptr);
        const pid_t child = fork();
        if (child == 0) becomeJob(order, children.size(), report);
        if (child < 0) printError(order.seed + children.size(), strerror(errno));
        children.push_back(child);
    }
    int failed = 0;
    for (size_t job = 0; job < children.size(); ++job) {
        int status = kSagaNotRun;
        while (children[job] > 0 && waitpid(children[job], &status, 0) < 0 && errno == EINTR) {
        }
        if (WIFSIGNALED(status) && children[job] > 0) {
            printError(reports.begin()[job].seed,
                       "signal " + std::to_string(WTERMSIG(status)) + " ended the job");
        }
        if (status != 0) ++failed;
    }
    return failed;
}

}  // namespace

int runSagas(const SagaOrder& order) {
    printf("%" PRIu64 " scenarios from seed %" PRIu64 " on, %d at a time\n", order.count,
           order.seed, order.jobs);
    const auto started = std::chrono::steady_clock::now();
    Report total;
    Reports reports(order.jobs);
    const int failedJobs = runJobs(order, reports);
    for (const Report& report : reports) {
        total.sagas += report.sagas;
        total.boots += report.boots;
        total.twice += report.twice;
        total.deviceSeconds += report.deviceSeconds;
        if (report.broken > 0 && (total.broken == 0 || report.worst.isWorseThan(total.worst))) {
            total.worst = report.worst;
        }
        total.broken += report.broken;
        total.notRun += report.notRun;
    }
    const std::chrono::duration<double> real = std::chrono::steady_clock::now() - started;
    printf("%" PRIu64
           " boots in %.1f s: %.0f a second, %.0f times as fast as real time; "
           "%" PRIu64 " scenarios run twice\n",
           total.boots, real.count(), static_cast<double>(total.boots) / real.count(),
           static_cast<double>(total.deviceSeconds) / real.count(), total.twice);
    if (total.notRun > 0) printf("%" PRIu64 " scenarios could not be run\n", total.notRun);
    if (failedJobs > 0) printf("%d of %d jobs failed\n", failedJobs, order.jobs);
    const bool allRun = total.notRun == 0 && failedJobs == 0;
    if (total.broken == 0) {
        printf(allRun ? "every rule held\n" : "every rule held in those that were run\n");
        return allRun ? 0 : kSagaNotRun;
    }
    printf("%" PRIu64 " scenarios broke a rule\n", total.broken);
    explain(order, total.worst);
    return total.worst.status;
}

}  // namespace lab
