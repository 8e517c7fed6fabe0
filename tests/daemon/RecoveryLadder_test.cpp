// SPDX-License-Identifier: Apache-2.0
// Every device that boots can lead to, for each recovery list: what the walk promises holds in all.

#include <ostream>
#include <set>
#include <tuple>

#include "bootvigil/BfRecovery.h"
#include "bootvigil/BootState.h"
#include "lab/base/Files.h"
#include "lab/base/Text.h"
#include "tests/daemon/DeviceTest.h"

using namespace lab;

namespace {

struct Ladder {
    const char* name;
    int reason;
    const char* overrideList;  // content of the override file, null without one
    std::vector<int> steps;    // what a run of failures may come to, in this order
};

void PrintTo(const Ladder& ladder, std::ostream* out) {
    *out << ladder.name;
}

const Ladder kLadders[] = {
        {"Stall", 100, nullptr, {1, 2, 5}},
        {"SystemError", 20, nullptr, {1, 2, 5}},
        {"Reason21", 21, nullptr, {1, 5}},
        {"ReportedAfterBoot", 22, nullptr, {1, 5}},
        {"Reason23", 23, nullptr, {1, 5}},
        {"Reason99", 99, nullptr, {5, 1}},
        {"LateSystemError", 120, nullptr, {1, 2, 5}},
        {"NoReset", 100, "100|11200", {1, 1, 2}},
        {"FiveSteps", 120, "20|00000\n120|12152\n", {1, 2, 1, 5, 2}},
        {"ResetsOnly", 100, "100|55555", {5, 5, 5, 5, 5}},
        {"UnknownMode", 21, "21|13500", {1, 3, 5}},
        {"EndsEarly", 22, "22|20515", {2}},
        {"TooShort", 100, "100|125", {}},
        {"OtherReason", 23, "100|12500", {}},
};

constexpr char kMissing[] = "<missing>";

enum Outcome { GOOD, STALL, RESET, FIRST_BOOT, SWITCH, OUTCOMES };
const char* const kOutcomeNames[] = {"good boot", "stall", "reset", "stall of a first boot",
                                     "recovery switched off or on"};

// What lasts from one boot to the next.
struct Device {
    std::string history = kMissing;
    std::string bootReason = "cold";  // of the next boot
    bool wiped = false;
    bool disabled = false;

    bool operator<(const Device& other) const {
        return std::tie(history, bootReason, wiped, disabled) <
               std::tie(other.history, other.bootReason, other.wiped, other.disabled);
    }
};

class RecoveryLadderTest : public DeviceTest, public testing::WithParamInterface<Ladder> {
protected:
    static void put(const std::string& path, const std::string& content) {
        if (content == kMissing) return remove(path);
        write(path, content);
    }

    // A new process on what the boots before have left; the uploader has collected its report.
    // Gives whether the daemon takes it for a first boot.
    static bool startBoot(const Device& device) {
        put(kHistory, device.history);
        put(kMarker, device.wiped ? kMissing : "");
        put(kSwitch, device.disabled ? "BfRecover=NO\n" : kMissing);
        put(kSuccessUpload, kMissing);
        setProperty("sys.boot.reason", device.bootReason);
        setProperty(kRebootRequest, "");
        setProperty(kResetRequest, "");
        setBFReason(0);
        return checkFirstBootInNative();
    }

    // The boot must have done just this.
    void endBoot(Device& device, int action, const std::string& history,
                 const std::string& report) {
        takeLog();
        EXPECT_EQ(property(kRebootRequest), action == 1 ? "1" : "");
        EXPECT_EQ(property(kResetRequest), action == 5 ? "1" : "");
        EXPECT_EQ(read(kHistory), history);
        EXPECT_EQ(read(kSuccessUpload), report);
        device = {history, action == 1 ? "reboot,velarecovery" : "cold,powerkey", !exists(kMarker),
                  device.disabled};
    }

