// SPDX-License-Identifier: Apache-2.0
// Rows merged and counted by SQLite, and what the tables find in fleets that were made for it.

#include <gtest/gtest.h>

#include <stdlib.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "fleet/rows/Rows.h"
#include "fleet/rows/Uploads.h"
#include "fleet/show/Json.h"
#include "fleet/show/Text.h"
#include "fleet/store/Sqlite.h"
#include "fleet/tables/Tables.h"

namespace {

using namespace fleet;

class FleetTest : public testing::Test {
protected:
    FleetTest() {
        char name[] = "/tmp/fleet-test.XXXXXX";
        mFolder = mkdtemp(name);
    }
    ~FleetTest() override {
        std::filesystem::remove_all(mFolder);
    }

    std::string file() {
        return mFolder + "/" + std::to_string(mCount) + ".db";
    }
    // A store of these rows alone.
    std::unique_ptr<Sqlite> storeOf(const std::vector<Rows>& all) {
        ++mCount;
        auto store = std::make_unique<Sqlite>(file(), Sqlite::Use::WRITE);
        for (const Rows& rows : all) store->add(rows);
        store->commit();
        return store;
    }
    Tables tablesOf(const std::vector<Rows>& all, const Choice& choice = {}) {
        return fleet::tablesOf(*storeOf(all), choice);
    }

private:
    std::string mFolder;
    int mCount = 0;
};

struct Device {
    std::string name, software, country = "NG", model = "M10";
    std::string pulled = "2026-11-20T10:00:00";
};

// A copy without a failure.
Rows copyOf(const Device& device) {
    Rows rows;
    DeviceRow row;
    row.device = device.name;
    row.software = device.software;
    row.country = device.country;
    row.model = device.model;
    row.pulled = device.pulled;
    row.state = "no-failure";
    row.source = "partition";
    row.path = "/pulled/" + device.name;
    finish(row);
    rows.devices.push_back(row);
    return rows;
}

struct Failure {
    std::string event = "1113-system_server  | AMS:systemReady";
    std::string begin = "2026-11-15T11:08:10";
    std::string outcome = "open", curedBy = {};
    std::string end = {};
};

Rows copyOf(const Device& device, const Failure& failure) {
    Rows rows = copyOf(device);
    rows.devices[0].state = failure.outcome == "cured" ? "cured" : "failing";
    finish(rows.devices[0]);
    EpisodeRow row;
    row.device = device.name;
    row.begin = row.lastTime = failure.begin;
    row.software = device.software;
    row.country = device.country;
    row.model = device.model;
    row.pulled = device.pulled;
    row.number = row.lastNumber = "0x502564";
    row.lastEvent = failure.event;
    row.reason = 100;
    row.failures = 1;
    row.outcome = failure.outcome;
    row.curedBy = failure.curedBy;
    row.end = failure.end;
    row.source = "partition";
    row.path = rows.devices[0].path;
    groupAgain(row);
    finish(row);
    rows.episodes.push_back(row);
    return rows;
}

// One failure as everything that may tell of it, added in every order.
TEST_F(FleetTest, MergesToTheSameInAnyOrder) {
    const std::string sent = R"({"serial":"d","software":"3.1","country":"NG","model":"M10",)"
                             R"("pulled":"2026-11-21T10:00:00","text":)";
    const std::string cured = "2026-11-15T11:19:30";
    std::vector<Rows> all = {
            copyOf({"d", "3.0"}, {}),
            copyOf({"d", "3.1", "NG", "M10", "2026-11-22T10:00:00"},
                   {"1113-system_server  | AMS:systemReady", "2026-11-15T11:08:10", "cured",
                    "unknown", cured}),
            rowsOfLine(sent + R"("BOOTVIGIL|0x502564|Sun Nov 15 11|1113-system_server  | AMS"})"),
            rowsOfLine(sent + R"("BFRECOVERY|1|Sun Nov 15 11:19:31 2026|100"})"),
    };
    std::vector<size_t> order = {0, 1, 2, 3};
    std::string first;
    do {
        std::vector<Rows> rows;
        for (const size_t place : order) rows.push_back(all[place]);
        rows.push_back(all[order[0]]);  // and one of them again
        const Tables tables = tablesOf(rows);
        const std::string json = toJson(tables);
        if (first.empty()) first = json;
        ASSERT_EQ(json, first);
        ASSERT_EQ(tables.episodes, 1);
        ASSERT_EQ(tables.cures[0].by, "reboot");
        // It failed before the update.
        ASSERT_EQ(tables.signatures[0].rates[1].software, "3.0");
        ASSERT_EQ(tables.signatures[0].rates[1].share.some, 1);
        ASSERT_EQ(tables.signatures[0].rates[0].share.some, 0);
    } while (std::next_permutation(order.begin(), order.end()));
}

TEST_F(FleetTest, CountsADeviceOnceForAllItsCopies) {
    const Device device = {"d", "3.0"};
    Failure later;
    later.begin = "2026-11-16T11:08:10";
    const Tables tables = tablesOf({copyOf(device, {}), copyOf(device, {}), copyOf(device, later),
                                    copyOf({"e", "3.0"}), copyOf({"e", "3.1"})});
    EXPECT_EQ(tables.devices, 2);
    EXPECT_EQ(tables.failed, 1);
    EXPECT_EQ(tables.episodes, 2);
    EXPECT_EQ(tables.signatures[0].devices, 1);
    EXPECT_EQ(tables.signatures[0].episodes, 2);
    ASSERT_EQ(tables.softwares.size(), 2U);
    EXPECT_EQ(tables.softwares[0].name, "3.1");
    EXPECT_EQ(tables.softwares[0].devices, 1);
    EXPECT_EQ(tables.softwares[1].devices, 2);
}

TEST_F(FleetTest, FiltersByEachChoice) {
    const std::string quoted = "1-it's \"odd\"; DROP TABLE devices --  | x";
    const auto store =
            storeOf({copyOf({"a", "3.0", "NG"}, {}),
                     copyOf({"b", "3.1", "KE"}, {quoted, "2026-11-18T00:00:00", "open", "", ""}),
                     copyOf({"c", "3.1", "KE", "M10", "2026-11-16T10:00:00"})});
    const Tables all = fleet::tablesOf(*store, {});
    EXPECT_EQ(all.signatureCount, 2);
    Choice choice;
    choice.signature = "stall in the system server after x by it's \"odd\"; DROP TABLE devices --";
    EXPECT_EQ(fleet::tablesOf(*store, choice).failed, 1);
    EXPECT_EQ(fleet::tablesOf(*store, choice).looks[0].device, "b");
    choice = {};
    choice.country = "NG";
    EXPECT_EQ(fleet::tablesOf(*store, choice).devices, 1);
    EXPECT_EQ(fleet::tablesOf(*store, choice).failed, 1);
    choice = {};
    choice.since = "2026-11-17T00:00:00";
    EXPECT_EQ(fleet::tablesOf(*store, choice).devices, 2);
    EXPECT_EQ(fleet::tablesOf(*store, choice).failed, 1);
    choice = {};
    choice.software = "3.7";
    EXPECT_THROW(fleet::tablesOf(*store, choice), std::runtime_error);
}

TEST_F(FleetTest, TakesTheMiddleOfTheTimesToACure) {
    std::vector<Rows> all;
    for (const int64_t seconds : {50, 400, 60, -1}) {
        Rows rows = copyOf({"d" + std::to_string(seconds), "3.0"},
                           {"1-x  | y", "2026-11-15T11:08:10", "cured", "reset", ""});
        rows.episodes[0].secondsToCure = seconds;
        finish(rows.episodes[0]);
        all.push_back(rows);
    }
    const Tables tables = tablesOf(all);
    EXPECT_EQ(tables.cures[0].episodes, 4);
    EXPECT_EQ(tables.cures[0].median, 60);
}

TEST_F(FleetTest, ComparesTheNewestSoftwareThatTenDevicesHave) {
    std::vector<Rows> all;
    for (int i = 0; i < 30; ++i)
        all.push_back(copyOf({"d" + std::to_string(i), i < 20 ? "3.9" : "3.10"}));
    all.push_back(copyOf({"trial", "99-test"}, {}));
    EXPECT_EQ(tablesOf(all).changes.software, "3.10");
    EXPECT_EQ(tablesOf(all).changes.before, std::vector<std::string>{"3.9"});
    Choice choice;
    choice.software = "99-test";
    choice.against = "3.10";
    EXPECT_EQ(tablesOf(all, choice).changes.before, std::vector<std::string>{"3.10"});
}

// A fleet of 5,000 devices with stalls of twelve kinds, whose rates differ in countries and not in
// software.
std::vector<Rows> madeFleet(std::mt19937& draw) {
    const auto chance = [&](double share) { return draw() < share * 0x1p32; };
    const char* const kCountries[] = {"NG", "KE", "PK", "ID"};
    std::vector<Rows> all;
    for (int i = 0; i < 5000; ++i) {
        const std::string country = kCountries[draw() % 4];
        const Device device = {std::to_string(i), "3." + std::to_string(draw() % 3), country};
        all.push_back(copyOf(device));
        for (int kind = 0; kind < 12; ++kind) {
            const double rate = 0.02 / (1 + kind) * (country == kCountries[kind % 4] ? 3 : 1);
            if (!chance(rate)) continue;
            Failure failure;
            failure.event = "7-x  | event " + std::string(1, static_cast<char>('a' + kind));
            failure.begin = "2026-10-" + std::to_string(10 + kind) + "T00:00:00";
            all.push_back(copyOf(device, failure));
        }
    }
    return all;
}

TEST_F(FleetTest, NamesARegressionFirst) {
    const Failure planted = {"1113-system_server  | Android:PMS_scan_START"};
    int first = 0;
    for (unsigned seed = 1; seed <= 8; ++seed) {
        std::mt19937 draw(seed);
        std::vector<Rows> all = madeFleet(draw);
        int left = 25;
        for (size_t i = 0; i < all.size() && left > 0; ++i) {
            const DeviceRow& row = all[i].devices[0];
            if (row.software != "3.2" || row.country != "NG" || !all[i].episodes.empty()) continue;
            all[i] = copyOf({row.device, row.software, row.country}, planted);
            --left;
        }
        const Tables tables = tablesOf(all);
        const std::vector<Change>& found = tables.changes.found;
        if (found.empty() || !found[0].more) continue;
        const bool right = found[0].signature.find("PMS_scan_START") != std::string::npos &&
                           !found[0].countries.empty() && found[0].countries[0].country == "NG" &&
                           found[0].everywhere.one.some == 25 && !tables.looks.empty() &&
                           tables.looks[0].signature == found[0].signature;
        first += right ? 1 : 0;
    }
    EXPECT_GE(first, 7);
}

// Only the share of the country with that software has changed: everywhere it is as before.
TEST_F(FleetTest, FindsWhatOnlyOneCountryShows) {
    std::vector<Rows> all;
    for (int i = 0; i < 4000; ++i) {
        const bool isNew = i % 2 == 0;
        const std::string country = i % 8 < 2 ? "NG" : "KE";
        const Device device = {std::to_string(i), isNew ? "3.2" : "3.1", country};
        // In NG 1 in 12 with the new software and none before, in KE as many less.
        const bool fails = country == "NG" ? isNew && i % 96 == 0 : i % (isNew ? 114 : 21) == 0;
        all.push_back(fails ? copyOf(device, {}) : copyOf(device));
    }
    const Tables tables = tablesOf(all);
    EXPECT_GT(tables.changes.found.at(0).everywhere.level, 0.05);
    EXPECT_EQ(tables.changes.found[0].countries.at(0).country, "NG");
    EXPECT_TRUE(tables.changes.found[0].more);
}

TEST_F(FleetTest, SaysWhichCountryStandsOut) {
    std::vector<Rows> all;
    for (int i = 0; i < 1000; ++i) {
        const std::string country = i % 4 == 0 ? "NG" : i % 4 == 1 ? "KE" : "PK";
        const Device device = {std::to_string(i), "3.0", country, "M" + std::to_string(i % 3)};
        const bool fails = i % (country == "NG" ? 8 : 50) == 0;
        all.push_back(fails ? copyOf(device, {}) : copyOf(device));
    }
    const std::string text = toText(tablesOf(all));
    EXPECT_NE(text.find("country NG: failed more often"), std::string::npos) << text;
    EXPECT_EQ(text.find("model M"), std::string::npos) << text;
}

TEST_F(FleetTest, BoundsWhatAHostileFleetShows) {
    const auto store = storeOf({});
    for (int i = 0; i < 3000; ++i) {
        const std::string number = std::to_string(i);
        store->add(copyOf({"d" + number, "v" + number, "c" + number, "m" + number},
                          {"1-\x1b[2Jp\n  | " + std::string(200, static_cast<char>('a' + i % 26)) +
                           std::string(static_cast<size_t>(i % 90), 'x')}));
    }
    store->commit();
    const Tables tables = fleet::tablesOf(*store, {});
    EXPECT_LE(tables.signatures.size(), 500U);
    EXPECT_EQ(tables.devices, 3000);
    const std::string text = toText(tables);
    EXPECT_LT(text.size(), 40000U);
    EXPECT_EQ(text.find('\x1b'), std::string::npos);
}

TEST(Uploads, GiveTheHourTheYearOfItsWeekday) {
    const auto begin = [](const std::string& time, const std::string& pulled) {
        const std::string line = R"({"serial":"d","pulled":")" + pulled +
                                 R"(","text":"BOOTVIGIL|0x502564|)" + time + R"(|NA"})";
        return rowsOfLine(line).episodes.at(0).begin;
    };
    EXPECT_EQ(begin("Sun Nov 15 11", "2026-11-20T10:00:00"), "2026-11-15T11:00:00");
    // Collected in January, and years later.
    EXPECT_EQ(begin("Thu Dec 31 23", "2027-01-02"), "2026-12-31T23:00:00");
    EXPECT_EQ(begin("Thu Jan  1 00", "2026-12-31T23:30:00Z"), "2026-01-01T00:00:00");
    EXPECT_EQ(begin("Fri Jan  1 00", "2026-12-31T23:30:00Z"), "2027-01-01T00:00:00");
    EXPECT_EQ(begin("Sun Nov 15 11", "2029-03-01"), "2026-11-15T11:00:00");
    EXPECT_EQ(begin("Sun Nov 15 11", ""), "0000-11-15T11:00:00");
    EXPECT_EQ(begin("soon", "2026-11-20"), "");
}

