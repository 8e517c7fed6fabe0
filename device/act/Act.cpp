// SPDX-License-Identifier: Apache-2.0
// What the platform does about the daemon's requests.

#include "device/act/Act.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <vector>

#include <android-base/parseint.h>
#include <android-base/stringprintf.h>
#include <android-base/strings.h>
#include <cutils/properties.h>

#include "device/act/SafeFile.h"

namespace act {

namespace {

using android::base::StringPrintf;

// Outside /velafs and /data: neither a lost partition nor a data reset gives the device more.
constexpr const char* kBudgetFolder = "/metadata/bootvigil";
constexpr const char* kRefusals = "/velafs/boot_vigil/refused";
constexpr const char* kRecoveryCommand = "/cache/recovery/command";
constexpr const char* kWipe = "--wipe_data\n--reason=bootvigil\n";
constexpr const char* kClockOffset = "sys.bootvigil.clock_offset";

constexpr size_t kMostBudget = 8192;         // bytes
constexpr size_t kMostRefusals = 65536;      // likewise
constexpr size_t kKeptRefusals = 20;         // lines
constexpr int64_t kClockSlack = 60;          // seconds; a clock that is slewed is not set
constexpr int64_t kLeastClock = 1577836800;  // 2020; no device is older

// To the kernel log: the log daemon's buffers go with the reboot.
void say(const std::string& text) {
    const int fd = open("/dev/kmsg", O_WRONLY | O_APPEND | O_CLOEXEC);
    if (fd < 0) return;
    const std::string line = "<4>bootvigil-act: " + text + "\n";
    // One call is one line there; nobody is left to be told of a failure.
    if (write(fd, line.data(), line.size()) < 0) errno = 0;
    close(fd);
}

std::string property(const char* name) {
    char value[PROPERTY_VALUE_MAX] = {};
    property_get(name, value, "");
    return value;
}

// A product's own number, or the usual one where the property is not set or out of range.
int64_t number(const char* name, int64_t usual, int64_t least, int64_t most) {
    int64_t value = usual;
    return android::base::ParseInt(property(name), &value, least, most) ? value : usual;
}

Limits limits() {
    Limits limits;
    limits.reboots = static_cast<unsigned>(number("ro.bootvigil.reboots", limits.reboots, 0, 30));
    limits.resets = static_cast<unsigned>(number("ro.bootvigil.resets", limits.resets, 0, 30));
    limits.seconds = number("ro.bootvigil.budget_hours", limits.seconds / 3600, 1, 10000) * 3600;
    limits.boots = static_cast<uint64_t>(
            number("ro.bootvigil.budget_boots", static_cast<int64_t>(limits.boots), 1, 10000));
    return limits;
}

// What the daemon takes for booted.
bool isUp() {
    return atoi(property("sys.boot_completed").c_str()) != 0 &&
           atoi(property("service.bootanim.exit").c_str()) != 0;
}

int64_t secondsOf(clockid_t clock) {
    timespec now = {};
    clock_gettime(clock, &now);
    return now.tv_sec;
}

int64_t clockOffset() {
    return secondsOf(CLOCK_REALTIME) - secondsOf(CLOCK_BOOTTIME);
}

// A clock is trusted that was not set in this boot, is not older than the build, and does not lie
// before one that was trusted.
Clock trustedClock(const Ledger& ledger) {
    int64_t atStart = 0;
    if (!android::base::ParseInt(property(kClockOffset), &atStart)) return std::nullopt;
    if (std::abs(clockOffset() - atStart) > kClockSlack) return std::nullopt;
    const int64_t now = secondsOf(CLOCK_REALTIME);
    const int64_t built = number("ro.build.date.utc", 0, 0, INT64_MAX);
    if (now < std::max({kLeastClock, built, ledger.clock})) return std::nullopt;
    return now;
}

std::string budgetFolder() {
    const std::string folder = property("ro.bootvigil.budget_dir");
    return folder.empty() ? kBudgetFolder : folder;
}

std::string budgetPath() {
    return budgetFolder() + "/budget";
}

// While it lives, no other process of this program reads or writes the budget. Without the folder
// there is none to write.
class Lock {
public:
    Lock() : mFolder(open(budgetFolder().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
        if (mFolder >= 0) TEMP_FAILURE_RETRY(flock(mFolder, LOCK_EX));
    }
    ~Lock() {
        if (mFolder >= 0) close(mFolder);
    }
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

private:
    const int mFolder;
};

Ledger loadLedger(const Limits& limits) {
    std::string text;
    const Read read = readFile(budgetPath(), kMostBudget, text);
    if (read == Read::MISSING) return {};
    const auto ledger = read == Read::OK ? parseLedger(text) : std::nullopt;
    if (ledger) return *ledger;
    say(budgetPath() + " is damaged: no reset is free, and one reboot");
    return spentLedger(limits);
}

bool saveLedger(const Ledger& ledger) {
    if (replaceFile(budgetPath(), formatLedger(ledger), 0600)) return true;
    say("cannot write " + budgetPath() + ": " + strerror(errno));
    return false;
}

// "Sun Nov 15 11:30:10 2026|reset|spent"; the last ones stay.
void noteRefusal(Action action, Verdict verdict) {
    const time_t now = time(nullptr);
    tm date = {};
    localtime_r(&now, &date);
    char when[64] = "";
    strftime(when, sizeof(when), "%a %b %e %H:%M:%S %Y", &date);

    std::string text;
    readFile(kRefusals, kMostRefusals, text);
    std::vector<std::string> lines = android::base::Split(text, "\n");
    if (lines.back().empty()) lines.pop_back();
    if (lines.size() >= kKeptRefusals) lines.erase(lines.begin(), lines.end() - kKeptRefusals + 1);
    lines.push_back(std::string(when) + "|" + nameOf(action) + "|" + codeOf(verdict));
    if (replaceFile(kRefusals, android::base::Join(lines, "\n") + "\n", 0644)) return;
    say(std::string("cannot write ") + kRefusals + ": " + strerror(errno));
}

std::string wordsFor(Verdict verdict, Action action, const Ledger& ledger, const Limits& limits) {
    switch (verdict) {
        case Verdict::CAME_UP:
            return "the framework has come up";
        case Verdict::IN_USE:
            return "the device is in use";
        case Verdict::SLOW:
            return "the boot before came up late: the device is slow, not stuck";
        case Verdict::SPENT:
            return StringPrintf("the budget is spent (%u of %u)", ledger.spent(action),
                                limits.of(action));
        case Verdict::UNCOUNTED:
            return "it could not be counted";
        case Verdict::NO_COMMAND:
            return "recovery could not be told";
        case Verdict::DO:
            break;
    }
    return "";
}

// Until the framework is up, or for so many seconds.
void awaitUp(int64_t seconds) {
    for (; seconds > 0 && !isUp(); --seconds) sleep(1);
}

// The budget first: an action that a power cut prevents is counted, one that is not counted must
// not be.
Verdict carryOut(Action action, Ledger& ledger) {
    ledger.add(action, trustedClock(ledger));
    if (!saveLedger(ledger)) return Verdict::UNCOUNTED;
    const bool reset = action == Action::RESET;
    if (reset && !replaceFile(kRecoveryCommand, kWipe, 0600)) return Verdict::NO_COMMAND;
    say(reset ? "wiping the data" : "rebooting");
    sync();
    property_set("sys.powerctl", reset ? "reboot,recovery" : "reboot,velarecovery");
    return Verdict::DO;
}

}  // namespace

void start() {
    property_set(kClockOffset, std::to_string(clockOffset()).c_str());
    std::string command;
    if (readFile(kRecoveryCommand, kMostBudget, command) != Read::OK || command != kWipe) return;
    // A power cut came between the command and the reboot; the next start of recovery, for an
    // update perhaps, must not wipe.
    say("taking back a wipe that was not begun");
    remove(kRecoveryCommand);
}

void cameUp() {
    const Lock lock;
    const Limits most = limits();
    Ledger ledger = loadLedger(most);
    const Ledger before = ledger;
    // The daemon outlives a boot's completion by two minutes, unless it gave the boot up before.
    ledger.late = property("init.svc.bootvigil") == "stopped";
    if (!ledger.entries.empty()) ++ledger.boots;
    ledger.prune(trustedClock(ledger), most);
    if (ledger.late && !before.late) say("the boot came up late");
    // A healthy device never writes.
    if (before.empty() && ledger.empty()) return;
    saveLedger(ledger);
}

Verdict answer(Action action) {
    sync();  // the daemon's record must not be lost whatever comes
    const bool reset = action == Action::RESET;
    Situation situation = {action, isUp(), false};
    situation.declared = situation.up && atoi(property("sys.vela.boot_fail_reason").c_str()) != 0;
    say(std::string("asked for a ") + nameOf(action));
    awaitUp(number(reset ? "ro.bootvigil.reset_wait" : "ro.bootvigil.reboot_wait", reset ? 600 : 60,
                   0, 100000));
    situation.up = isUp();

    const Lock lock;
    const Limits most = limits();
    Ledger ledger = loadLedger(most);
    ledger.prune(trustedClock(ledger), most);
    Verdict verdict = decide(situation, ledger, most);
    if (verdict == Verdict::DO) verdict = carryOut(action, ledger);
    if (verdict == Verdict::DO) return verdict;
    say(std::string("refusing the ") + nameOf(action) + ": " +
        wordsFor(verdict, action, ledger, most));
    if (verdict == Verdict::CAME_UP && !ledger.late) {
        ledger.late = true;
        saveLedger(ledger);
    }
    noteRefusal(action, verdict);
    return verdict;
}

}  // namespace act
