// SPDX-License-Identifier: Apache-2.0
// What the rows of a fleet come to, as data: made by the store's queries, and judged here.

#include "fleet/tables/Tables.h"

#include <algorithm>
#include <map>
#include <set>
#include <stdexcept>
#include <utility>

#include "fleet/tables/Versions.h"

namespace fleet {

namespace {

// Whatever a fleet holds, no more is asked for; the rarest are left out.
constexpr int64_t kMostSoftwares = 1000;
constexpr int64_t kMostSignatures = 500;
constexpr int64_t kMostPlaces = 10000;
constexpr size_t kMostTested = 100;    // countries, and models
constexpr int64_t kLeastDevices = 10;  // that the newest software has
constexpr size_t kLookSignatures = 3;
constexpr int64_t kLooks = 3;  // devices of each

int64_t number(const Row& row, size_t column) {
    const auto* value = std::get_if<int64_t>(&row.at(column));
    return value == nullptr ? 0 : *value;
}

std::string text(const Row& row, size_t column) {
    const auto* value = std::get_if<std::string>(&row.at(column));
    return value == nullptr ? "" : *value;
}

// A share of at most all, whatever a store of a stranger's says.
Share shareOf(int64_t some, int64_t all) {
    all = std::max<int64_t>(0, all);
    return {std::clamp<int64_t>(some, 0, all), all};
}

bool isSure(const Difference& difference, double level) {
    return difference.level <= level;
}

bool isSurer(const Difference& one, const Difference& other) {
    if (one.fisher.p != other.fisher.p) return one.fisher.p < other.fisher.p;
    if (one.name != other.name) return one.name < other.name;
    return one.country < other.country;
}

// Tests all of them together; gives the number of tests that count.
size_t test(const std::vector<Difference*>& differences, double level) {
    std::vector<Fisher> tests;
    for (Difference* difference : differences) {
        difference->fisher = fisher(difference->one, difference->other);
        tests.push_back(difference->fisher);
    }
    const std::vector<double> levels = adjusted(tests, level);
    for (size_t i = 0; i < differences.size(); ++i) differences[i]->level = levels[i];
    return countedTests(tests, level);
}

class Maker {
public:
    Maker(Store& store, const Choice& choice) : mStore(store), mChoice(choice) {}

    Tables make() {
        mTables.choice = mChoice;
        count();
        takeSoftwares();
        takeSignatures();
        compare();
        takeCures();
        takePlaces();
        takeLooks();
        return std::move(mTables);
    }

private:
    std::vector<Row> run(const std::string& query, Parameters more = {}) {
        more.insert({{"country", mChoice.country},
                     {"since", mChoice.since},
                     {"signature", mChoice.signature}});
        return mStore.run(query, more);
    }

    void count() {
        std::map<std::string, int64_t> states;
        for (const Row& row : run("states")) {
            const std::string newest = text(row, 0);  // `died` and the state
            const int64_t devices = number(row, 1);
            states[newest.substr(std::min<size_t>(1, newest.size()))] += devices;
            mTables.devices += devices;
            if (newest.rfind('1', 0) == 0) mTables.died += devices;
        }
        // From good to bad; what no program of ours has written comes last.
        for (const char* state :
             {"no-failure", "cured", "failing", "blocked", "unclear", "unreadable", "uploaded"}) {
            const auto found = states.find(state);
            if (found == states.end()) continue;
            mTables.states.push_back({state, found->second});
            states.erase(found);
        }
        for (const auto& [state, devices] : states) mTables.states.push_back({state, devices});
        for (const Row& row : run("totals")) mTables.failed = number(row, 0);
    }

    void takeSoftwares() {
        std::vector<Software>& softwares = mTables.softwares;
        for (const Row& row : run("softwares", {{"most", kMostSoftwares}})) {
            softwares.push_back({text(row, 0), number(row, 1)});
        }
        std::sort(softwares.begin(), softwares.end(),
                  [](const Software& a, const Software& b) { return isOlder(b.name, a.name); });
    }

    int64_t devicesOf(const std::string& software) const {
        for (const Software& each : mTables.softwares) {
            if (each.name == software) return each.devices;
        }
        return 0;
    }

