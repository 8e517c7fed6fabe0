// SPDX-License-Identifier: Apache-2.0
// Runs the boots of a scenario, one after the other, on one simulated device in virtual time.

#include "lab/run/ScenarioRun.h"

#include <algorithm>
#include <filesystem>
#include <stdexcept>
#include <utility>

#include <nlohmann/json.hpp>

#include "lab/base/DevicePaths.h"
#include "lab/base/Files.h"
#include "lab/rules/PlatformRules.h"
#include "lab/rules/Rules.h"
#include "lab/run/Platform.h"
#include "lab/run/ReferencePlatform.h"
#include "report/read/Archive.h"

namespace lab {

namespace {

namespace fs = std::filesystem;

// What lies below /velafs and /data, by device path: the folders, which end in "/", and the content
// of the files for which `wanted` holds.
template <typename Wanted>
TextMap readFiles(const DeviceRoot& root, Wanted wanted) {
    const InsideRoot inside(root);
    TextMap files;
    for (const std::string& folder : {kPartition, kData}) {
        if (fileExists(folder)) files[folder + "/"];
        std::error_code absent;
        for (const auto& entry : fs::recursive_directory_iterator(folder, absent)) {
            const std::string path = entry.path().string();
            if (entry.is_directory()) files[path + "/"];
            if (!entry.is_regular_file() || !wanted(entry)) continue;
            files[path] = readFile(entry.path());
        }
    }
    return files;
}

// The files that the daemon keeps its state in, and all folders.
TextMap filesKept(const DeviceRoot& root) {
    constexpr uintmax_t kLargest = 256UL * 1024;  // a file that fills the partition is none
    return readFiles(root, [](const fs::directory_entry& entry) {
        return entry.path().extension() != kArchiveSuffix && entry.file_size() <= kLargest;
    });
}

// A damaged one holds nothing.
void readArchives(const DeviceRoot& root, BootObservation& seen) {
    const InsideRoot inside(root);
    for (const auto& log : seen.device.logSizes) {
        seen.logBuffers[log.first] = readFileOr(kLogBuffers + log.first, "");
    }
    std::error_code absent;
    for (const auto& entry : fs::directory_iterator(kLogs, absent)) {
        if (entry.path().extension() != kArchiveSuffix) continue;
        std::string content;
        const report::ArchiveInfo info =
                report::readArchive(entry.path(), [&](const char* data, size_t size) {
                    content.append(data, size);
                    return true;
                });
        if (!info.error.empty()) content.clear();
        seen.archives[entry.path().string()] = content;
    }
}

void addBoot(RunLog& log, const BootObservation& seen, const std::string& reason) {
    Record fields = {{"about", seen.boot.about},
                     {"reason", reason},
                     {"clock", int64_t{seen.clock}}};
    if (const auto history = lookUp(seen.filesBefore, kHistory)) fields["history"] = *history;
    log.add(0, "boot", fields);
}

void add(std::vector<Violation>& all, const std::vector<Violation>& more) {
    all.insert(all.end(), more.begin(), more.end());
}

int64_t countOperations(const std::vector<TraceEvent>& events) {
    return std::count_if(events.begin(), events.end(), [](const TraceEvent& event) {
        return event.kind == TraceEvent::OPERATION;
    });
}

// What a scenario's platform does before and after the daemon.
class Around {
public:
    Around(const Scenario& scenario, DeviceRoot& root, RunLog* log)
        : platform(scenario, root), mScenario(scenario), mRoot(root), mRules(scenario) {
        if (scenario.platform == PlatformKind::REFERENCE) mReference.emplace(root, log);
    }

    void prepare(const Boot& boot) {
        platform.startBoot(boot);
        mViolations.clear();
        if (!mReference) return;
        const TextMap before = filesKept(mRoot);
        mReference->prepare(mScenario, boot, platform.clock());
        if (mScenario.partitionAbsent || boot.partitionAbsent) return;
        mViolations = mRules.checkPrepared(before, filesKept(mRoot));
    }

    bool leavesFiles() const {
        return !mReference;
    }

    void recordPrepared() {
        if (mReference) mReference->recordPrepared();
    }

