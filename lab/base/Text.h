// SPDX-License-Identifier: Apache-2.0
// Small helpers for texts.

#pragma once

#include <stdio.h>

#include <algorithm>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace lab {

inline bool startsWith(std::string_view text, std::string_view start) {
    return text.substr(0, start.size()) == start;
}

inline bool endsWith(const std::string& text, const std::string& end) {
    return text.size() >= end.size() &&
           text.compare(text.size() - end.size(), end.size(), end) == 0;
}

inline bool contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

// Without their ends; a last line needs none.
inline std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    for (size_t from = 0, end = 0; from < text.size(); from = end + 1) {
        end = std::min(text.find('\n', from), text.size());
        lines.push_back(text.substr(from, end - from));
    }
    return lines;
}

// What follows `prefix`, without blanks in front; nothing when the text begins otherwise.
inline std::optional<std::string> after(const std::string& text, const std::string& prefix) {
    if (!startsWith(text, prefix)) return std::nullopt;
    const size_t first = text.find_first_not_of(' ', prefix.size());
    return first == std::string::npos ? "" : text.substr(first);
}

template <typename Key, typename Value>
std::optional<Value> lookUp(const std::map<Key, Value>& map, const Key& key) {
    const auto found = map.find(key);
    return found == map.end() ? std::nullopt : std::optional(found->second);
}

inline std::string firstLine(const std::string& text) {
    return text.substr(0, text.find('\n'));
}

template <typename... Values>
std::string format(const char* layout, Values... values) {
    char text[1024];
    snprintf(text, sizeof(text), layout, values...);
    return text;
}

// "490" or "12.5": no more decimals than are needed, three at most.
inline std::string formatSeconds(double seconds) {
    std::string text = format("%.3f", seconds);
    text.erase(text.find_last_not_of('0') + 1);
    if (text.back() == '.') text.pop_back();
    return text;
}

}  // namespace lab
