// SPDX-License-Identifier: Apache-2.0
// Tests of what becomes of a text in a query for ClickHouse. Its answers are tested on real
// servers.

#include "fleet/store/ClickHouse.h"

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(ClickHouseTest, NoTextLeavesItsLiteral) {
    const std::pair<std::string, std::string> texts[] = {
            {"", "''"},
            {"system_server", "'system_server'"},
            {"it's", R"('it\'s')"},
            {R"(\)", R"('\\')"},
            {R"(\' OR 1=1 --)", R"('\\\' OR 1=1 --')"},
            {"größe", "'größe'"},
            {std::string("a\0b\n\x7f", 5), R"('a\x00b\x0a\x7f')"},
    };
    for (const auto& [text, literal] : texts) EXPECT_EQ(fleet::quoted(text), literal);
}

}  // namespace
