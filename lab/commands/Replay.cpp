// SPDX-License-Identifier: Apache-2.0
// `bootvigil-lab replay`: boots today's daemon on what a device recorded.

#include "lab/replay/Replay.h"

#include <stdio.h>

#include <memory>
#include <string>

#include "lab/commands/Commands.h"

namespace lab {

namespace {

struct Options {
    std::string folder;
    std::string profile;  // empty: none was pulled
    CageOptions cage;
};

int replayRecord(const Options& options) {
    const RebuiltRecord record = readRecord(options.folder, options.profile);
    return Cage(options.cage, 1).run([&](const std::string& folder) {
        const ReplayResult result = replay(record, folder);
        for (const std::string& line : describeReplay(result)) printf("%s\n", line.c_str());
        return result.agrees() ? 0 : kFailed;
    });
}

}  // namespace

void addReplay(CommandLine& line) {
    const auto options = std::make_shared<Options>();
    Command& command = line.add("replay", "boot today's daemon on what a device recorded");
    command.argument("folder", options->folder, "a copy of the device's persistent partition")
            .text("--profile", options->profile, "the device's boot profile, if it was pulled");
    addCageOptions(command, options->cage);
    command.does([options] { return replayRecord(*options); });
}

}  // namespace lab
