// SPDX-License-Identifier: Apache-2.0
// Regressions that are planted in a simulated fleet, read from YAML.

#include "lab/fleet/Regression.h"

#include <algorithm>
#include <stdexcept>

#include "lab/fleet/Market.h"
#include "lab/rules/Milestones.h"
#include "lab/scenario/Fields.h"
#include "lab/scenario/ProfileScript.h"
#include "lab/scenario/YamlFile.h"

namespace lab {

using namespace fields;

namespace {

constexpr int64_t kMostDevices = 10000000;
using Names = std::vector<std::string>;

struct Plan {
    std::string about;
    std::vector<Regression> regressions;
};

Type<std::string> nameAmong(const Names& names, std::string what = "") {
    for (const std::string& name : what.empty() ? names : Names()) {
        what += (what.empty() ? "one of " : ", ") + name;
    }
    return {what,
            [=](const Node& node) {
                const auto found = std::find(names.begin(), names.end(), node.Scalar());
                return found == names.end() ? std::nullopt : std::optional(*found);
            },
            [](const std::string& name) { return Node(name); },
            {},
            names};
}

template <typename List, typename Member>
Names namesOf(const List& list, Member member) {
    Names names;
    for (const auto& each : list) names.push_back(each.*member);
    return names;
}

void requireOne(bool first, bool second, const char* what) {
    if (first == second) throw std::invalid_argument(std::string("expected ") + what);
}

Fields<Regression> regressionFields() {
    Fields<Regression> fields("a regression");
    fields.add("about", &Regression::about, kText, "a line about it");
    fields.add("software", &Regression::software, nameAmong(namesOf(kReleases, &Release::software)),
               "a software version; the first that has it, by default all have");
    fields.add("country", &Regression::country, nameAmong(namesOf(kCountries, &Share::name)),
               "a country; by default all");
    fields.add("model", &Regression::model, nameAmong(namesOf(kModels, &Share::name)),
               "a model; by default all");
    fields.add("one_in", &Regression::oneIn, whole(1, kMostDevices),
               "a number; each of so many matching devices has it once");
    fields.add("devices", &Regression::devices, whole(1, kMostDevices),
               "a number of devices; instead: exactly so many matching ones have it once");
    fields.add("hang", &Regression::hang,
               nameAmong(namesOf(ProfileScript::healthy().events(), &ProfileScript::Event::name),
                         "an event's name"),
               "an event of `lab/data/profiles/healthy.txt`; the last that comes");
    fields.add("loop", &Regression::loop, nameAmong(kMilestones, "a milestone's name"),
               "a milestone; instead: the device starts again and again after it");
    fields.add("cured_by", &Regression::curedBy, choice<Cure>(kCureNames),
               "what cures it; by default drawn as for any other failure");
    fields.atLast([](Regression& regression, const Node&) {
        requireOne(regression.oneIn.has_value(), regression.devices.has_value(),
                   "either 'one_in' or 'devices'");
        requireOne(regression.hang.empty(), regression.loop.empty(), "either 'hang' or 'loop'");
    });
    return fields;
}

const Fields<Plan>& planFields() {
    static const Fields<Plan> fields = [] {
        Fields<Plan> plan("a plan");
        plan.add("about", &Plan::about, kText, "a line about it");
        plan.add("regressions", &Plan::regressions, listOf(regressionFields().type()),
                 "a list of regressions; at least one, 32 at the most");
        plan.atLast([](Plan& read, const Node&) {
            if (read.regressions.empty() || read.regressions.size() > kMostRegressions) {
                throw std::invalid_argument("expected 'regressions', a list of 1 to " +
                                            std::to_string(kMostRegressions));
            }
        });
        return plan;
    }();
    return fields;
}

}  // namespace

std::vector<Regression> readRegressions(const std::string& path) {
    Plan plan;
    readYaml(path, [&](const Node& node) { planFields().read(node, plan); });
    return plan.regressions;
}

std::string regressionReference() {
    Tables tables;
    planFields().document(tables);
    std::string text;
    for (const std::string& table : tables) text += (text.empty() ? "" : "\n") + table;
    return text;
}

}  // namespace lab
