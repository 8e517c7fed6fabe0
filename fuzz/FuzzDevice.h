// SPDX-License-Identifier: Apache-2.0
// What every fuzzer needs: a device's folders beside the workstation's own, the calls by which the
// daemon would end or reach other processes, and its log.

#pragma once

#include <stdint.h>
#include <sys/types.h>

#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace fuzz {

// Ends the fuzzer with one line; libFuzzer saves the input.
[[noreturn]] void fault(const std::string& what);

// A fault that shows both values unless they are equal.
void expectEqual(const std::string& what, const std::string& is, const std::string& shouldBe);
void expectEqual(const std::string& what, long is, long shouldBe);

// The texts of an input, which lines of "==" separate.
std::vector<std::string> texts(const uint8_t* data, size_t size);

// Small files below /velafs, /data and /dev/__properties__; none when there is no such text.
void write(const std::string& path, const std::optional<std::string>& content);
std::string read(const std::string& path);  // "<missing>" when it isn't there
void setProperty(const std::string& name, const std::optional<std::string>& value);

// How a value reads that properties keep: cut at 91 bytes and its first NUL.
std::string propertyValue(const std::optional<std::string>& value, const std::string& ifEmpty);

// What the daemon does to the world while this object lives: it is recorded and has no effect.
class Watch {
public:
    Watch();
    ~Watch();
    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;

    std::vector<std::pair<pid_t, int>> signals;
    unsigned int slept = 0;        // seconds
    std::vector<std::string> log;  // texts as logged, where `keepLog` is set
    bool keepLog = false;

    // Where set, serves every read(2) of the daemon.
    std::function<ssize_t(char* buffer, size_t size)> onRead;
};

}  // namespace fuzz
