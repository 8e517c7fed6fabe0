// SPDX-License-Identifier: Apache-2.0
// Tests of the count of named stalls: the same seed gives the same tables, and plain cases come out
// as they must.

#include "lab/random/Attribution.h"

#include <gtest/gtest.h>

#include "lab/base/TemporaryFolder.h"
#include "lab/device/DeviceRoot.h"

namespace {

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
    const lab::TemporaryFolder temporary(lab::TemporaryFolder::inMemory());
    lab::copyDeviceTools(temporary.path() + "/tools");
    const auto measure = [&](uint64_t seed, int jobs) {
        return lab::measureAttribution({seed, 22, jobs, true}, temporary.path());
    };
    const auto table = measure(3, 2);
    EXPECT_EQ(table, measure(3, 3));
    EXPECT_NE(table, measure(8, 2));
    for (const char* kind :
         {"before the system server, then silence", "in the system server, then silence"}) {
        EXPECT_EQ(cells(table, kind).rfind("|2|2 / 0 / 0|2 / 0 / 0|2 / 0 / 0|", 0), 0U)
                << cells(table, kind);
    }
    EXPECT_EQ(cells(table, "in package optimisation"),
              "|2|0 / 2 / 0|0 / 2 / 0|0 / 2 / 0|-, -, -|0|");
    EXPECT_EQ(cells(table, "package optimisation, counting"), "|2|0|0|0|0|0|0|0 / 0|");
}

}  // namespace
