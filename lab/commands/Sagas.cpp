// SPDX-License-Identifier: Apache-2.0
// `bootvigil-lab sagas`: runs random scenarios under faults against the rules.

#include "lab/random/Sagas.h"

#include <memory>
#include <string>

#include "lab/commands/Commands.h"
#include "lab/scenario/ProfileScript.h"

namespace lab {

namespace {

struct Options : SagaOrder {
    std::string which = "all";
    std::string around = kPlatformNames[0];
    CageOptions cage;
};

int searchScenarios(Options& options) {
    if (options.which == "healthy") options.boots = Boots::HEALTHY;
    if (options.which == "stalled") options.boots = Boots::STALLED;
    if (options.around == kPlatformNames[1]) options.platform = PlatformKind::REFERENCE;
    ProfileScript::healthy();  // is read from a file
    Cage cage(options.cage, options.jobs);
    const int status =
            cage.run([&](const std::string& folder) { return runSagas(options, folder); });
    return orLabFailed([&] {
        cage.copyOut("out", options.out);
        return status;
    });
}

}  // namespace

void addSagas(CommandLine& line) {
    const auto options = std::make_shared<Options>();
    options->out = ".";
    Command& command =
            line.add("sagas", "run random scenarios under faults and check what must always hold");
    command.number("--seed", options->seed, "of the first scenario")
            .number("--count", options->count, "how many scenarios")
            .count("--jobs", options->jobs, 256, "processes")
            .flag("--until-broken", options->untilBroken,
                  "start no scenario after the first broken rule")
            .choice("--boots", options->which, {"all", "healthy", "stalled"},
                    "which kinds of boots")
            .choice("--platform", options->around, {kPlatformNames[0], kPlatformNames[1]},
                    "what runs around the daemon")
            .text("--out", options->out, "where a scenario that breaks a rule is written")
            .exits({{0, "every rule held"},
                    {kSagaNotRun, "no rule was broken, but a scenario could not be run"},
                    {CommandLine::kWrongUsage, "wrong usage"},
                    {kLabFailed, "the lab failed"},
                    {kSagaCrash, "a boot crashed as nothing allows"},
                    {kSagaLiveness, "a boot did not do what was due"},
                    {kSagaRule, "a boot did what it must not"},
                    {kSagaDifferent, "a second run of a scenario differed"}});
    addCageOptions(command, options->cage);
    command.does([options] { return searchScenarios(*options); });
}

}  // namespace lab
