// SPDX-License-Identifier: Apache-2.0
// The commands of bootvigil-lab. Each adds itself with its options to the program's command line;
// when it is called it leaves its exit status in `status`, or throws std::exception.

#pragma once

namespace CLI {
class App;
}

namespace lab {

// Exit statuses of every command, beside 0. `sagas` has more: see lab/random/Judge.h.
constexpr int kFailed = 1;  // what was expected or recorded does not hold, or nothing can be run
constexpr int kWrongUsage = 2;

void addRun(CLI::App& app, int& status);
void addList(CLI::App& app, int& status);
void addSagas(CLI::App& app, int& status);
void addReplay(CLI::App& app, int& status);
void addAttribution(CLI::App& app, int& status);

}  // namespace lab
