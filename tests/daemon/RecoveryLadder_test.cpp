// SPDX-License-Identifier: Apache-2.0
// Every sequence of six boot outcomes, for each recovery list: what the walk promises holds in all.

#include <unistd.h>

#include <map>
#include <ostream>
#include <set>

#include "bootvigil/BfRecovery.h"
#include "bootvigil/BootState.h"
#include "lab/base/Files.h"
#include "tests/daemon/DeviceTest.h"

namespace {

constexpr const char* kHistory = "/velafs/boot_vigil/recovery_flag.txt";
constexpr const char* kOverride = "/velafs/boot_vigil/recoveryList";
constexpr const char* kDisable = "/velafs/boot_vigil/bfEnable";
constexpr const char* kReport = "/velafs/SDD/bf_upload/recovery_record";
constexpr const char* kMarker = "/data/vela_dfr/firstboot";
constexpr const char* kReboot = "/dev/__properties__/sys.velas_recovery_reboot";
constexpr const char* kReset = "/dev/__properties__/sys.velas_recovery_reset";
constexpr const char* kBootReason = "/dev/__properties__/sys.boot.reason";

using Modes = std::vector<int>;

struct Ladder {
    const char* name;
    int reason;
    const char* overrideList;  // content of the override file, null without one
    Modes steps;               // what a run of failures may come to, in this order
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

enum Outcome { GOOD, STALL, RESET, FIRST_BOOT, SWITCH, OUTCOMES };
const char* const kOutcomeNames[] = {"good boot", "stall", "reset", "stall of a first boot",
                                     "recovery switched off or on"};

constexpr int kDepth = 6;
constexpr int kSequences = 5 + 25 + 125 + 625 + 3125 + 15625;

// What lasts from one boot to the next, with what has been seen of the present run of failures.
struct Device {
    std::map<std::string, std::string> files;  // a missing one isn't there
    std::string bootReason = "cold";           // of the next boot
    Modes taken;                               // steps of the present run of failures

    bool has(const char* path) const {
        return files.count(path) != 0;
    }
    std::string text(const char* path) const {
        return has(path) ? files.at(path) : "<missing>";
    }
};

class RecoveryLadderTest : public DeviceTest, public testing::WithParamInterface<Ladder> {
protected:
    // In memory where that is possible: a disk takes minutes for so many small files.
    RecoveryLadderTest()
        : DeviceTest(access("/dev/shm", W_OK) == 0 ? "/dev/shm/" : testing::TempDir()) {}

    static constexpr const char* kFiles[] = {kHistory, kDisable, kReport,    kMarker,
                                             kReboot,  kReset,   kBootReason};

    // Only what differs is written: most of a boot's time is that of the file system.
    void restore(const std::map<std::string, std::string>& files) {
        for (const char* path : kFiles) {
            const auto wanted = files.find(path);
            const auto there = mOnDisk.find(path);
            if (wanted == files.end()) {
                if (there != mOnDisk.end()) remove(path);
            } else if (there == mOnDisk.end() || there->second != wanted->second) {
                write(path, wanted->second);
            }
        }
        mOnDisk = files;
    }

    // What the daemon may have written or removed.
    void look(Device& device) {
        for (const char* path : {kHistory, kReport, kMarker, kReboot, kReset}) {
            const std::string text = read(path);
            if (text != "<missing>") {
                mOnDisk[path] = text;
            } else {
                mOnDisk.erase(path);
            }
        }
        device.files = mOnDisk;
    }

    // One boot: a new process's state, the properties gone but for the reason of the boot. Gives
    // whether the daemon takes it for a first boot.
    bool startBoot(Device& device) {
        device.files.erase(kReboot);
        device.files.erase(kReset);
        device.files.erase(kReport);  // the uploader has collected it
        device.files[kBootReason] = device.bootReason;
        restore(device.files);
        setBFReason(0);
        return checkFirstBootInNative();
    }

    // What has happened in the boot is in `device` afterwards.
    void endBoot(Device& device) {
        look(device);
        takeLog();
        device.bootReason = device.has(kReboot) ? "reboot,velarecovery" : "cold,powerkey";
        EXPECT_TRUE(!device.has(kHistory) || device.files[kHistory].size() == 3);
        EXPECT_FALSE(device.has(kReboot) && device.has(kReset));
    }

    // A run of failures takes the list's steps one by one and then nothing any more. It ends with a
    // good boot, with a reset that a first boot makes needless, and with the first failure of a
    // boot that is neither the first one after a reset.
    void fail(Device& device) {
        const bool disabled = device.has(kDisable);
        const std::string before = device.text(kHistory);
        const bool first = startBoot(device);
        setBFReason(static_cast<uint8_t>(GetParam().reason));
        BfRecovery recovery;
        const bool acted = recovery.runRecovery(GetParam().reason, first);
        endBoot(device);

        const bool reboots = device.has(kReboot);
        const bool resets = device.has(kReset);
        EXPECT_FALSE(resets && first) << "a reset in a first boot";
        EXPECT_FALSE(device.has(kReport)) << "a failure was reported as success";
        if (disabled) {
            EXPECT_FALSE(acted || reboots || resets) << "an action while disabled";
            EXPECT_EQ(device.text(kHistory), before);
            return;
        }
        const Modes& steps = GetParam().steps;
        if (!first && !device.taken.empty() && device.taken.back() == 5) device.taken.clear();
        int expected = 0;
        if (device.taken.size() < steps.size()) {
            expected = steps[device.taken.size()];
            device.taken.push_back(expected);
        }
        EXPECT_EQ(reboots, expected == 1);
        EXPECT_EQ(resets, expected == 5 && !first);
        EXPECT_EQ(acted, expected == 1 || expected == 2 || expected == 5);
        if (expected == 5 && first) device.taken.clear();
        EXPECT_EQ(device.has(kHistory), !device.taken.empty());
    }