TEST(Uploads, AreRefusedWithAReason) {
    const auto why = [](const std::string& line) -> std::string {
        try {
            rowsOfLine(line);
            return "";
        } catch (const std::runtime_error& error) {
            return error.what();
        }
    };
    EXPECT_EQ(why("[]"), "is no JSON object");
    EXPECT_EQ(why("{\"serial\":"), "is no JSON object");
    EXPECT_EQ(why(R"({"serial":"d"})"), "has neither a text nor a table of rows");
    EXPECT_EQ(why(R"({"text":"BOOTVIGIL|0x1|x|y"})"), "has no serial");
    EXPECT_EQ(why(R"({"serial":"d","text":"BOOTVIGIL|0x1"})"), "is no upload of a failure");
    EXPECT_EQ(why(R"({"serial":"d","text":"BFRECOVERY|2|Sun Nov 15 11:05:18 2026|100"})"),
              "is no report of a recovery");
    EXPECT_EQ(why(R"({"serial":"d","text":"x"})"), "its text is no upload of the daemon");
    EXPECT_EQ(why(R"({"table":"episodes","device":1})"), "device is of another type");
    EXPECT_EQ(why(R"({"table":"devices"})"), "has no device");
    EXPECT_EQ(why(R"({"serial":"d","text":"BOOTVIGIL|Unknow|Unknow|Unknow"})"), "");
}

