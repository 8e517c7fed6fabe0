// SPDX-License-Identifier: Apache-2.0
// Where the rows of a fleet lie: what the tables are made from.

#pragma once

#include <stdint.h>

#include <map>
#include <string>
#include <variant>
#include <vector>

namespace fleet {

using Cell = std::variant<int64_t, std::string>;
using Row = std::vector<Cell>;

// A list stands in a query as "IN (:name)" and may be empty.
using Parameter = std::variant<int64_t, std::string, std::vector<std::string>>;
using Parameters = std::map<std::string, Parameter>;

class Store {
public:
    Store() = default;
    Store(const Store&) = delete;
    Store& operator=(const Store&) = delete;
    virtual ~Store() = default;

    // All rows that a query of fleet/queries gives, in its order: the same ones of every store with
    // the same data. Each ":name" of the query is a parameter. Throws std::runtime_error with one
    // line that names the store and what is wrong with it.
    virtual std::vector<Row> run(const std::string& query, const Parameters& parameters) = 0;
};

}  // namespace fleet