    // A success is reported once, for the action that brought this boot about.
    void succeed(Device& device) {
        const bool disabled = device.has(kDisable);
        const std::string bootReason = device.bootReason;
        startBoot(device);
        BfRecovery recovery;
        const bool early = recovery.checkIfRecoverySuccess(1);
        const bool earlyReport = exists(kReport);
        const bool late = recovery.checkIfRecoverySuccess(2);
        endBoot(device);

        const int action = disabled || device.taken.empty() ? 0 : device.taken.back();
        const bool byAction = (action == 1 && bootReason == "reboot,velarecovery") ||
                              (action == 5 && bootReason == "reboot,factory_reset");
        const bool judgedLate = GetParam().reason > 100;
        EXPECT_EQ(early, !judgedLate && (byAction || action == 2 || action == 3));
        EXPECT_EQ(late, judgedLate && (byAction || action == 2 || action == 3));
        EXPECT_EQ(earlyReport, byAction && !judgedLate);
        const std::string report = "BFRECOVERY|" + std::to_string(action) +
                                   "|Sun Nov 15 11:00:00 2026|" + std::to_string(GetParam().reason);
        EXPECT_EQ(device.text(kReport), byAction ? report : "<missing>");
        EXPECT_FALSE(device.has(kReboot) || device.has(kReset));
        if (!disabled) {
            EXPECT_FALSE(device.has(kHistory)) << "the walk does not start anew";
            device.taken.clear();
        }
    }

    static void wipe(Device& device, const char* bootReason) {
        device.files.erase(kMarker);
        device.bootReason = bootReason;
    }

    void happen(Outcome outcome, Device& device) {
        switch (outcome) {
            case GOOD:
                succeed(device);
                break;
            case STALL:
                fail(device);
                break;
            case RESET:  // asked for by the daemon or by a person; what follows is the next outcome
                wipe(device, "reboot,factory_reset");
                break;
            case FIRST_BOOT:  // /data is new without a reset, as after flashing
                wipe(device, "cold");
                fail(device);
                break;
            default:
                if (device.files.erase(kDisable) == 0) device.files[kDisable] = "BfRecover=NO\n";
        }
    }

    // Left alone, where every boot stalls and the platform does what it is asked for, the device
    // comes to rest: nothing restarts it for ever.
    void expectRest(Device device) {
        const size_t most = GetParam().steps.size();
        for (size_t boots = 0; boots <= most; ++boots) {
            fail(device);
            if (device.has(kReset)) {
                wipe(device, "reboot,factory_reset");
            } else if (!device.has(kReboot)) {
                return;
            }
        }
        ADD_FAILURE() << "still restarting after " << most << " actions";
    }

    void walk(const Device& device, int depth) {
        // Two devices that hold the same go on in the same way.
        std::string state = device.bootReason;
        for (const char* path : {kHistory, kDisable, kMarker}) {
            state += "|" + device.text(path);
        }
        if (mRested.insert(state).second) expectRest(device);
        if (depth == kDepth) return;
        for (int outcome = 0; outcome < OUTCOMES && !HasFailure(); ++outcome) {
            mPath.push_back(kOutcomeNames[outcome]);
            ++mSequences;
            Device after = device;
            happen(static_cast<Outcome>(outcome), after);
            if (HasFailure()) return;  // mPath tells where
            walk(after, depth + 1);
            if (HasFailure()) return;
            mPath.pop_back();
        }
    }

    std::map<std::string, std::string> mOnDisk;  // of kFiles
    std::set<std::string> mRested;
    std::vector<std::string> mPath;
    int mSequences = 0;
};

TEST_P(RecoveryLadderTest, HoldsInEverySequenceOfOutcomes) {
    lab::makeFolders("/data/vela_dfr");
    // An earlier test of this process may have left modes in the table of the override file.
    write(kOverride, "1|00000");
    EXPECT_FALSE(BfRecovery().runRecovery(1, false));
    remove(kOverride);
    if (GetParam().overrideList != nullptr) write(kOverride, GetParam().overrideList);

    Device device;
    device.files[kMarker] = "";
    walk(device, 0);
    std::string path;
    for (const std::string& outcome : mPath) path += "\n  " + outcome;
    ASSERT_FALSE(HasFailure()) << "after" << path;
    EXPECT_EQ(mSequences, kSequences);
}

INSTANTIATE_TEST_SUITE_P(Lists, RecoveryLadderTest, testing::ValuesIn(kLadders),
                         [](const auto& info) { return info.param.name; });

}  // namespace
