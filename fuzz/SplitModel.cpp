// SPDX-License-Identifier: Apache-2.0
// What split() has to do, told in another way than its own, and how files are cut into lines.

#include "fuzz/SplitModel.h"

#include <stdio.h>

#include <algorithm>
#include <utility>

namespace fuzz {

namespace {

size_t blanksAtFront(const std::string& text) {
    return static_cast<size_t>(
            std::find_if(text.begin(), text.end(), [](char c) { return c != ' '; }) - text.begin());
}

// As many blanks as stand in front may stay behind.
std::string trimmed(std::string field, size_t front) {
    size_t behind = blanksAtFront({field.rbegin(), field.rend()});
    for (; behind > front; --behind) field.pop_back();
    return field.erase(0, front);
}

std::string logged(const char* format, const std::string& text, size_t at) {
    char line[1024];  // the log's own limit
    snprintf(line, sizeof(line), format, text.c_str(), at);
    return line;
}

}  // namespace

Fields splitModel(const std::string& text, const std::string& pattern,
                  std::vector<std::string>* log) {
    std::vector<std::string> fields;
    std::string rest = text + pattern;
    const std::string whole = rest;
    while (!rest.empty()) {
        const size_t at = whole.size() - rest.size();
        const size_t length = rest.find(pattern);
        if (length == std::string::npos) break;  // an overlap has used up a part of the last one
        const std::string field = rest.substr(0, length);
        rest.erase(0, length + pattern.size());
        if (field.empty()) {
            if (log != nullptr) log->push_back(logged("split err, str=%s, pos=%zu;\n", whole, at));
            continue;
        }
        const size_t front = blanksAtFront(field);
        if (front == field.size()) return std::nullopt;
        fields.push_back(trimmed(field, front));
    }
    return fields;
}

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::string line;
    for (const char c : text) {
        if (c == '\n')
            lines.push_back(std::exchange(line, {}));
        else
            line += c;
    }
    if (!line.empty()) lines.push_back(line);
    return lines;
}

}  // namespace fuzz
