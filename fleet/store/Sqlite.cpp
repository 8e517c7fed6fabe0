// SPDX-License-Identifier: Apache-2.0
// A fleet in one SQLite file: what one engineer looks at.

#include "fleet/store/Sqlite.h"

#include <sqlite3.h>

#include <stdexcept>
#include <utility>

#include "fleet/rows/Sameness.h"
#include "fleet/store/Queries.h"

namespace fleet {

namespace {

constexpr int kApplicationId = 0x62766c74;  // "bvlt"
constexpr int kSchemaVersion = 1;
constexpr int kWaitMs = 60000;

// Each index has all that some queries ask for, in an order in which the rows of a group and those
// of a device in it come one after the other: so devices are counted without being sorted.
constexpr const char* kIndexes[] = {
        "CREATE INDEX devices_by_place ON devices(country, model, device, pulled)",
        "CREATE INDEX devices_by_software ON devices(software, device, country, pulled)",
        "CREATE INDEX episodes_by_country ON episodes(signature, country, device, software, begin)",
        "CREATE INDEX episodes_by_device ON episodes(device, begin, country, signature)",
        "CREATE INDEX episodes_by_outcome ON episodes(outcome, cured_by, seconds_to_cure, country, "
        "begin, signature)",
        "CREATE INDEX episodes_by_place ON episodes(country, model, device, begin, signature)",
        "CREATE INDEX episodes_by_signature ON episodes(signature, device, begin, country, "
        "outcome, "
        "captured, kind)",
        "CREATE INDEX episodes_by_software ON episodes(signature, software, device, country, "
        "begin)",
};

constexpr const char* kAround =
        "SELECT begin, source, number, last_number, last_time, end, outcome, cured_by, reason "
        "FROM episodes WHERE device = ? AND begin >= strftime('%Y-%m-%dT%H:%M:%S', ?2, ?3) "
        "AND begin <= strftime('%Y-%m-%dT%H:%M:%S', ?2, ?4) AND begin <> ?2 "
        "ORDER BY begin LIMIT 1000";

// A text that is larger the more is known; see Merge::KNOWN.
std::string rankOf(const std::string& field) {
    return "(CASE " + field + " WHEN '' THEN '0' WHEN 'unknown' THEN '1' ELSE '2' END || " + field +
           ")";
}

template <typename Row>
std::string createTable(const std::string& name, const std::vector<Column<Row>>& columns) {
    std::string sql = "CREATE TABLE " + name + "(";
    std::string key;
    for (const Column<Row>& column : columns) {
        const bool isNumber = std::holds_alternative<int64_t Row::*>(column.field);
        sql += std::string(column.name) + (isNumber ? " INTEGER" : " TEXT") + " NOT NULL, ";
        if (column.merge == Merge::KEY) key += (key.empty() ? "" : ", ") + std::string(column.name);
    }
    return sql + "PRIMARY KEY(" + key + ")) WITHOUT ROWID";
}

// When a column takes the value of the row that is added.
std::string isTaken(Merge merge, const std::string& field, const std::string& last) {
    switch (merge) {
        case Merge::FIRST:
            return "excluded.seen < seen";
        case Merge::KNOWN:
            return rankOf("excluded." + field) + " > " + rankOf(field);
        default:
            return "excluded." + last + " > " + last;
    }
}

// Inserts a row or merges it with the one that is there.
template <typename Row>
std::string putInto(const std::string& name, const std::string& last,
                    const std::vector<Column<Row>>& columns) {
    std::string names;
    std::string places;
    std::string key;
    std::string set;
    std::string any;
    const auto add = [](std::string& list, const char* between, const std::string& item) {
        list += (list.empty() ? "" : between) + item;
    };
    for (const Column<Row>& column : columns) {
        const std::string field = column.name;
        add(names, ", ", field);
        add(places, ", ", "?");
        if (column.merge == Merge::KEY) {
            add(key, ", ", field);
            continue;
        }
        const std::string taken = isTaken(column.merge, field, last);
        add(set, ", ",
            field + " = CASE WHEN " + taken + " THEN excluded." + field + " ELSE " + field +
                    " END");
        // Of each way to merge one column is enough.
        if (any.find(taken) == std::string::npos) add(any, " OR ", taken);
    }
    return "INSERT INTO " + name + "(" + names + ") VALUES(" + places + ") ON CONFLICT(" + key +
           ") DO UPDATE SET " + set + " WHERE " + any;
}

// All that a database of ours has, in the order of the names.
std::vector<std::string> schema() {
    std::vector<std::string> schema = {createTable("devices", deviceColumns()),
                                       createTable("episodes", episodeColumns())};
    schema.insert(schema.end(), std::begin(kIndexes), std::end(kIndexes));
    return schema;
}

void setParameter(sqlite3_stmt* statement, int place, const Parameter& value) {
    if (const auto* number = std::get_if<int64_t>(&value)) {
        sqlite3_bind_int64(statement, place, *number);
    } else if (const auto* text = std::get_if<std::string>(&value)) {
        sqlite3_bind_text64(statement, place, text->data(), text->size(), SQLITE_TRANSIENT,
                            SQLITE_UTF8);
    }
}

std::string textOf(sqlite3_stmt* statement, int column) {
    const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(statement, column));
    if (text == nullptr) return "";
    return {text, static_cast<size_t>(sqlite3_column_bytes(statement, column))};
}

Cell cellOf(sqlite3_stmt* statement, int column) {
    if (sqlite3_column_type(statement, column) == SQLITE_TEXT) return textOf(statement, column);
    return static_cast<int64_t>(sqlite3_column_int64(statement, column));
}

}  // namespace

