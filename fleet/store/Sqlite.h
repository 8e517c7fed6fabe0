// SPDX-License-Identifier: Apache-2.0
// A fleet in one SQLite file: what one engineer looks at.

#pragma once

#include <memory>
#include <string>

#include "fleet/rows/Rows.h"
#include "fleet/store/Store.h"

struct sqlite3;
struct sqlite3_stmt;

namespace fleet {

class Sqlite : public Store {
public:
    enum class Use {
        READ,   // a database that is there
        WRITE,  // makes one where there is none
    };

    // Throws std::runtime_error naming the file if it can't be opened, is no database, another
    // program's or a newer version's. So does every other function when something fails; what was
    // committed stays.
    Sqlite(const std::string& path, Use use);
    ~Sqlite() override;

    // Adds rows, or merges them with those of the same device and time. Whatever is added between
    // two commits stays altogether or not at all. Another program that adds meanwhile is waited
    // for, at most a minute.
    void add(const Rows& rows);
    void commit();

    std::vector<Row> run(const std::string& query, const Parameters& parameters) override;

private:
    using Statement = std::unique_ptr<sqlite3_stmt, int (*)(sqlite3_stmt*)>;

    [[noreturn]] void fail() const;
    void check(int result) const;
    Statement prepare(const std::string& sql) const;
    void execute(const std::string& sql);
    int64_t pragma(const char* name);
    void checkSchema(Use use);
    void begin();
    void settle(const EpisodeRow& row);
    std::vector<EpisodeRow> around(const EpisodeRow& row);
    void takeIn(const EpisodeRow& less, const EpisodeRow& more);
    template <typename Values, typename Columns>
    void put(Statement& statement, const Values& row, const Columns& columns);

    const std::string mPath;
    std::unique_ptr<sqlite3, int (*)(sqlite3*)> mDatabase;
    Statement mPutDevice, mPutEpisode, mAround, mCure, mRemove;
    bool mOpen = false;  // a transaction is
};

}  // namespace fleet
