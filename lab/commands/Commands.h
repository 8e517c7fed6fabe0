// SPDX-License-Identifier: Apache-2.0
// The commands of bootvigil-lab. Each adds itself, with its options, to the program's command line.

#pragma once

#include <functional>
#include <string>

#include "lab/commands/CommandLine.h"
#include "lab/device/Cage.h"

namespace lab {

// Exit status of every command where what was expected or recorded does not hold, or nothing could
// be run. `sagas` and `replay` have more.
constexpr int kFailed = 1;

// Adds the options of every command that boots.
void addCageOptions(Command& command, CageOptions& options);

void addRun(CommandLine& line);
void addList(CommandLine& line);
void addSagas(CommandLine& line);
void addReplay(CommandLine& line);
void addAttribution(CommandLine& line);
void addFleet(CommandLine& line);

}  // namespace lab
