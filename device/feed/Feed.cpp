// SPDX-License-Identifier: Apache-2.0
// Makes events of the boot profile out of what a stock framework logs about its own boot.

#include "device/feed/Feed.h"

#include <inttypes.h>
#include <stdio.h>
#include <stdlib.h>

#include <algorithm>
#include <functional>

namespace {

constexpr uid_t kRoot = 0;
constexpr uid_t kSystem = 1000;  // of every device
constexpr uint64_t kSignPeriod = 1000;
constexpr uint64_t kAnyTime = UINT64_MAX;
constexpr size_t kMostKnown = 8192;
constexpr size_t kLongestEvent = 160;  // that the driver takes

// An event's tag, by name and, as logcat prints one whose name it doesn't know, by number.
struct Tag {
    const char* name;
    const char* number;

    bool operator==(const std::string& text) const {
        return text == name || text == number;
    }
};

// Any app may log any event: only these users' count.
struct Milestone {
    Tag tag;
    uid_t uid;
    const char* events[2];
};

constexpr Milestone kMilestones[] = {
        {{"boot_progress_start", "[3000]"}, kRoot, {"boot_progress_start"}},
        {{"boot_progress_preload_start", "[3020]"}, kRoot, {"Zygote:Preload Start"}},
        {{"boot_progress_preload_end", "[3030]"}, kRoot, {"Zygote:Preload End"}},
        {{"boot_progress_system_run", "[3010]"}, kSystem, {"Android:SysServerInit_START"}},
        {{"boot_progress_pms_start", "[3060]"}, kSystem, {"Android:PackageManagerService_Start"}},
        {{"boot_progress_pms_system_scan_start", "[3070]"}, kSystem, {"Android:PMS_scan_START"}},
        {{"boot_progress_pms_data_scan_start", "[3080]"}, kSystem, {"PMS_data_scan_START"}},
        {{"boot_progress_pms_scan_end", "[3090]"}, kSystem, {"Android:PMS_scan_END"}},
        {{"boot_progress_pms_ready", "[3100]"}, kSystem, {"Android:PMS_READY"}},
        // Logged inside systemReady(): it stands for both.
        {{"boot_progress_ams_ready", "[3040]"}, kSystem, {"AMS:systemReady", "AMS:AMS_READY"}},
        {{"boot_progress_enable_screen", "[3050]"}, kSystem, {"AMS:ENABLE_SCREEN"}},
};

// Signs of progress beside the milestones, all of them the system server's.
struct Sign {
    Tag tag;
    int field;  // of the message's list that belongs to the event; -1: none, 0: all of the message
};

constexpr Sign kSigns[] = {
        {{"am_proc_start", "[30014]"}, 4},  // [user, pid, uid, process, ...]
        {{"watchdog", "[2802]"}, 0},
        {{"wm_boot_animation_done", "[31007]"}, -1},
};

std::string fieldOf(const std::string& message, int field) {
    if (field == 0) return message;
    size_t from = 1;  // after the bracket
    for (; field > 1 && from != 0; --field) from = message.find(',', from) + 1;
    return from == 0 || message.size() < from
                   ? ""
                   : message.substr(from, message.find_first_of(",]", from) - from);
}

// In the form that the driver takes: short, printable, and no separator of the profile's.
std::string asEvent(std::string text) {
    text.resize(std::min(text.size(), kLongestEvent));
    text.erase(text.find_last_not_of(' ') + 1);  // as the driver does
    for (size_t i = 0; i < text.size(); ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        if (byte < ' ' || byte == 0x7f || (byte == ':' && i > 0 && text[i - 1] == ' '))
            text[i] = '?';
    }
    return text;
}

// Ten digits at most, as the driver takes them.
bool readTime(const std::string& message, uint64_t& ms) {
    if (message.empty() || message.size() > 10) return false;
    ms = strtoull(message.c_str(), nullptr, 10);
    return message.find_first_not_of("0123456789") == std::string::npos;
}

std::string lineOf(uint64_t ms, pid_t pid, const char* process, const std::string& event) {
    char head[64];
    snprintf(head, sizeof(head), "@%" PRIu64 " :%d-%s :", ms, pid, process);
    return head + event + "\n";
}

}  // namespace

// "  14355.000000 : 1113-system_server   : AMS:systemReady"
Feed::Feed(const std::string& profile) {
    for (size_t from = 0, end = 0; from < profile.size(); from = end + 1) {
        end = std::min(profile.find('\n', from), profile.size());
        const std::string line = profile.substr(from, end - from);
        uint64_t ms = 0;
        int pid = 0;
        int name = 0;
        if (sscanf(line.c_str(), "%" SCNu64 ".%*u :%d-%n", &ms, &pid, &name) != 2) continue;
        const size_t event = line.find(" : ", static_cast<size_t>(name));
        if (event == std::string::npos) continue;
        const std::string_view text = std::string_view(line).substr(event + 3);
        isNew(ms, pid, text);
        isNew(kAnyTime, pid, text);
    }
}

std::vector<std::string> Feed::eventsOf(const LogLine& line, uint64_t now) {
    std::vector<std::string> events;
    for (const Milestone& milestone : kMilestones) {
        uint64_t ms = 0;
        if (!(milestone.tag == line.tag) || line.uid != milestone.uid ||
            !readTime(line.message, ms)) {
            continue;
        }
        const char* const process = milestone.uid == kRoot ? "zygote" : "system_server";
        ms = std::min(ms, now);  // the driver takes nothing from the future
        for (const char* event : milestone.events) {
            if (event == nullptr || !isNew(ms, line.pid, event)) continue;
            events.push_back(lineOf(ms, line.pid, process, event));
        }
    }
    for (const Sign& sign : kSigns) {
        if (!(sign.tag == line.tag) || line.uid != kSystem) continue;
        const std::string event =
                asEvent(sign.field < 0 ? sign.tag.name
                                       : std::string(sign.tag.name) + ":" +
                                                 fieldOf(line.message, sign.field));
        if (!isNew(kAnyTime, line.pid, event) || now < mNextSign) continue;
        mNextSign = now + kSignPeriod;
        events.push_back(lineOf(now, line.pid, "system_server", event));
    }
    return events;
}

bool Feed::isNew(uint64_t ms, pid_t pid, std::string_view event) {
    const std::string key =
            std::to_string(ms) + " " + std::to_string(pid) + " " + std::string(event);
    if (!mKnown.insert(std::hash<std::string>()(key)).second) return false;
    mInOrder.push_back(std::hash<std::string>()(key));
    if (mInOrder.size() > kMostKnown) {
        mKnown.erase(mInOrder.front());
        mInOrder.pop_front();
    }
    return true;
}
