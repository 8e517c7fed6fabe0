// SPDX-License-Identifier: Apache-2.0
// `bootvigil-lab sagas`: runs random scenarios under faults against the rules.

#include <memory>
#include <string>

#include "lab/commands/Commands.h"
#include "lab/random/Sagas.h"

namespace lab {

void addSagas(CommandLine& line) {
    const auto order = std::make_shared<SagaOrder>();
    const auto boots = std::make_shared<std::string>("all");
    order->folder = ".";
    line.add("sagas", "run random scenarios under faults and check what must always hold")
            .number("--seed", order->seed, "of the first scenario")
            .number("--count", order->count, "how many scenarios")
            .count("--jobs", order->jobs, 256, "processes")
            .flag("--until-broken", order->untilBroken,
                  "start no scenario after the first broken rule")
            .choice("--boots", *boots, {"all", "healthy", "stalled"}, "which kinds of boots")
            .text("--out", order->folder, "where a scenario that breaks a rule is written")
            .exits({{0, "every rule held"},
                    {kSagaNotRun, "no rule was broken, but a scenario could not be run"},
                    {CommandLine::kWrongUsage, "wrong usage"},
                    {kSagaCrash, "a boot crashed as nothing allows"},
                    {kSagaLiveness, "a boot did not do what was due"},
                    {kSagaRule, "a boot did what it must not"},
                    {kSagaDifferent, "a second run of a scenario differed"}})
            .does([order, boots] {
                if (*boots == "healthy") order->boots = Boots::HEALTHY;
                if (*boots == "stalled") order->boots = Boots::STALLED;
                return runSagas(*order);
            });
}

}  // namespace lab
