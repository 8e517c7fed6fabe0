// SPDX-License-Identifier: Apache-2.0
// The options of every command that boots.

#include "lab/commands/Commands.h"

namespace lab {

void addCageOptions(Command& command, CageOptions& options) {
    command.count("--cage-size", options.megabytes, 1 << 20, "MiB of files that boots may have")
            .flag("--no-cage", options.none,
                  "as root, boot where a scenario can reach this machine's files and processes")
            .count("--boot-limit", options.bootSeconds, 1 << 20,
                   "seconds of real time that a boot may take");
}

}  // namespace lab