    void takeSignatures() {
        for (const Row& row : run("signature-count")) mTables.signatureCount = number(row, 0);
        for (const Row& row : run("signatures", {{"most", kMostSignatures}})) {
            SignatureCount count;
            count.signature = text(row, 0);
            count.devices = number(row, 1);
            mNames.push_back(count.signature);
            mTables.signatures.push_back(std::move(count));
        }
        if (mNames.empty()) return;
        std::map<std::string, Row> details;
        for (const Row& row : run("details", {{"signatures", mNames}})) details[text(row, 0)] = row;
        std::map<std::pair<std::string, std::string>, int64_t> affected;
        for (const Row& row : run("rates", {{"signatures", mNames}})) {
            affected[{text(row, 0), text(row, 1)}] = number(row, 2);
        }
        for (SignatureCount& count : mTables.signatures) {
            const auto known = details.find(count.signature);
            if (known != details.end()) describe(known->second, count);
            for (const Software& software : mTables.softwares) {
                const auto found = affected.find({count.signature, software.name});
                const int64_t some = found == affected.end() ? 0 : found->second;
                count.rates.push_back({software.name, shareOf(some, software.devices)});
            }
        }
    }

    static void describe(const Row& row, SignatureCount& count) {
        count.kind = text(row, 1);
        count.episodes = number(row, 2);
        count.first = text(row, 3);
        count.last = text(row, 4);
        count.open = number(row, 5);
    }

    // The software in question and what it is compared with.
    void chooseSoftware() {
        Changes& changes = mTables.changes;
        changes.software = mChoice.software;
        for (const std::string& named : {mChoice.software, mChoice.against}) {
            if (named.empty() || devicesOf(named) > 0) continue;
            throw std::runtime_error("no device was seen with software " + named);
        }
        // A name that a handful of devices has is a trial's, unless all have one.
        for (const int64_t least : {kLeastDevices, int64_t{1}}) {
            for (const Software& software : mTables.softwares) {
                const bool fits = !software.name.empty() && software.devices >= least;
                if (changes.software.empty() && fits) changes.software = software.name;
            }
        }
        for (const Software& software : mTables.softwares) {
            const bool older = isOlder(software.name, changes.software) && !software.name.empty();
            if (mChoice.against.empty() ? older : software.name == mChoice.against) {
                changes.before.push_back(software.name);
            }
        }
    }

    // Of one and of the other group of software.
    struct Both {
        int64_t one = 0, other = 0;

        Both& operator+=(const Both& more) {
            one += more.one;
            other += more.other;
            return *this;
        }
    };

    // What a query counts with the software in question and with those before it, by the columns
    // before the number. A device in several countries counts in each.
    std::map<std::vector<std::string>, Both> countBoth(const std::string& query, Parameters more) {
        std::map<std::vector<std::string>, Both> counts;
        const Changes& changes = mTables.changes;
        for (const bool before : {false, true}) {
            more["softwares"] = before ? changes.before : std::vector{changes.software};
            for (const Row& row : run(query, more)) {
                std::vector<std::string> name;
                for (size_t i = 0; i + 1 < row.size(); ++i) name.push_back(text(row, i));
                Both& both = counts[name];
                (before ? both.other : both.one) += number(row, row.size() - 1);
            }
        }
        return counts;
    }

    static Difference differenceOf(const std::string& name, const std::string& country,
                                   const Both& affected, const Both& all) {
        return {name, country, shareOf(affected.one, all.one), shareOf(affected.other, all.other),
                {},   1};
    }

    // Each signature in each country, then everywhere.
    std::vector<Difference> differences() {
        std::map<std::string, Both> seen;
        Both everywhere;
        for (const auto& [name, both] : countBoth("seen", {})) {
            seen[name[0]] = both;
            everywhere += both;
        }
        mTables.changes.devices = {everywhere.one, everywhere.one + everywhere.other};
        std::vector<Difference> list;
        std::map<std::string, Both> affected;
        for (const auto& [name, both] : countBoth("affected", {{"signatures", mNames}})) {
            affected[name[0]] += both;
            if (name[1].empty() || seen.size() < 2) continue;
            list.push_back(differenceOf(name[0], name[1], both, seen[name[1]]));
        }
        for (const auto& [signature, both] : affected) {
            list.push_back(differenceOf(signature, "", both, everywhere));
        }
        return list;
    }

    void compare() {
        chooseSoftware();
        Changes& changes = mTables.changes;
        if (changes.software.empty() || changes.before.empty() || mNames.empty()) return;
        std::vector<Difference> list = differences();
        std::vector<Difference*> all;
        all.reserve(list.size());
        for (Difference& difference : list) all.push_back(&difference);
        changes.tests = test(all, mChoice.level);
        std::sort(list.begin(), list.end(), isSurer);
        std::map<std::string, Change> found;
        for (const Difference& difference : list) {
            Change& change = found[difference.name];
            if (difference.country.empty()) change.everywhere = difference;
            if (!isSure(difference, mChoice.level)) continue;
            if (change.signature.empty()) change.more = difference.fisher.more;
            change.signature = difference.name;
            change.level = std::min(change.level, difference.level);
            if (!difference.country.empty()) change.countries.push_back(difference);
        }
        // In the order of the surest difference of each.
        std::set<std::string> named;
        for (const bool more : {true, false}) {
            for (const Difference& difference : list) {
                const Change& change = found[difference.name];
                if (change.signature.empty() || change.more != more) continue;
                if (named.insert(difference.name).second) changes.found.push_back(change);
            }
        }
    }

