// SPDX-License-Identifier: Apache-2.0
// Boots a scenario's first boot again and again in one device root, checked against the rules as
// in a run, and prints how fast.

#include <stdio.h>
#include <stdlib.h>

#include <chrono>
#include <exception>
#include <vector>

#include "lab/base/Files.h"
#include "lab/device/DeviceRoot.h"
#include "lab/run/ScenarioRun.h"
#include "lab/scenario/Scenario.h"

int main(int argc, char** argv) {
    if (argc != 4) {
        fprintf(stderr, "usage: %s SCENARIO.yaml BOOTS FOLDER\n", argv[0]);
        return 2;
    }
    try {
        lab::requireDeviceRoot(argv);
        lab::Scenario scenario = lab::readScenario(argv[1]);
        const lab::Boot boot = scenario.boots.front();
        scenario.boots.assign(static_cast<size_t>(atol(argv[2])), boot);
        lab::makeFolders(argv[3]);
        lab::ScenarioRun run(scenario, argv[3], lab::Keep::TRACE);
        const auto started = std::chrono::steady_clock::now();
        run.run();
        const std::chrono::duration<double> real = std::chrono::steady_clock::now() - started;
        double virtualSeconds = 0;
        for (const lab::BootOutcome& outcome : run.outcomes()) {
            virtualSeconds += static_cast<double>(outcome.endedAt) / 1000;
        }
        printf("{\"boots\": %zu, \"seconds\": %.6f, \"virtual_seconds\": %.3f}\n",
               run.outcomes().size(), real.count(), virtualSeconds);
    } catch (const std::exception& error) {
        fprintf(stderr, "%s: %s\n", argv[0], error.what());
        return 1;
    }
}
