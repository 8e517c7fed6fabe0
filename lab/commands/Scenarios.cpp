// SPDX-License-Identifier: Apache-2.0
// The shipped scenarios, by name.

#include "lab/commands/Scenarios.h"

#include <algorithm>
#include <filesystem>
#include <stdexcept>

#include "lab/base/DataFolder.h"
#include "lab/base/Files.h"
#include "lab/base/Nearest.h"
#include "lab/base/Text.h"

namespace lab {

std::vector<std::string> shippedScenarios() {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(dataPath("scenarios"))) {
        names.push_back(entry.path().stem());
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::string scenarioFile(const std::string& pathOrName) {
    if (contains(pathOrName, "/") || fileExists(pathOrName)) return pathOrName;
    const std::vector<std::string> names = shippedScenarios();
    if (std::find(names.begin(), names.end(), pathOrName) == names.end()) {
        throw std::runtime_error(pathOrName + ": no file, and no shipped scenario of that name" +
                                 didYouMean(pathOrName, names));
    }
    return dataPath("scenarios/" + pathOrName + ".yaml");
}

}  // namespace lab
