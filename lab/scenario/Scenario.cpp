// SPDX-License-Identifier: Apache-2.0
// A scenario: a device, the boots it goes through, and what must come out; read from YAML.

#include "lab/scenario/Scenario.h"

#include <stdexcept>

#include "lab/base/Files.h"
#include "lab/scenario/Checks.h"
#include "lab/scenario/ScenarioFields.h"
#include "lab/scenario/YamlFile.h"

namespace lab {

namespace {

constexpr size_t kMostWarnings = 20;

}  // namespace

Scenario readScenario(const std::string& path) {
    Scenario scenario;
    scenario.path = path;
    readYaml(path, [&](const YAML::Node& node) {
        checkAmounts(node);
        scenarioFields().read(node, scenario);
        const auto warnings = warningsOf(node);
        for (const auto& [mark, warning] : warnings) {
            scenario.warnings.push_back(placed(path, mark, "warning: " + warning));
            if (scenario.warnings.size() < kMostWarnings) continue;
            scenario.warnings.push_back(path + ": " + std::to_string(warnings.size()) +
                                        " warnings, of which these are the first");
            break;
        }
    });
    return scenario;
}

void writeScenario(const Scenario& scenario, const std::string& path) {
    writeFile(path, YAML::Dump(scenarioFields().write(scenario)) + "\n");
}

std::vector<Omission> omissionsOf(const Scenario& scenario) {
    const YAML::Node whole = scenarioFields().write(scenario);
    const size_t size = YAML::Dump(whole).size();
    std::vector<Omission> omissions;
    for (const fields::Shorter& shorter : fields::shorterThan(whole)) {
        omissions.push_back([=](Scenario& changed) {
            changed = Scenario();
            scenarioFields().read(shorter(), changed);
            // What is left out may stand for more than it says.
            return YAML::Dump(scenarioFields().write(changed)).size() < size;
        });
    }
    return omissions;
}

std::string scenarioReference() {
    fields::Tables tables;
    scenarioFields().document(tables);
    std::string text;
    for (const std::string& table : tables) text += (text.empty() ? "" : "\n") + table;
    return text;
}

}  // namespace lab
