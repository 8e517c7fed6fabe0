// SPDX-License-Identifier: Apache-2.0
// A fleet in a ClickHouse cluster: what a maker's whole fleet is kept in.

#pragma once

#include <memory>
#include <string>

#include "fleet/store/Store.h"

namespace fleet {

// As a literal of ClickHouse's SQL, quotes included: whatever bytes the text has, it stays data.
std::string quoted(const std::string& text);

class ClickHouse : public Store {
public:
    // Where to ask, and as whom. Users and passwords are not part of the URL, which other users of
    // the machine can see: they are in the environment (BOOTVIGIL_CLICKHOUSE_USER and
    // BOOTVIGIL_CLICKHOUSE_PASSWORD), else in the file that NETRC names or ~/.netrc.
    // `url` is that of a node's HTTP interface, "http://node:8123"; a path names the database
    // instead of "bootvigil". `seconds` is how long it may be silent. Throws std::runtime_error if
    // the node can't be asked, or its tables are not those of fleet/clickhouse/schema.sql.
    ClickHouse(const std::string& url, int seconds);
    ~ClickHouse() override;

    // Only reads. An answer that is not whole, too large, or not ClickHouse's is an error.
    std::vector<Row> run(const std::string& query, const Parameters& parameters) override;

private:
    class Connection;

    std::unique_ptr<Connection> mConnection;
};

}  // namespace fleet
