// SPDX-License-Identifier: Apache-2.0
// `bootvigil-lab sagas`: runs random scenarios under faults against the rules.

#include <memory>
#include <string>

#include <CLI/CLI.hpp>

#include "lab/commands/Commands.h"
#include "lab/random/Sagas.h"

namespace lab {

void addSagas(CLI::App& app, int& status) {
    CLI::App* command =
            app.add_subcommand("sagas",
                               "run random scenarios under faults and check what must always hold");
    const auto order = std::make_shared<SagaOrder>();
    const auto boots = std::make_shared<std::string>("all");
    order->folder = ".";
    command->add_option("--seed", order->seed, "of the first scenario")->capture_default_str();
    command->add_option("--count", order->count, "how many scenarios")->required();
    command->add_option("--jobs", order->jobs, "processes")
            ->check(CLI::Range(1, 256))
            ->capture_default_str();
    command->add_flag("--until-broken", order->untilBroken,
                      "start no scenario after the first broken rule");
    command->add_option("--boots", *boots, "all kinds, or only 'healthy' or 'stalled' ones")
            ->check(CLI::IsMember({"all", "healthy", "stalled"}))
            ->capture_default_str();
    command->add_option("--out", order->folder, "where a scenario that breaks a rule is written")
            ->capture_default_str();
    command->callback([order, boots, &status] {
        if (*boots == "healthy") order->boots = Boots::HEALTHY;
        if (*boots == "stalled") order->boots = Boots::STALLED;
        status = runSagas(*order);
    });
}

}  // namespace lab