Sqlite::Sqlite(const std::string& path, Use use)
    : mPath(path),
      mDatabase(nullptr, sqlite3_close),
      mPutDevice(nullptr, sqlite3_finalize),
      mPutEpisode(nullptr, sqlite3_finalize),
      mAround(nullptr, sqlite3_finalize),
      mCure(nullptr, sqlite3_finalize),
      mRemove(nullptr, sqlite3_finalize) {
    // Also a reader writes, to the files beside the database; where it may not, it can do without.
    const int flags = SQLITE_OPEN_READWRITE | (use == Use::WRITE ? SQLITE_OPEN_CREATE : 0);
    sqlite3* database = nullptr;
    const int result = sqlite3_open_v2(path.c_str(), &database, flags, nullptr);
    mDatabase.reset(database);
    check(result);
    sqlite3_extended_result_codes(database, 1);
    sqlite3_busy_timeout(database, kWaitMs);
    // A database may come from a stranger.
    sqlite3_db_config(database, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
    sqlite3_db_config(database, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
    execute("PRAGMA cell_size_check = ON");
    checkSchema(use);
    execute("PRAGMA temp_store = MEMORY");
    if (use == Use::WRITE) {
        execute("PRAGMA journal_mode = WAL");
        execute("PRAGMA synchronous = NORMAL");
        mPutDevice = prepare(putInto("devices", "seen", deviceColumns()));
        mPutEpisode = prepare(putInto("episodes", "standing", episodeColumns()));
        mAround = prepare(kAround);
        mCure = prepare("UPDATE episodes SET outcome = 'cured', cured_by = CASE WHEN " +
                        rankOf("?1") + " > " + rankOf("cured_by") +
                        " THEN ?1 ELSE cured_by END WHERE device = ?2 AND begin = ?3");
        mRemove = prepare("DELETE FROM episodes WHERE device = ? AND begin = ?");
    } else {
        execute("PRAGMA query_only = ON");
        execute("PRAGMA mmap_size = 4294967296");
        execute("BEGIN");  // all queries see the same rows, whoever adds meanwhile
    }
}

Sqlite::~Sqlite() = default;

void Sqlite::fail() const {
    throw std::runtime_error(mPath + ": " + sqlite3_errmsg(mDatabase.get()));
}

void Sqlite::check(int result) const {
    if (result != SQLITE_OK && result != SQLITE_DONE && result != SQLITE_ROW) fail();
}

Sqlite::Statement Sqlite::prepare(const std::string& sql) const {
    sqlite3_stmt* statement = nullptr;
    check(sqlite3_prepare_v2(mDatabase.get(), sql.c_str(), -1, &statement, nullptr));
    return {statement, sqlite3_finalize};
}

void Sqlite::execute(const std::string& sql) {
    check(sqlite3_exec(mDatabase.get(), sql.c_str(), nullptr, nullptr, nullptr));
}

int64_t Sqlite::pragma(const char* name) {
    const Statement statement = prepare(std::string("PRAGMA ") + name);
    check(sqlite3_step(statement.get()));
    return sqlite3_column_int64(statement.get(), 0);
}

void Sqlite::checkSchema(Use use) {
    if (use == Use::WRITE) begin();
    const auto refuse = [&](const char* why) { throw std::runtime_error(mPath + ": " + why); };
    std::vector<std::string> found;
    const Statement objects =
            prepare("SELECT sql FROM sqlite_master WHERE sql IS NOT NULL ORDER BY type DESC, name");
    int result = SQLITE_OK;
    while ((result = sqlite3_step(objects.get())) == SQLITE_ROW) {
        found.push_back(textOf(objects.get(), 0));
    }
    check(result);
    const int64_t application = pragma("application_id");
    const int64_t version = pragma("user_version");
    const bool isEmpty = found.empty() && application == 0 && version == 0;
    if (!isEmpty && application != kApplicationId) refuse("is a database of another program");
    if (version > kSchemaVersion) refuse("is of a newer version of bootvigil-fleet");
    if (isEmpty && use == Use::READ) refuse("is empty");
    if (isEmpty) {
        for (const std::string& sql : schema()) execute(sql);
        execute("PRAGMA application_id = " + std::to_string(kApplicationId));
        execute("PRAGMA user_version = " + std::to_string(kSchemaVersion));
    } else if (found != schema()) {
        refuse("has other tables than bootvigil-fleet makes");
    }
    commit();
}

// Readers don't wait for writers, but a database is made by one of two who begin.
void Sqlite::begin() {
    if (!mOpen) execute("BEGIN IMMEDIATE");
    mOpen = true;
}

void Sqlite::commit() {
    if (mOpen) execute("COMMIT");
    mOpen = false;
}

template <typename Values, typename Columns>
void Sqlite::put(Statement& statement, const Values& row, const Columns& columns) {
    int place = 0;
    for (const auto& column : columns) {
        ++place;
        std::visit([&](auto field) { setParameter(statement.get(), place, row.*field); },
                   column.field);
    }
    const int result = sqlite3_step(statement.get());
    sqlite3_reset(statement.get());
    check(result);
}

void Sqlite::add(const Rows& rows) {
    begin();
    for (const DeviceRow& row : rows.devices) put(mPutDevice, row, deviceColumns());
    for (const EpisodeRow& row : rows.episodes) {
        put(mPutEpisode, row, episodeColumns());
        settle(row);
    }
}

// Makes one row of those that tell of the same failure.
void Sqlite::settle(const EpisodeRow& row) {
    for (const EpisodeRow& other : around(row)) {
        if (tellsTheSame(row, other)) return takeIn(row, other);
        if (tellsTheSame(other, row)) takeIn(other, row);
    }
}

// Rows of the same device that may be about the same failure, without what is not asked of them.
std::vector<EpisodeRow> Sqlite::around(const EpisodeRow& row) {
    const std::string days = std::to_string(kMostDaysApart) + " days";
    sqlite3_stmt* statement = mAround.get();
    setParameter(statement, 1, row.device);
    setParameter(statement, 2, row.begin);
    setParameter(statement, 3, "-" + days);
    setParameter(statement, 4, "+" + days);
    std::vector<EpisodeRow> rows;
    int result = SQLITE_OK;
    while ((result = sqlite3_step(statement)) == SQLITE_ROW) {
        const auto text = [&](int column) { return textOf(statement, column); };
        EpisodeRow other;
        other.device = row.device;
        other.begin = text(0);
        other.source = text(1);
        other.number = text(2);
        other.lastNumber = text(3);
        other.lastTime = text(4);
        other.end = text(5);
        other.outcome = text(6);
        other.curedBy = text(7);
        other.reason = sqlite3_column_int64(statement, 8);
        rows.push_back(std::move(other));
    }
    sqlite3_reset(statement);
    check(result);
    return rows;
}

// The row that tells more stays, and learns that a boot has completed, and by what. Its standing is
// that of its own copy, so that a later one still tells more.
void Sqlite::takeIn(const EpisodeRow& less, const EpisodeRow& more) {
    const auto step = [&](sqlite3_stmt* statement) {
        const int result = sqlite3_step(statement);
        sqlite3_reset(statement);
        check(result);
    };
    setParameter(mCure.get(), 1, less.curedBy);
    setParameter(mCure.get(), 2, more.device);
    setParameter(mCure.get(), 3, more.begin);
    step(mCure.get());
    setParameter(mRemove.get(), 1, less.device);
    setParameter(mRemove.get(), 2, less.begin);
    step(mRemove.get());
}

std::vector<Row> Sqlite::run(const std::string& query, const Parameters& parameters) {
    std::vector<std::pair<std::string, Parameter>> bound;
    const std::string sql = fillIn(queryText(query), [&](const std::string& name) {
        const Parameter& parameter = parameters.at(name);
        const auto* list = std::get_if<std::vector<std::string>>(&parameter);
        if (list == nullptr) return ":" + name;
        std::string places;
        for (size_t i = 0; i < list->size(); ++i) places += i == 0 ? "?" : ", ?";
        for (const std::string& text : *list) bound.emplace_back("", text);
        return places;
    });
    const Statement statement = prepare(sql);
    for (const auto& [name, value] : parameters) {
        const int place = sqlite3_bind_parameter_index(statement.get(), (":" + name).c_str());
        if (place > 0) setParameter(statement.get(), place, value);
    }
    // The parameters without a name, in their order.
    int place = 0;
    for (const auto& [name, value] : bound) {
        do ++place;
        while (sqlite3_bind_parameter_name(statement.get(), place) != nullptr);
        setParameter(statement.get(), place, value);
    }
    std::vector<Row> rows;
    int result = SQLITE_OK;
    while ((result = sqlite3_step(statement.get())) == SQLITE_ROW) {
        Row row;
        const int columns = sqlite3_column_count(statement.get());
        for (int column = 0; column < columns; ++column) {
            row.push_back(cellOf(statement.get(), column));
        }
        rows.push_back(std::move(row));
    }
    check(result);
    return rows;
}

}  // namespace fleet