    // The bare platform ends the boot with the daemon, the reference one when it has answered.
    void end(const Boot& boot, const BootOutcome& outcome) {
        if (!mReference) platform.endBoot(boot, outcome.endedAt);
    }

    // With the violations of the platform's rules.
    void answer(const Boot& boot, const std::vector<TraceEvent>& events, BootOutcome& outcome) {
        if (!mReference) return;
        const bool over = outcome.end == BootObservation::End::CUT_OFF ||
                          outcome.end == BootObservation::End::STILL_RUNNING;
        const PlatformActs acts =
                mReference->finish(mScenario, boot, events, {outcome.endedAt, over});
        add(mViolations, mRules.checkActs(boot, acts, filesKept(mRoot)));
        add(outcome.violations, mViolations);
        platform.endBoot(boot, acts.endedAt);
    }

    Platform platform;

private:
    const Scenario& mScenario;
    DeviceRoot& mRoot;
    PlatformRules mRules;
    std::optional<ReferencePlatform> mReference;
    std::vector<Violation> mViolations;  // of this boot
};

}  // namespace

ScenarioRun::ScenarioRun(const Scenario& scenario, const std::string& folder, Keep keep,
                         const std::string& tools)
    : mScenario(scenario),
      mKeep(keep),
      mFolder(fs::absolute(folder)),
      mRoot(mFolder + "/root", tools) {
    if (keep == Keep::LOG) mLog.emplace(mFolder + "/run.jsonl");
}

void ScenarioRun::run() {
    RunLog* const log = mLog ? &*mLog : nullptr;
    Around around(mScenario, mRoot, log);
    const Platform& platform = around.platform;
    BootProcess process(mScenario, mRoot, log);
    std::optional<TextMap> filesLeft;  // by the boot before
    for (const Boot& boot : mScenario.boots) {
        around.prepare(boot);
        BootObservation seen(mScenario, boot);
        seen.clock = platform.clock();
        seen.console = platform.lastConsole();
        seen.properties = platform.properties();
        // Most boots find what the one before left.
        const bool found =
                filesLeft && boot.files.empty() && !boot.partitionAbsent && around.leavesFiles();
        seen.filesBefore = found ? std::move(*filesLeft) : filesKept(mRoot);
        const int number = static_cast<int>(mOutcomes.size()) + 1;
        if (mLog) {
            mLog->setBoot(number);
            addBoot(*mLog, seen, platform.bootReason());
            around.recordPrepared();
        }
        BootOutcome outcome = runBoot(process, seen, number);
        if (mKeep != Keep::TRACE) addToFingerprint(process.trace());
        around.end(boot, outcome);
        seen.events = process.trace().events();
        seen.end = outcome.end;
        seen.status = outcome.status;
        seen.endedAt = outcome.endedAt;
        seen.filesAfter = filesKept(mRoot);
        if (mKeep != Keep::TRACE) readArchives(mRoot, seen);
        outcome.violations = checkRules(seen);
        if (process.trace().full()) {
            throw std::runtime_error("a boot's trace is longer than expected");
        }
        outcome.operations = countOperations(seen.events);
        filesLeft = std::move(seen.filesAfter);
        around.answer(boot, seen.events, outcome);
        mOutcomes.push_back(std::move(outcome));
    }
    if (mScenario.partitionSize) mRoot.unmountPartition();
}

BootOutcome ScenarioRun::runBoot(BootProcess& process, const BootObservation& seen, int number) {
    const std::string name = mLog ? "/boot-" + std::to_string(number) : "/boot";
    try {
        return process.run(seen.boot, seen.clock, mFolder + name + ".stderr");
    } catch (const std::runtime_error& error) {
        throw std::runtime_error("boot " + std::to_string(number) + ": " + error.what());
    }
}

std::vector<Record> ScenarioRun::records() const {
    return mLog->read();
}

void ScenarioRun::addToFingerprint(const Trace& trace) {
    const auto add = [this](std::string_view bytes) {
        for (const char c : bytes) {
            mFingerprint = (mFingerprint ^ static_cast<uint8_t>(c)) * 0x100000001b3;
        }
    };
    add(trace.bytes());
    for (const auto& [path, content] : readFiles(mRoot, [](const auto&) { return true; })) {
        add(path);
        add(content);
    }
}

}  // namespace lab
