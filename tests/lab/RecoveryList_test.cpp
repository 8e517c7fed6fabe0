// SPDX-License-Identifier: Apache-2.0
// The override list of recovery actions: daemon, rules and report read every line alike.

#include <stdexcept>

#include "bootvigil/BfRecovery.h"
#include "lab/base/Text.h"
#include "lab/rules/Reading.h"
#include "report/read/Recovery.h"
#include "tests/daemon/DeviceTest.h"

namespace {

constexpr const char* kLists[] = {"100|12500",  "100|125",    "100||21500", "100|1250|0",
                                  " 100|15000", "100 |25000", "100|51000 ", "100| 5200",
                                  "100|  521",  "100|5 0 0",  "100x|55100", "x100|11111",
                                  "+100|52000", "-100|11111", "0100|15200", "1e2|11111",
                                  "100|99:;<",  "100|-1000",  "100|12500x", "100,22222",
                                  "|100|11111", "100|\t1250", "100|5111\r", "100|5000\r\n",
                                  "100|",       "100",        "",           "\n\n",
                                  "100|   ",    "   |12500",  "| "};
constexpr const char* kLongLists[] = {"100|\xe9\x80\xff/.",     "100|125000000",
                                      "100|21000\n100|52100",   "100|22222\n100|1",
                                      "100|15555\n7|11111\n\n", "4294967396|12345",
                                      "100|12121\n   |12500"};

// What the report says of the first step.
std::string nextStep(const std::optional<std::string>& modes) {
    if (!modes || modes->find_first_not_of('0') == std::string::npos) {
        return "nothing: no list for this reason";
    }
    const int mode = lab::digitAt(*modes, 0);
    return mode > 0 ? report::modeName(mode) : "nothing more: the list is exhausted";
}

class RecoveryListTest : public DeviceTest {
protected:
    void expectAlike(const std::string& list) {
        write(lab::kOverride, list);
        std::vector<int> daemons, rules;  // none where reading it ends the process
        try {
            BfRecovery recovery;
            recovery.runRecovery(100, false);
            daemons.assign(recovery.mRecoveryList, recovery.mRecoveryList + 5);
        } catch (const std::out_of_range&) {
        }
        try {
            const auto read = lab::readOverride(lab::linesOf(list), 100);
            mTaken += read.has_value() ? 1 : 0;
            mTable = read.value_or(mTable);
            for (size_t i = 0; i < mTable.size(); ++i) rules.push_back(lab::digitAt(mTable, i));
            EXPECT_EQ(report::readRecovery({{}, {}, list}, 100).next, nextStep(read)) << list;
        } catch (const lab::MustEnd& end) {
            EXPECT_EQ(end.signal, SIGABRT);
            EXPECT_EQ(report::readRecovery({{}, {}, list}, 100).next,
                      "nothing: the daemon dies of a blank field in the pushed list")
                    << list;
        }
        EXPECT_EQ(rules, daemons) << "\"" << list << "\"";
    }

    std::string mTable = "00000";  // the daemon's outlives a list, and so does the rules'
    int mTaken = 0;
};

TEST_F(RecoveryListTest, DaemonRulesAndReportReadItAlike) {
    for (const char* list : kLists) expectAlike(list);
    for (const char* list : kLongLists) expectAlike(list);
    EXPECT_GT(mTaken, 10);
}

}  // namespace