    // A run of failures takes the list's steps one by one and then nothing any more. It ends with a
    // good boot, with a reset that a first boot makes needless, and with the first failure of a
    // boot that is neither the first one after a reset. Gives what the platform is asked for.
    int fail(Device& device) {
        const int reason = GetParam().reason;
        const std::vector<int>& steps = GetParam().steps;
        const bool first = startBoot(device);
        setBFReason(static_cast<uint8_t>(reason));
        const bool acted = BfRecovery().runRecovery(reason, first);

        std::string history = device.history;
        if (!device.disabled && !first && history[1] == '5') history = kMissing;
        const size_t taken = history == kMissing ? 0 : static_cast<size_t>(history[0] - '0');
        int action = 0;
        if (!device.disabled && taken < steps.size()) {
            action = steps[taken];
            history =
                    std::to_string(taken + 1) + std::to_string(action) + static_cast<char>(reason);
        }
        EXPECT_EQ(acted, action == 1 || action == 2 || action == 5);
        if (action == 5 && first) {
            history = kMissing;
            action = 0;
        }
        endBoot(device, action, history, kMissing);
        return action;
    }

    // A success is reported once, for the action that brought this boot about.
    void succeed(Device& device) {
        const int reason = GetParam().reason;
        startBoot(device);
        BfRecovery recovery;
        const bool early = recovery.checkIfRecoverySuccess(1);
        const bool earlyReport = exists(kSuccessUpload);
        const bool late = recovery.checkIfRecoverySuccess(2);

        const bool judged = !device.disabled && device.history != kMissing;
        const int action = judged ? device.history[1] - '0' : 0;
        const bool byAction = (action == 1 && device.bootReason == "reboot,velarecovery") ||
                              (action == 5 && device.bootReason == "reboot,factory_reset");
        const bool success = byAction || action == 2 || action == 3;
        EXPECT_EQ(early, reason <= 100 && success);
        EXPECT_EQ(late, reason > 100 && success);
        EXPECT_EQ(earlyReport, reason <= 100 && byAction);
        endBoot(device, 0, device.disabled ? device.history : kMissing,
                byAction ? format("BFRECOVERY|%d|Sun Nov 15 11:00:00 2026|%d", action, reason)
                         : kMissing);
    }

    static void wipe(Device& device, const char* bootReason) {
        device.wiped = true;
        device.bootReason = bootReason;
    }

    void happen(int outcome, Device& device) {
        if (outcome == GOOD) succeed(device);
        if (outcome == STALL) fail(device);
        // Asked for by the daemon or by a person; what follows is the next outcome.
        if (outcome == RESET) wipe(device, "reboot,factory_reset");
        if (outcome == FIRST_BOOT) {  // /data is new without a reset, as after flashing
            wipe(device, "cold");
            fail(device);
        }
        if (outcome == SWITCH) device.disabled = !device.disabled;
    }

    // Left alone, where every boot stalls and the platform does what it is asked for, the device
    // comes to rest: nothing restarts it for ever.
    void expectRest(Device device) {
        for (size_t boots = 0; boots <= GetParam().steps.size(); ++boots) {
            const int action = fail(device);
            if (action == 5) wipe(device, "reboot,factory_reset");
            if (action != 1 && action != 5) return;
        }
        ADD_FAILURE() << "still restarting";
    }
};

TEST_P(RecoveryLadderTest, HoldsOnEveryDeviceThatBootsCanLeadTo) {
    makeFolders(kMarkerFolder);
    // An earlier test of this process may have left modes in the table of the override file.
    write(kOverride, "1|00000");
    EXPECT_FALSE(BfRecovery().runRecovery(1, false));
    remove(kOverride);
    if (GetParam().overrideList != nullptr) write(kOverride, GetParam().overrideList);

    std::vector<std::pair<Device, std::string>> devices = {{}};  // and how it came about
    std::set<Device> seen = {devices[0].first};
    for (size_t i = 0; i < devices.size(); ++i) {
        const auto [device, path] = devices[i];
        for (int outcome = 0; outcome < OUTCOMES; ++outcome) {
            const std::string now = path + "\n  " + kOutcomeNames[outcome];
            SCOPED_TRACE("after" + now);
            Device after = device;
            happen(outcome, after);
            if (!HasFailure() && seen.insert(after).second) {
                expectRest(after);
                devices.emplace_back(after, now);
            }
            ASSERT_FALSE(HasFailure());
        }
    }
    EXPECT_GE(devices.size(), GetParam().steps.empty() ? 6U : 10U);
}

INSTANTIATE_TEST_SUITE_P(Lists, RecoveryLadderTest, testing::ValuesIn(kLadders),
                         [](const auto& info) { return info.param.name; });

}  // namespace
