// SPDX-License-Identifier: Apache-2.0
// Makes up the text of a device's log buffers.

#pragma once

#include <array>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace lab {

// Log lines without an end: few messages make up most of them, they come in bursts, and a burst
// has the numbers of an earlier one or new ones. The same seed makes the same text everywhere.
class LogText {
public:
    enum class Buffer { MAIN, CRASH, KERNEL };

    LogText(Buffer buffer, uint64_t seed);

    // Appends the next burst, whole lines, to `text`.
    void append(std::string& text);

private:
    using Values = std::array<uint32_t, 26>;  // by letter
    struct Line {
        std::string head;  // priority and tag; empty in the kernel's log
        std::string message;
        int pid;
    };
    struct Group {
        uint32_t end;  // of its share of the weights
        std::vector<Line> lines;
        Values values;  // of its last occurrence
    };

    void parse(const char* templates);
    uint32_t below(uint32_t limit);
    void renew(Values& values);
    void appendHead(const Line& line, uint32_t thread, std::string& text) const;

    Buffer mBuffer;
    std::mt19937_64 mRandom;
    std::vector<Group> mGroups;
    uint32_t mBursts = 0;
    int64_t mTime = 0;  // in microseconds, since the first burst
};

}  // namespace lab
