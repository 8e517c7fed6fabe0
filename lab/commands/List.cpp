// SPDX-License-Identifier: Apache-2.0
// `bootvigil-lab list`: one line per shipped scenario.

#include <stdio.h>

#include "lab/base/DataFolder.h"
#include "lab/commands/Commands.h"
#include "lab/commands/Scenarios.h"
#include "lab/scenario/Scenario.h"

namespace lab {

namespace {

int listScenarios() {
    for (const std::string& name : shippedScenarios()) {
        printf("%-28s %s\n", name.c_str(),
               readScenario(dataPath("scenarios/" + name + ".yaml")).about.c_str());
    }
    printf("\n`run` takes these names; the files are in %s\n", dataPath("scenarios").c_str());
    return 0;
}

}  // namespace

void addList(CommandLine& line) {
    line.add("list", "list the shipped scenarios")
            .exits({{0, "all are listed"},
                    {kFailed, "a scenario can't be read"},
                    {CommandLine::kWrongUsage, "wrong usage"}})
            .does(listScenarios);
}

}  // namespace lab
