// SPDX-License-Identifier: Apache-2.0
// `bootvigil-lab replay`: boots today's daemon on what devices recorded.

#include "lab/replay/Replay.h"

#include <stdio.h>

#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "lab/commands/Commands.h"
#include "lab/scenario/Scenario.h"
#include "common/text/Printable.h"

namespace lab {

namespace {

constexpr int kNothingToReplay = 4;

struct Options {
    std::vector<std::string> folders;
    std::string profile;   // empty: none was pulled
    std::string scenario;  // empty: not to be written
    CageOptions cage;
};

// A scenario that can't say what was rebuilt must not pass for it.
void writeRebuilt(const Scenario& scenario, const std::string& path) {
    writeScenario(scenario, path);
    readScenario(path);
}

// Gives the exit status of one folder.
int replayOne(const std::string& from, const Options& options) {
    try {
        const RebuiltRecord record = readRecord(from, options.profile);
        if (!options.scenario.empty()) writeRebuilt(record.boot.scenario, options.scenario);
        return Cage(options.cage, 1).run([&](const std::string& folder) {
            const ReplayResult result = replay(record, folder);
            for (const std::string& line : describeReplay(result)) printf("%s\n", line.c_str());
            return result.agrees() ? 0 : kFailed;
        });
    } catch (const NothingToReplay& error) {
        fprintf(stderr, "bootvigil-lab: %s\n", text::printable(error.what()).c_str());
        return kNothingToReplay;
    }
}

int replayRecords(const Options& options) {
    if (options.folders.size() > 1 && !(options.profile.empty() && options.scenario.empty())) {
        fprintf(stderr, "bootvigil-lab: --profile and --scenario need a single folder\n");
        return CommandLine::kWrongUsage;
    }
    std::set<int> statuses;
    for (const std::string& folder : options.folders) {
        if (&folder != &options.folders.front()) printf("\n");
        fflush(stdout);
        statuses.insert(replayOne(folder, options));
    }
    // What went wrong in one folder must not be hidden by another.
    for (const int status : {kLabFailed, kFailed, kNothingToReplay}) {
        if (statuses.count(status) != 0) return status;
    }
    return 0;
}

}  // namespace

void addReplay(CommandLine& line) {
    const auto options = std::make_shared<Options>();
    Command& command = line.add("replay", "boot today's daemon on what devices recorded");
    command.arguments("folder", options->folders, "copies of devices' persistent partitions")
            .text("--profile", options->profile,
                  "the device's boot profile, if it was pulled; for a single folder")
            .text("--scenario", options->scenario,
                  "write the rebuilt boot to this file, for `run`; for a single folder")
            .exits({{0, "everything that is known is the same"},
                    {kFailed, "something differs"},
                    {CommandLine::kWrongUsage, "wrong usage"},
                    {kLabFailed, "the lab failed"},
                    {kNothingToReplay, "nothing differs, but a folder has nothing to replay"}});
    addCageOptions(command, options->cage);
    command.does([options] { return replayRecords(*options); });
}

}  // namespace lab
