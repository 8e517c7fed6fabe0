// SPDX-License-Identifier: Apache-2.0
// Tests of the count of named stalls: the same seed gives the same tables, and plain cases come out
// as they must.

#include "lab/random/Attribution.h"

#include <gtest/gtest.h>

namespace {

using lab::measureAttribution;

// The cells of the row that begins with `kind`, without padding, joined by "|".
std::string cells(const std::vector<std::string>& table, const std::string& kind) {
    for (const std::string& line : table) {
        if (line.rfind("| " + kind + " ", 0) != 0) continue;
        std::string row;
        for (size_t i = kind.size() + 2; i < line.size(); ++i) {
            const bool padding = line[i] == ' ' && (line[i + 1] == ' ' || line[i + 1] == '|');
            if (!padding && !(line[i] == ' ' && line[i - 1] == '|')) row += line[i];
        }
        return row;
    }
    return "no row " + kind;
}

TEST(AttributionTest, PlainCasesComeOutAsTheyMustAndDependOnTheSeedAlone) {
    const auto table = measureAttribution(3, 22, 2, true);
    EXPECT_EQ(table, measureAttribution(3, 22, 3, true));
    EXPECT_NE(table, measureAttribution(8, 22, 2, true));
    for (const char* kind :
         {"before the system server, then silence", "in the system server, then silence"}) {
        EXPECT_EQ(cells(table, kind).rfind("|2|2 / 0 / 0|2 / 0 / 0|2 / 0 / 0|", 0), 0U)
                << cells(table, kind);
    }
    EXPECT_EQ(cells(table, "in package optimisation"),
              "|2|0 / 2 / 0|0 / 2 / 0|0 / 2 / 0|-, -, -|0|");
    EXPECT_EQ(cells(table, "package optimisation, counting"), "|2|0|0|0|0|0|0|");
}

}  // namespace