// What rows prints, add takes.
TEST(Uploads, RowsComeBackFromTheirLines) {
    const Rows rows = copyOf({"d\"\\", "3.0"}, {"1-a  | \xc3\xbc", "2026-11-15T11:08:10"});
    EXPECT_EQ(toLine(rowsOfLine(toLine(rows.episodes[0])).episodes.at(0)),
              toLine(rows.episodes[0]));
    EXPECT_EQ(toLine(rowsOfLine(toLine(rows.devices[0])).devices.at(0)), toLine(rows.devices[0]));
}

TEST(Identity, TakesWhatIsOfUse) {
    using Json = nlohmann::json;
    const Identity identity = identityOf(Json::parse(
            R"({"serial":"A","model":7,"software":null,"country":"NG","pulled":"tomorrow","x":1})"));
    EXPECT_EQ(identity.serial, "A");
    EXPECT_EQ(identity.model, "");
    EXPECT_EQ(identity.problems, 2);
    EXPECT_EQ(identityOf(Json::parse("[]")).problems, 1);
    EXPECT_EQ(utcTime("2026-11-20T10:00:00+01:00"), "2026-11-20T09:00:00");
    EXPECT_EQ(utcTime("2026-11-20T10:00:00.123Z"), "2026-11-20T10:00:00");
    EXPECT_EQ(utcTime("2026-11-20"), "2026-11-20T00:00:00");
    EXPECT_EQ(utcTime("2026-11-20T10:00-0330"), "2026-11-20T13:30:00");
    EXPECT_EQ(utcTime("2026-11-20x"), "");
    EXPECT_EQ(utcTime("99999-11-20"), "");
}

}  // namespace
