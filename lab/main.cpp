// SPDX-License-Identifier: Apache-2.0
// bootvigil-lab: runs scenarios of simulated devices, and replays what a real one recorded.

#include <stdio.h>

#include <exception>

#include "lab/commands/Commands.h"

int main(int argc, char** argv) {
    using namespace lab;
    try {
        CommandLine line("Boots the daemon on simulated devices, in virtual time.");
        for (auto* const add : {addRun, addList, addSagas, addReplay, addAttribution}) add(line);
        return line.run(argc, argv);
    } catch (const std::exception& error) {
        fprintf(stderr, "bootvigil-lab: %s\n", error.what());
        return kFailed;
    }
}
