// SPDX-License-Identifier: Apache-2.0
// The life of one device of a simulated fleet, drawn from a seed.

#include "lab/fleet/Life.h"

#include <stdlib.h>

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "lab/base/DevicePaths.h"
#include "lab/base/Text.h"
#include "lab/fleet/Market.h"

namespace lab {

namespace {

// Streams of draws. A regression has two: whether it affects a device, and how.
enum Subject : uint64_t {
    IDENTITY,
    SOFTWARE,
    BOOTS,
    TROUBLES,
    PEOPLE,
    POWER,
    CLOCK,
    DAMAGE,
    REGRESSIONS
};
constexpr uint64_t kSubjects = REGRESSIONS + 2 * kMostRegressions;

constexpr int64_t kBootsPerTrouble = 2500;
constexpr int64_t kWorn = 30;        // times as many on a worn device, which is one in a hundred
constexpr time_t kApart = 7 * kDay;  // from one trouble to the next, at least
constexpr time_t kWrongClock = 1577836800;  // 2020-01-01 00:00:00 UTC, instead of kSeenFrom

size_t releaseOf(const std::string& software) {
    const auto found = std::find_if(kReleases.begin(), kReleases.end(),
                                    [&](const Release& each) { return each.software == software; });
    return static_cast<size_t>(found - kReleases.begin());
}

const std::string& softwareOf(const Identity& device, time_t at) {
    size_t newest = 0;
    for (size_t i = 0; i < kReleases.size(); ++i) {
        if (device.since[i] != 0 && device.since[i] <= at) newest = i;
    }
    return kReleases[newest].software;
}

bool matches(const Identity& device, const Regression& regression) {
    const auto isOf = [](const std::string& what, const std::string& wanted) {
        return wanted.empty() || what == wanted;
    };
    return isOf(device.country, regression.country) && isOf(device.model, regression.model) &&
           (regression.software.empty() ||
            releaseOf(device.software) >= releaseOf(regression.software));
}

}  // namespace

Lives::Lives(uint64_t seed, uint64_t devices, const std::vector<Regression>& regressions)
    : mSeed(seed), mRegressions(regressions), mChosen(regressions.size()) {
    for (size_t i = 0; i < regressions.size(); ++i) {
        if (!regressions[i].devices) continue;
        std::vector<std::pair<int64_t, uint64_t>> matching;  // in the order of a draw
        for (uint64_t number = 0; number < devices; ++number) {
            if (!matches(identity(number), regressions[i])) continue;
            matching.emplace_back(draw(number, REGRESSIONS + 2 * i).below(INT64_MAX), number);
        }
        const auto wanted = static_cast<size_t>(*regressions[i].devices);
        if (matching.size() < wanted) {
            throw std::invalid_argument(format("regression %zu wants %zu devices, and %zu match it",
                                               i + 1, wanted, matching.size()));
        }
        std::sort(matching.begin(), matching.end());
        mChosen[i].resize(devices);
        for (size_t j = 0; j < wanted; ++j) mChosen[i][matching[j].second] = true;
    }
}

QuickDraw Lives::draw(uint64_t number, uint64_t subject) const {
    return {mSeed, number * kSubjects + subject};
}

Identity Lives::identity(uint64_t number) const {
    QuickDraw draw = this->draw(number, IDENTITY);
    Identity device;
    device.serial = format("BV%07llu", static_cast<unsigned long long>(number) + 1);
    device.model = draw.weighted(kModels).name;
    device.country = draw.weighted(kCountries).name;
    device.pulled = kSeenUntil - draw.between(1, 7 * kDay);
    // Three in ten are sold while the fleet is seen.
    device.from = kSeenFrom + (draw.percent(70) ? 0 : draw.below(150 * kDay));

    QuickDraw updates = this->draw(number, SOFTWARE);
    device.since.resize(kReleases.size());
    size_t newest = 0;
    for (size_t i = 0; i < kReleases.size(); ++i) {
        const time_t out = kSeenFrom + kReleases[i].day * kDay;
        // A factory lags behind, and not everybody takes every update.
        const bool factory = out + 20 * kDay <= device.from;
        const time_t got = out + updates.below(40 * kDay);
        const bool taken = updates.percent(85) && got > device.since[newest] && got < device.pulled;
        if (!factory && !taken && i > 0) continue;
        device.since[i] = std::max(factory || i == 0 ? device.from : got, device.from);
        newest = i;
    }
    device.software = softwareOf(device, device.pulled);
    return device;
}

bool Lives::affects(uint64_t number, const Identity& device, size_t regression) const {
    const Regression& wanted = mRegressions[regression];
    if (wanted.devices) return mChosen[regression][number];
    return matches(device, wanted) &&
           draw(number, REGRESSIONS + 2 * regression).below(*wanted.oneIn) == 0;
}

Trouble Lives::troubleOf(size_t regression, uint64_t number, const Identity& device) const {
    QuickDraw draw = this->draw(number, REGRESSIONS + 2 * regression + 1);
    const Regression& wanted = mRegressions[regression];
    // The first release that has it, of those that the device got.
    auto since = device.since.begin();
    if (!wanted.software.empty()) since += static_cast<ptrdiff_t>(releaseOf(wanted.software));
    while (*since == 0) ++since;
    Trouble trouble;
    trouble.at = *since + draw.below(std::max<time_t>(device.pulled - *since - kDay, 1));
    trouble.kind = wanted.loop.empty() ? Trouble::Kind::HANG : Trouble::Kind::LOOP;
    trouble.event = wanted.loop.empty() ? wanted.hang : wanted.loop;
    trouble.cure = wanted.curedBy ? *wanted.curedBy : drawCure(draw);
    return trouble;
}

Life Lives::life(uint64_t number) const {
    Life life;
    life.identity = identity(number);
    Identity& device = life.identity;
    std::vector<Trouble>& troubles = life.troubles;
    for (size_t i = 0; i < mRegressions.size(); ++i) {
        if (!affects(number, device, i)) continue;
        life.regressions.push_back(i);
        troubles.push_back(troubleOf(i, number, device));
    }
    QuickDraw boots = draw(number, BOOTS), own = draw(number, TROUBLES);
    const int64_t odds = kBootsPerTrouble / (boots.percent(1) ? kWorn : 1);
    const int64_t usualGap = boots.between(6 * 3600, 4 * kDay);
    for (time_t at = device.from; (at += boots.between(60, 2 * usualGap)) < device.pulled;) {
        if (boots.below(odds) > 0) {
            ++life.goodBoots;
            continue;
        }
        const Trouble trouble = drawTrouble(own, at);
        const bool apart = std::all_of(troubles.begin(), troubles.end(), [&](const Trouble& other) {
            return std::abs(other.at - at) >= kApart;
        });
        if (apart) troubles.push_back(trouble);
    }
    std::sort(troubles.begin(), troubles.end(),
              [](const Trouble& a, const Trouble& b) { return a.at < b.at; });
    QuickDraw people = draw(number, PEOPLE);
    for (Trouble& trouble : troubles) {
        if (trouble.cure != Cure::NOTHING) continue;
        if (&trouble != &troubles.back()) {
            trouble.cure = Cure::RESET;  // a device that goes on was repaired
            continue;
        }
        device.pulled =
                std::min<time_t>(device.pulled, trouble.at + people.between(4 * kDay, kApart));
        device.software = softwareOf(device, trouble.at);
    }
    return life;
}

Scenario Lives::scenario(uint64_t number, const Life& life) const {
    QuickDraw people = draw(number, PEOPLE), power = draw(number, POWER);
    const bool wrong = draw(number, CLOCK).percent(1);
    Scenario scenario;
    scenario.about = life.identity.serial;
    scenario.properties = {{"persist.sys.oobe_country", life.identity.country}};
    scenario.files[kMarker] = "";
    scenario.logSizes = {{"main", 20000}, {"system", 6000}, {"events", 4000},
                         {"radio", 2000}, {"crash", 0},     {"kernel", 8000}};
    for (const Trouble& trouble : life.troubles) {
        for (Boot& boot : bootsOf(trouble, people, power)) {
            if (boot.clock && *boot.clock >= life.identity.pulled) return scenario;
            if (boot.clock && wrong) *boot.clock -= kSeenFrom - kWrongClock;
            scenario.boots.push_back(std::move(boot));
        }
    }
    return scenario;
}

QuickDraw Lives::damage(uint64_t number) const {
    return draw(number, DAMAGE);
}

}  // namespace lab
