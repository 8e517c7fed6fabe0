// SPDX-License-Identifier: Apache-2.0
// bootvigil-lab: runs scenarios of simulated devices, and replays what a real one recorded.

#include <stdio.h>

#include <exception>

#include <CLI/CLI.hpp>

#include "lab/commands/Commands.h"
#include "lab/device/DeviceRoot.h"

int main(int argc, char** argv) {
    using namespace lab;
    try {
        requireDeviceRoot(argv);
        CLI::App app("Boots the daemon on simulated devices, in virtual time.");
        app.require_subcommand(1);
        int status = 0;
        for (auto* const add : {addRun, addList, addSagas, addReplay, addAttribution}) {
            add(app, status);
        }
        try {
            app.parse(argc, argv);
        } catch (const CLI::ParseError& error) {
            return app.exit(error) == 0 ? 0 : kWrongUsage;
        }
        return status;
    } catch (const std::exception& error) {
        fprintf(stderr, "bootvigil-lab: %s\n", error.what());
        return kFailed;
    }
}
