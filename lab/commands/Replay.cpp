// SPDX-License-Identifier: Apache-2.0
// `bootvigil-lab replay`: boots today's daemon on what devices recorded.

#include "lab/replay/Replay.h"

#include <stdio.h>

#include <memory>
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
};

// A scenario that can't say what was rebuilt must not pass for it.
void writeRebuilt(const Scenario& scenario, const std::string& path) {
    writeScenario(scenario, path);
    readScenario(path);
}

int replayRecords(const Options& options) {
    if (options.folders.size() > 1 && !(options.profile.empty() && options.scenario.empty())) {
        fprintf(stderr, "bootvigil-lab: --profile and --scenario need a single folder\n");
        return CommandLine::kWrongUsage;
    }
    bool same = true;
    size_t replayed = 0;
    for (const std::string& folder : options.folders) {
        try {
            const ReplayResult result = replay(folder, options.profile);
            if (replayed++ > 0) printf("\n");
            for (const std::string& line : describeReplay(result)) printf("%s\n", line.c_str());
            fflush(stdout);
            same = same && result.agrees();
            if (!options.scenario.empty()) writeRebuilt(result.scenario, options.scenario);
        } catch (const NothingToReplay& error) {
            fprintf(stderr, "bootvigil-lab: %s\n", text::printable(error.what()).c_str());
        }
    }
    return !same ? kFailed : replayed < options.folders.size() ? kNothingToReplay : 0;
}

}  // namespace

void addReplay(CommandLine& line) {
    const auto options = std::make_shared<Options>();
    line.add("replay", "boot today's daemon on what devices recorded")
            .arguments("folder", options->folders, "copies of devices' persistent partitions")
            .text("--profile", options->profile,
                  "the device's boot profile, if it was pulled; for a single folder")
            .text("--scenario", options->scenario,
                  "write the rebuilt boot to this file, for `run`; for a single folder")
            .exits({{0, "everything that is known is the same"},
                    {kFailed, "something differs"},
                    {CommandLine::kWrongUsage, "wrong usage"},
                    {kNothingToReplay, "nothing differs, but a folder has nothing to replay"}})
            .does([options] { return replayRecords(*options); });
}

}  // namespace lab
