// SPDX-License-Identifier: Apache-2.0
// `bootvigil-lab list`: one line per shipped scenario.

#include <stdio.h>

#include <algorithm>
#include <filesystem>
#include <vector>

#include "common/text/Printable.h"
#include "lab/base/DataFolder.h"
#include "lab/commands/Commands.h"
#include "lab/scenario/Scenario.h"

namespace lab {

namespace {

int listScenarios() {
    const std::string folder = dataPath("scenarios");
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    for (const std::filesystem::path& file : files) {
        printf("%-28s %s\n", file.stem().c_str(),
               text::printable(readScenario(file).about).c_str());
    }
    printf("\nthey are in %s\n", folder.c_str());
    return 0;
}

}  // namespace

void addList(CommandLine& line) {
    line.add("list", "list the shipped scenarios").does(listScenarios);
}

}  // namespace lab
