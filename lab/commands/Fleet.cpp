// SPDX-License-Identifier: Apache-2.0
// `bootvigil-lab fleet`: makes the partitions of a simulated fleet.

#include "lab/fleet/Fleet.h"

#include <stdio.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>

#include "common/text/Printable.h"
#include "lab/commands/Commands.h"
#include "lab/scenario/ProfileScript.h"

namespace lab {

namespace {

struct Options : FleetOrder {
    std::string plant;
};

int wrongUsage(const std::string& what) {
    fprintf(stderr, "bootvigil-lab: %s\n", text::printable(what).c_str());
    return CommandLine::kWrongUsage;
}

int makeFleetOf(Options& options) {
    namespace fs = std::filesystem;
    std::error_code error;
    if (options.out.empty()) return wrongUsage("fleet needs --out, a folder for the devices");
    if (fs::exists(options.out, error) &&
        !(fs::is_directory(options.out, error) && fs::is_empty(options.out, error))) {
        return wrongUsage(options.out + ": cannot write a fleet here: it is no empty folder");
    }
    ProfileScript::healthy();  // is read from a file
    try {
        if (!options.plant.empty()) options.regressions = readRegressions(options.plant);
    } catch (const std::runtime_error& failed) {
        return wrongUsage(failed.what());
    }
    try {
        return makeFleet(options);
    } catch (const std::invalid_argument& failed) {
        return wrongUsage(options.plant + ": " + failed.what());
    }
}

}  // namespace

void addFleet(CommandLine& line) {
    const auto options = std::make_shared<Options>();
    options->jobs = std::max(1, static_cast<int>(std::thread::hardware_concurrency()));
    Command& command = line.add("fleet", "make the partitions of a simulated fleet");
    command.count("--devices", options->devices, 10000000, "how many devices")
            .number("--seed", options->seed, "of everything that is drawn")
            .text("--out", options->out, "the folder to write to (missing or empty)")
            .text("--plant", options->plant, "a YAML file of regressions to put into it")
            .count("--jobs", options->jobs, 256, "processes; by default one per core")
            .exits({{0, "the fleet is there"},
                    {kFleetBroken, "a boot broke a rule or could not be run"},
                    {CommandLine::kWrongUsage, "wrong usage, or the YAML file can't be read"},
                    {kLabFailed, "the lab failed"}});
    addCageOptions(command, options->cage);
    command.does([options] { return makeFleetOf(*options); });
}

}  // namespace lab
