// SPDX-License-Identifier: Apache-2.0
// Cuts a text into fields as every reader of the daemon's files has to, without logging anything.

#pragma once

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <algorithm>
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

// As text.find(), for the two characters one after the other: eight places at a time, because the
// separators of a boot profile are two such, whose characters alone are all over it.
inline size_t findPair(std::string_view text, char first, char second, size_t from) {
    constexpr uint64_t kOnes = 0x0101010101010101;
    constexpr uint64_t kLow = 0x7f * kOnes;
    // The highest bit of each byte that is `c`, and no other.
    const auto places = [](uint64_t bytes, char c) {
        const uint64_t others = bytes ^ (kOnes * static_cast<uint8_t>(c));
        return ~(((others & kLow) + kLow) | others | kLow);
    };
    for (; from + 2 * sizeof(uint64_t) <= text.size(); from += sizeof(uint64_t)) {
        uint64_t here = 0;
        uint64_t next = 0;
        memcpy(&here, &text[from], sizeof(here));
        memcpy(&next, &text[from + 1], sizeof(next));
        const uint64_t found = places(here, first) & places(next, second);
        // The machines this runs on have the first byte lowest.
        if (found != 0) return from + static_cast<size_t>(__builtin_ctzll(found)) / 8;
    }
    for (; from + 1 < text.size(); ++from) {
        if (text[from] == first && text[from + 1] == second) return from;
    }
    return std::string_view::npos;
}

// The first place from `from` on where `pattern` stands in `text` followed by `pattern`: what ends
// the last field like every other one.
inline size_t findFieldEnd(std::string_view text, std::string_view pattern, size_t from) {
    const size_t found = pattern.size() == 2 ? findPair(text, pattern[0], pattern[1], from)
                                             : text.find(pattern, from);
    if (found != std::string_view::npos) return found;
    // The end of the text may begin a pattern that the one after it completes, as in "xa" and "aa".
    size_t at = std::max(from, text.size() - std::min(text.size(), pattern.size() - 1));
    for (; at < text.size(); ++at) {
        const size_t begun = text.size() - at;
        const size_t rest = pattern.size() - begun;
        if (text[at] == pattern[0] && text.compare(at, begun, pattern, 0, begun) == 0 &&
            pattern.compare(begun, rest, pattern, 0, rest) == 0) {
            break;
        }
    }
    return at;
}

// Cuts `text` at every occurrence of `pattern`. Calls take(field, end) for each piece, not yet
// trimmed, and drop(begin) for each empty one, in their order. The fields point into `text`.
template <typename Take, typename Drop>
void cutFields(std::string_view text, std::string_view pattern, Take take, Drop drop) {
    size_t i = 0;
    while (i <= text.size()) {
        const size_t end = findFieldEnd(text, pattern, i);
        if (end == i) {
            drop(i);
        } else {
            take(text.substr(i, end - i), end);
        }
        i = end + pattern.size();
    }
}
