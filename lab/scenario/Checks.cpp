// SPDX-License-Identifier: Apache-2.0
// What must hold of a scenario beyond its single fields: what needs another field, and what can be
// held and run at all.

#include "lab/scenario/Checks.h"

#include <algorithm>
#include <numeric>

#include "lab/base/DevicePaths.h"
#include "lab/base/Nearest.h"
#include "lab/base/Text.h"

namespace lab {

using fields::fail;
using fields::Node;

namespace {

constexpr int64_t kMostBoots = 10000;
constexpr int64_t kMostEvents = 200000;  // of all boot profiles, repeated ones counted each time

// From the year 1 until a year before 10000, which the texts of a date have no room for.
constexpr int64_t kFirstDate = -62135596800, kLastDate = 253370764800;

// What the daemon reads, and what it writes and the platform reads.
const std::vector<std::string> kProperties = {
        "init.svc.kel",
        "init.svc.kelvservice",
        "persist.sys.bootvigil.debug",
        "persist.sys.bootvigil.debug.startbootvigil",
        "persist.sys.enable_rescue",
        "persist.sys.oobe",
        "persist.sys.oobe_country",
        "ro.boot.mode",
        "ro.bootvigil.budget_boots",
        "ro.bootvigil.budget_dir",
        "ro.bootvigil.budget_hours",
        "ro.bootvigil.reboot_wait",
        "ro.bootvigil.reboots",
        "ro.bootvigil.reset_wait",
        "ro.bootvigil.resets",
        "ro.build.date.utc",
        "ro.vela.bfRecovery.support",
        "service.bootanim.exit",
        "sys.boot.reason",
        "sys.boot_completed",
        "sys.vela.BOOT_COMPLETED",
        "sys.vela.boot_fail_reason",
        kRebootRequest,
        kResetRequest,
};

// Null where there is none, as in what is no map.
Node childOf(const Node& node, const char* key) {
    const Node child = node.IsMap() ? node[key] : Node();
    return child.IsDefined() ? child : Node();
}

// Of a number that may not be one; the fields say so later.
int64_t timesOf(const Node& node) {
    return std::clamp<int64_t>(childOf(node, "times").as<int64_t>(1), 0, kMostEvents + 1);
}

void checkChanges(const Scenario& scenario, const Node& changes) {
    for (const Node& change : changes) {
        const Node fill = childOf(change, "fill");
        const Node readOnly = childOf(change, "read_only");
        if (fill.IsScalar() &&
            (!scenario.partitionSize || !startsWith(fill.Scalar(), kPartition + "/"))) {
            fail(fill, "expected a path below /velafs, where the device's 'partition' has a size");
        }
        if (readOnly.IsScalar() && (!scenario.partitionSize || readOnly.Scalar() != kPartition)) {
            fail(readOnly, "expected /velafs, where the device's 'partition' has a size");
        }
    }
}

// Where the clock's jumps would leave the dates that there are.
void checkDates(const Scenario& scenario, const Node& boots) {
    int64_t clock = scenario.clock;
    for (size_t i = 0; i < scenario.boots.size(); ++i) {
        clock = scenario.boots[i].clock.value_or(clock);
        for (const Change& change : scenario.boots[i].changes) {
            if (change.kind != Change::Kind::CLOCK) continue;
            clock += change.number;
            if (clock < kFirstDate || clock > kLastDate) {
                fail(boots[i]["changes"], "expected clocks that end up in the years 1 to 9998");
            }
        }
    }
}

void checkLogs(const Scenario& scenario, const Node& logs) {
    const auto& sizes = scenario.logSizes;
    const int64_t all =
            std::accumulate(sizes.begin(), sizes.end(), int64_t{0},
                            [](int64_t sum, const auto& log) { return sum + log.second; });
    if (all > kMostLogs) {
        fail(logs,
             "expected log buffers of at most " + std::to_string(kMostLogs) + " bytes in all");
    }
    const bool limited = scenario.partitionSize ||
                         std::all_of(scenario.boots.begin(), scenario.boots.end(),
                                     [](const Boot& boot) { return boot.space.has_value(); });
    if (!scenario.endlessLogs.empty() && !limited) {
        fail(logs, "expected 'space' in each boot or a 'partition' of a size, as a log is endless");
    }
}

}  // namespace

void checkAmounts(const Node& node) {
    const Node boots = childOf(node, "boots");
    if (!boots.IsSequence()) return;
    if (boots.size() > kMostBoots) {
        fail(boots, "expected at most " + std::to_string(kMostBoots) + " boots");
    }
    const int64_t healthy = static_cast<int64_t>(ProfileScript::healthy().events().size());
    int64_t events = 0;
    for (const Node& boot : boots) {
        const Node profile = childOf(boot, "profile");
        const Node loop = childOf(profile, "loop");
        if (loop.IsMap()) events += healthy * timesOf(loop);
        const Node list = childOf(profile, "events");
        for (const Node& event : list) events += timesOf(event);
        if (events > kMostEvents) {
            fail(profile, "expected at most " + std::to_string(kMostEvents) +
                                  " events in all profiles, with repetitions");
        }
    }
}

void checkScenario(const Scenario& scenario, const Node& node) {
    if (scenario.boots.empty()) fail(node, "expected 'boots', a list of at least one");
    const Node boots = node["boots"];
    for (size_t i = 0; i < scenario.boots.size(); ++i) {
        // A mounted file system can't be moved away.
        if (scenario.boots[i].partitionAbsent &&
            (scenario.partitionSize || scenario.partitionAbsent)) {
            fail(boots[i]["partition"],
                 "expected no 'partition' of a boot where the device's is " +
                         std::string(scenario.partitionAbsent ? "absent"
                                                              : "a file system of its own"));
        }
        checkChanges(scenario, childOf(boots[i], "changes"));
    }
    checkDates(scenario, boots);
    checkLogs(scenario, childOf(childOf(node, "device"), "logs"));
}

std::vector<std::pair<YAML::Mark, std::string>> warningsOf(const Node& node) {
    static const std::vector<std::string> profiles = {kBootProfile, kVelaBootProfile, "absent"};
    std::vector<std::pair<YAML::Mark, std::string>> warnings;
    const auto check = [&](const Node& name, const std::string& what,
                           const std::vector<std::string>& known) {
        if (std::find(known.begin(), known.end(), name.Scalar()) != known.end()) return;
        warnings.emplace_back(name.Mark(), "nobody reads the " + what + " '" + name.Scalar() + "'" +
                                                   didYouMean(name.Scalar(), known));
    };
    const auto checkAll = [&](const Node& properties) {
        for (const auto& property : properties) check(property.first, "property", kProperties);
    };
    checkAll(childOf(childOf(node, "device"), "properties"));
    for (const Node& boot : childOf(node, "boots")) {
        checkAll(childOf(boot, "properties"));
        for (const Node& change : childOf(boot, "changes")) checkAll(childOf(change, "set"));
        const Node path = childOf(childOf(boot, "profile"), "path");
        if (path.IsScalar()) check(path, "boot profile", profiles);
    }
    return warnings;
}

}  // namespace lab