    void takeCures() {
        for (const Row& row : run("outcomes")) {
            const std::string outcome = text(row, 0);
            const std::string by = text(row, 1);
            Cure cure = {outcome == "cured" ? by : outcome, number(row, 2), std::nullopt};
            mTables.episodes += cure.episodes;
            const int64_t timed = number(row, 3);
            if (outcome == "cured" && timed > 0) {
                const Parameters place = {{"cured_by", by}, {"place", (timed - 1) / 2}};
                for (const Row& median : run("seconds", place)) cure.median = number(median, 0);
            }
            mTables.cures.push_back(std::move(cure));
        }
    }

    // The most frequent names of one column, each beside all others.
    static std::vector<Difference> beside(const std::vector<Row>& seen,
                                          const std::vector<Row>& failed, size_t column) {
        std::map<std::string, Share> shares;
        Share all;
        for (const Row& row : seen) {
            shares[text(row, column)].all += number(row, 2);
            all.all += number(row, 2);
        }
        for (const Row& row : failed) {
            shares[text(row, column)].some += number(row, 2);
            all.some += number(row, 2);
        }
        std::vector<Difference> list;
        list.reserve(shares.size());
        for (const auto& [name, share] : shares) {
            list.push_back({name,
                            "",
                            shareOf(share.some, share.all),
                            shareOf(all.some - share.some, all.all - share.all),
                            {},
                            1});
        }
        std::stable_sort(list.begin(), list.end(), [](const Difference& a, const Difference& b) {
            return a.one.all > b.one.all;
        });
        if (list.size() > kMostTested) list.resize(kMostTested);
        return list;
    }

    void takePlaces() {
        const std::vector<Row> seen = run("places", {{"most", kMostPlaces}});
        const std::vector<Row> failed = run("failed-places", {{"most", kMostPlaces}});
        Places& places = mTables.places;
        places.countries = beside(seen, failed, 0);
        places.models = beside(seen, failed, 1);
        std::vector<Difference*> all;
        for (auto* list : {&places.countries, &places.models}) {
            for (Difference& difference : *list) {
                if (!difference.name.empty()) all.push_back(&difference);
            }
        }
        places.tests = test(all, mChoice.level);
    }

    // Of what has become more, else of what is most frequent.
    void takeLooks() {
        std::vector<std::string> signatures;
        for (const Change& change : mTables.changes.found) {
            if (change.more) signatures.push_back(change.signature);
        }
        for (const std::string& name : mNames) {
            const bool there =
                    std::find(signatures.begin(), signatures.end(), name) != signatures.end();
            if (!there) signatures.push_back(name);
        }
        if (signatures.size() > kLookSignatures) signatures.resize(kLookSignatures);
        for (const std::string& signature : signatures) lookAt(signature);
        std::vector<std::string> devices;
        for (const Look& look : mTables.looks) devices.push_back(look.device);
        if (devices.empty()) return;
        std::map<std::string, Row> known;
        for (const Row& row : run("paths", {{"devices", devices}})) known[text(row, 0)] = row;
        for (Look& look : mTables.looks) {
            const auto found = known.find(look.device);
            if (found == known.end()) continue;
            look.path = text(found->second, 1);
            look.software = text(found->second, 2);
            look.country = text(found->second, 3);
            look.model = text(found->second, 4);
        }
    }

    void lookAt(const std::string& signature) {
        Parameters parameters = {{"most", kLooks}, {"signature", signature}};
        for (const Row& row : run("look", parameters)) {
            Look look;
            look.signature = signature;
            look.device = text(row, 0);
            look.logs = number(row, 1) > 0;
            look.open = number(row, 2) > 0;
            look.begin = text(row, 3);
            mTables.looks.push_back(std::move(look));
        }
    }

    Store& mStore;
    const Choice& mChoice;
    Tables mTables;
    std::vector<std::string> mNames;  // of the signatures
};

}  // namespace

Tables tablesOf(Store& store, const Choice& choice) {
    return Maker(store, choice).make();
}

}  // namespace fleet
