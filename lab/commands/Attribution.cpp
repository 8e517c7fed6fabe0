// SPDX-License-Identifier: Apache-2.0
// `bootvigil-lab attribution`: counts how often the daemon names what hangs.

#include "lab/random/Attribution.h"

#include <stdint.h>
#include <stdio.h>

#include <algorithm>
#include <memory>
#include <string>
#include <thread>

#include "lab/commands/Commands.h"
#include "lab/scenario/ProfileScript.h"

namespace lab {

namespace {

struct Options : AttributionOrder {
    CageOptions cage;
};

int printAttribution(const Options& options) {
    ProfileScript::healthy();  // is read from a file
    return Cage(options.cage, options.jobs).run([&](const std::string& folder) {
        for (const std::string& line : measureAttribution(options, folder)) {
            printf("%s\n", line.c_str());
        }
        return 0;
    });
}

}  // namespace

void addAttribution(CommandLine& line) {
    const auto options = std::make_shared<Options>();
    options->jobs = std::max(1, static_cast<int>(std::thread::hardware_concurrency()));
    Command& command =
            line.add("attribution",
                     "count how often the daemon names what hangs, and acts on a slow boot");
    command.number("--seed", options->seed, "of the boots")
            .count("--count", options->count, 1000000, "of stalls, and of slow boots")
            .count("--jobs", options->jobs, 1000000, "processes at a time; by default one per core")
            .flag("--markdown", options->markdown, "print the tables as Markdown")
            .exits({{0, "every boot was run"},
                    {kFailed, "a boot could not be run"},
                    {CommandLine::kWrongUsage, "wrong usage"},
                    {kLabFailed, "the lab failed"}});
    addCageOptions(command, options->cage);
    command.does([options] { return printAttribution(*options); });
}

}  // namespace lab
