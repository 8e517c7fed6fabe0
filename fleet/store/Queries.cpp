// SPDX-License-Identifier: Apache-2.0
// The texts of fleet/queries, as they are built into the program.

#include "fleet/store/Queries.h"

#include <ctype.h>

#include <stdexcept>

// In the assembler file that the build makes of the folder; a null name ends it.
extern "C" const struct {
    const char* name;
    const char* text;
} kFleetQueries[];

namespace fleet {

namespace {

bool isOfName(char c) {
    return c == '_' || isalnum(static_cast<unsigned char>(c)) != 0;
}

}  // namespace

const char* queryText(const std::string& name) {
    for (const auto* query = kFleetQueries; query->name != nullptr; ++query) {
        if (query->name == name) return query->text;
    }
    throw std::logic_error("no query " + name);
}

std::string fillIn(const std::string& query,
                   const std::function<std::string(const std::string& name)>& replace) {
    std::string filled;
    for (size_t at = 0; at < query.size();) {
        if (query.compare(at, 2, "--") == 0) {
            at = query.find('\n', at);
            if (at == std::string::npos) break;
        } else if (query[at] == ':' && at + 1 < query.size() && isOfName(query[at + 1])) {
            const size_t begin = ++at;
            while (at < query.size() && isOfName(query[at])) ++at;
            filled += replace(query.substr(begin, at - begin));
        } else {
            filled += query[at++];
        }
    }
    return filled;
}

}  // namespace fleet
