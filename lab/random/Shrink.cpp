// SPDX-License-Identifier: Apache-2.0
// Makes a scenario shorter as long as what it shows remains.

#include "lab/random/Shrink.h"

#include <algorithm>
#include <iterator>
#include <stdexcept>
#include <utility>
#include <vector>

namespace lab {

namespace {

// The parts of a scenario that may be left out, each as a change of it; false when it has no such
// part any more.
using Omission = std::function<bool(Scenario&)>;

template <typename Member>
void omitElements(std::vector<Omission>& omissions, size_t count, Member member) {
    // In halves, quarters and so on, then one by one.
    for (size_t size = count; size > 0; size /= 2) {
        for (size_t from = 0; from < count; from += size) {
            omissions.push_back([=](Scenario& scenario) {
                auto& list = member(scenario);
                if (list.size() != count) return false;
                auto first = std::next(list.begin(), static_cast<long>(from));
                list.erase(first,
                           std::next(first, static_cast<long>(std::min(size, count - from))));
                return true;
            });
        }
    }
}

std::vector<Omission> omissionsOf(const Scenario& scenario) {
    std::vector<Omission> list;
    omitElements(
            list, scenario.boots.size(), [](Scenario & s) -> auto& { return s.boots; });
    omitElements(
            list, scenario.files.size(), [](Scenario & s) -> auto& { return s.files; });
    omitElements(
            list, scenario.properties.size(), [](Scenario & s) -> auto& { return s.properties; });
    list.push_back([](Scenario& s) { return std::exchange(s.partitionSize, {}).has_value(); });
    list.push_back([](Scenario& s) { return !std::exchange(s.endlessLogs, {}).empty(); });
    list.push_back([](Scenario& s) { return !std::exchange(s.nulLogs, {}).empty(); });
    for (size_t b = 0; b < scenario.boots.size(); ++b) {
        const Boot& boot = scenario.boots[b];
        omitElements(
                list, boot.faults.size(), [b](Scenario & s) -> auto& { return s.boots[b].faults; });
        // The last change ends the boot.
        if (boot.changes.size() > 1) {
            for (size_t i = 0; i + 1 < boot.changes.size(); ++i) {
                list.push_back([b, i, count = boot.changes.size()](Scenario& s) {
                    auto& changes = s.boots[b].changes;
                    if (changes.size() != count) return false;
                    changes.erase(changes.begin() + static_cast<long>(i));
                    return true;
                });
            }
        }
        omitElements(
                list, boot.properties.size(), [b](Scenario & s) -> auto& {
                    return s.boots[b].properties;
                });
        omitElements(
                list, boot.files.size(), [b](Scenario & s) -> auto& { return s.boots[b].files; });
        list.push_back(
                [b](Scenario& s) { return std::exchange(s.boots[b].partitionAbsent, false); });
        list.push_back(
                [b](Scenario& s) { return std::exchange(s.boots[b].space, {}).has_value(); });
        list.push_back(
                [b](Scenario& s) { return std::exchange(s.boots[b].cutAfter, {}).has_value(); });
        list.push_back([b](Scenario& s) {
            return std::exchange(s.boots[b].unsynced, Unsynced::KEPT) != Unsynced::KEPT;
        });
        list.push_back([b](Scenario& s) {
            return std::exchange(s.boots[b].kelAnswersAfter, {}).has_value();
        });
        if (!boot.profileText) {
            omitElements(
                    list, boot.profile.events().size(), [b](Scenario & s) -> auto& {
                        return s.boots[b].profile.events();
                    });
        }
    }
    return list;
}

// What prints without end must run out of room, or a boot never ends.
bool ends(const Scenario& scenario) {
    return scenario.endlessLogs.empty() ||
           std::all_of(scenario.boots.begin(), scenario.boots.end(),
                       [](const Boot& boot) { return boot.space.has_value(); });
}

}  // namespace

Scenario shrink(Scenario scenario, const std::function<bool(const Scenario&)>& stillShows) {
    const auto canGo = [&](const Omission& omit, Scenario& candidate) {
        try {
            return omit(candidate) && !candidate.boots.empty() && ends(candidate) &&
                   stillShows(candidate);
        } catch (const std::runtime_error&) {
            return false;
        }
    };
    for (bool shorter = true; shorter;) {
        shorter = false;
        for (const Omission& omit : omissionsOf(scenario)) {
            Scenario candidate = scenario;
            if (!canGo(omit, candidate)) continue;
            scenario = std::move(candidate);
            shorter = true;
            break;
        }
    }
    return scenario;
}

}  // namespace lab
