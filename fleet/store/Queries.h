// SPDX-License-Identifier: Apache-2.0
// The texts of fleet/queries, as they are built into the program.

#pragma once

#include <functional>
#include <string>

namespace fleet {

// Of the file NAME.sql. Throws std::logic_error where there is no such file.
const char* queryText(const std::string& name);

// A query without its comments, with what `replace` gives in place of each ":name".
std::string fillIn(const std::string& query,
                   const std::function<std::string(const std::string& name)>& replace);

}  // namespace fleet
