// SPDX-License-Identifier: Apache-2.0
// A scenario: a device, the boots it goes through, and what must come out; read from YAML.

#include "lab/scenario/Scenario.h"

#include <stdexcept>

#include "common/text/Printable.h"
#include "lab/base/Files.h"
#include "lab/scenario/Checks.h"
#include "lab/scenario/ScenarioFields.h"
#include "lab/scenario/YamlBounds.h"

namespace lab {

namespace {

constexpr size_t kMostWarnings = 20;

std::string placed(const std::string& path, const YAML::Mark& mark, const std::string& text) {
    return path + ":" + std::to_string(mark.line + 1) + ":" + std::to_string(mark.column + 1) +
           ": " + text::printable(text);
}

}  // namespace

Scenario readScenario(const std::string& path) {
    Scenario scenario;
    scenario.path = path;
    try {
        const std::string text = readFile(path, kMostYaml);
        checkYamlBounds(text);
        const YAML::Node node = YAML::Load(text);
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
    } catch (const YAML::ParserException& error) {
        throw std::runtime_error(placed(path, error.mark, "expected YAML: " + error.msg));
    } catch (const YAML::Exception& error) {
        throw std::runtime_error(placed(path, error.mark, error.msg));
    }
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
