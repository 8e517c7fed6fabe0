// SPDX-License-Identifier: Apache-2.0
// Makes up the text of a device's log buffers.

#include "lab/base/LogText.h"

#include <stdio.h>
#include <stdlib.h>

#include <algorithm>
#include <iterator>
#include <sstream>

#include "lab/base/LogTemplates.h"

namespace lab {

namespace {

// How likely a number changes before its group is logged again, in thousandths. It grows with the
// log: one of minutes repeats itself more than one of hours.
constexpr uint32_t kFirstNew = 45;
constexpr uint32_t kMostNew = 555;
constexpr uint32_t kBurstsPerThousandth = 40;

constexpr int kSystemPid = 1497;
struct Process {
    const char* tag;
    int pid;
};
constexpr Process kProcesses[] = {{"SurfaceQueue", 604}, {"SensorHub", 611},   {"AudioRoute", 622},
                                  {"CodecPool", 640},    {"CrashReport", 655}, {"WifiLink", 1702},
                                  {"StatusPanel", 1984}, {"RadioLine", 2037}};

constexpr const char* kPackages[] = {"com.example.browser", "com.example.chat",
                                     "com.example.clock",   "com.example.contacts",
                                     "com.example.mail",    "com.example.launcher",
                                     "com.example.music",   "com.example.photos",
                                     "com.example.weather", "com.example.systemui"};
constexpr const char* kScreens[] = {"DetailScreen", "EditScreen",   "HomeScreen",   "ListScreen",
                                    "MainScreen",   "PlayerScreen", "SearchScreen", "SetupScreen"};

int pidOf(const std::string& tag) {
    const auto* const found =
            std::find_if(std::begin(kProcesses), std::end(kProcesses),
                         [&](const Process& process) { return tag == process.tag; });
    return found == std::end(kProcesses) ? kSystemPid : found->pid;
}

template <typename List>
const char* pick(const List& list, uint32_t value) {
    return list[value % std::size(list)];
}

// Numbers of more than one digit begin with no 0.
void appendNumber(uint32_t value, bool hexadecimal, int digits, std::string& text) {
    for (int i = 0; i < digits; ++i) {
        const uint32_t least = !hexadecimal && i == 0 && digits > 1 ? 1 : 0;
        const uint32_t base = (hexadecimal ? 16 : 10) - least;
        text += "0123456789abcdef"[least + value % base];
        value /= base;
    }
}

template <typename Values>
void appendMessage(const std::string& message, const Values& values, std::string& text) {
    for (size_t i = 0; i < message.size(); ++i) {
        if (message[i] != '<') {
            text += message[i];
            continue;
        }
        const char letter = message[++i];
        const bool hexadecimal = letter < 'a';
        const uint32_t value = values[static_cast<size_t>(letter - (hexadecimal ? 'A' : 'a'))];
        if (letter == 'p') {
            text += pick(kPackages, value);
        } else if (letter == 's') {
            text += pick(kScreens, value);
        } else {
            appendNumber(value, hexadecimal, message[++i] - '0', text);
        }
        ++i;
    }
}

const char* templatesOf(LogText::Buffer buffer) {
    if (buffer == LogText::Buffer::MAIN) return kMainTemplates;
    return buffer == LogText::Buffer::CRASH ? kCrashTemplates : kKernelTemplates;
}

}  // namespace

LogText::LogText(Buffer buffer, uint64_t seed) : mBuffer(buffer), mRandom(seed) {
    parse(templatesOf(buffer));
}

void LogText::parse(const char* templates) {
    std::istringstream input(templates);
    std::string line;
    uint32_t end = 0;
    while (std::getline(input, line)) {
        if (line.empty()) continue;
        if (line[0] == '=') {
            end += static_cast<uint32_t>(atoi(&line[1]));
            mGroups.push_back({end, {}, {}});
            for (uint32_t& value : mGroups.back().values) {
                value = static_cast<uint32_t>(mRandom() >> 32);
            }
        } else if (line[0] == ' ') {
            mGroups.back().lines.back().message += line.substr(1);
        } else if (mBuffer == Buffer::KERNEL) {
            mGroups.back().lines.push_back({"", line, 0});
        } else {
            const size_t space = line.find(' ', 2);
            mGroups.back().lines.push_back({line.substr(0, space) + ": ", line.substr(space + 1),
                                            pidOf(line.substr(2, space - 2))});
        }
    }
}

// Not a distribution of the standard library: each library has its own.
uint32_t LogText::below(uint32_t limit) {
    return static_cast<uint32_t>(mRandom() % limit);
}

void LogText::renew(Values& values) {
    const uint32_t chance = std::min(kMostNew, kFirstNew + mBursts++ / kBurstsPerThousandth);
    for (uint32_t& value : values) {
        if (below(1000) < chance) value = static_cast<uint32_t>(mRandom() >> 32);
    }
}

void LogText::append(std::string& text) {
    const uint32_t place = below(mGroups.back().end);
    Group& group = *std::find_if(mGroups.begin(), mGroups.end(),
                                 [&](const Group& one) { return place < one.end; });
    renew(group.values);
    const int64_t gap = below(1000U << below(10));
    mTime += mBuffer == Buffer::CRASH ? 5000 * gap : gap;
    for (const Line& line : group.lines) {
        appendHead(line, group.values['t' - 'a'], text);
        appendMessage(line.message, group.values, text);
        text += '\n';
        if (below(4) == 0) mTime += below(3000);
    }
}

void LogText::appendHead(const Line& line, uint32_t thread, std::string& text) const {
    char head[64];
    const auto seconds = static_cast<int>(mTime / 1000000);
    const auto fraction = static_cast<int>(mTime % 1000000);
    if (mBuffer == Buffer::KERNEL) {
        snprintf(head, sizeof(head), "[%5d.%06d] ", seconds, fraction);
    } else {
        const int day = 14 + seconds / 86400;  // of months with 28 days, from November on
        snprintf(head, sizeof(head), "%02d-%02d %02d:%02d:%02d.%03d %5d %5d ",
                 (10 + day / 28) % 12 + 1, day % 28 + 1, seconds / 3600 % 24, seconds / 60 % 60,
                 seconds % 60, fraction / 1000, line.pid, line.pid + static_cast<int>(thread % 24));
    }
    text += head;
    text += line.head;
}

}  // namespace lab
