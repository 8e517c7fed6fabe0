// SPDX-License-Identifier: Apache-2.0
// Cuts a text into fields as every reader of the daemon's files has to, without logging anything.

#pragma once

#include <stddef.h>

#include <string>
#include <string_view>

// By design: the length kept is "index of the last non-blank, plus one", counted from the first
// non-blank, so a piece with n leading blanks keeps up to n trailing ones. A piece of only blanks
// has no first non-blank; substr then throws, which ends the process.
inline std::string_view trimField(std::string_view field) {
    const size_t first = field.find_first_not_of(' ');
    if (first == std::string_view::npos) std::string(field).substr(first);
    const size_t last = field.find_last_not_of(' ');
    return field.substr(first, last + 1);
}

// As str.find(pattern, from), but looks for the pattern's last character: its first may be a blank,
// and a boot profile is full of blanks.
inline size_t findPattern(const std::string& str, std::string_view pattern, size_t from) {
    const size_t before = pattern.size() - 1;
    size_t last = str.find(pattern.back(), from + before);
    while (last != std::string::npos && str.compare(last - before, pattern.size(), pattern) != 0) {
        last = str.find(pattern.back(), last + 1);
    }
    return last == std::string::npos ? last : last - before;
}

// Cuts `str`, which ends with `pattern`, at every occurrence of it. Calls take(field, end) for each
// trimmed piece and drop(begin) for each empty one, in their order. The fields point into `str`.
template <typename Take, typename Drop>
void cutFields(const std::string& str, std::string_view pattern, Take take, Drop drop) {
    size_t i = 0;
    while (i < str.size()) {
        const size_t pos = findPattern(str, pattern, i);
        if (pos >= str.size()) break;  // npos included: nor is there one further on
        if (pos == i) {
            drop(i);
        } else {
            take(trimField(std::string_view(str).substr(i, pos - i)), pos);
        }
        i = pos + pattern.size();
    }
}
