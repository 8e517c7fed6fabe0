// SPDX-License-Identifier: Apache-2.0
// bootvigil-lab: runs scenarios of simulated devices, and replays what a real one recorded.

#include <stdio.h>
#include <unistd.h>

#include <exception>

#include "common/text/Printable.h"
#include "lab/commands/Commands.h"

int main(int argc, char** argv) {
    using namespace lab;
    close_range(STDERR_FILENO + 1, ~0U, 0);  // the caller's would count as the daemon's
    try {
        CommandLine line("Boots the daemon on simulated devices, in virtual time.");
        for (auto* const add : {addRun, addList, addSagas, addReplay, addAttribution, addFleet})
            add(line);
        return line.run(argc, argv);
    } catch (const std::exception& error) {
        fprintf(stderr, "bootvigil-lab: %s\n", text::printable(error.what()).c_str());
        return kFailed;
    }
}
