// SPDX-License-Identifier: Apache-2.0
// Text from outside, made safe for whoever reads it.

#include "common/text/Printable.h"

#include <stdint.h>
#include <stdio.h>
#include <utf8proc.h>

#include <algorithm>

namespace text {

namespace {

// Words of several scripts need the two joiners.
bool isPrintable(utf8proc_int32_t character) {
    constexpr utf8proc_int32_t kNonJoiner = 0x200c;
    constexpr utf8proc_int32_t kJoiner = 0x200d;
    switch (utf8proc_category(character)) {
        case UTF8PROC_CATEGORY_CC:
        case UTF8PROC_CATEGORY_ZL:
        case UTF8PROC_CATEGORY_ZP:
            return false;
        case UTF8PROC_CATEGORY_CF:
            return character == kNonJoiner || character == kJoiner;
        default:
            return true;
    }
}

}  // namespace

std::string printable(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    while (!text.empty()) {
        const auto* bytes = reinterpret_cast<const uint8_t*>(text.data());
        utf8proc_int32_t character = -1;
        // Some of the library's lengths are ints.
        const auto most = static_cast<utf8proc_ssize_t>(std::min<size_t>(text.size(), 4));
        const utf8proc_ssize_t valid = utf8proc_iterate(bytes, most, &character);
        const auto size = static_cast<size_t>(std::max<utf8proc_ssize_t>(valid, 1));
        if (valid > 0 && isPrintable(character)) {
            out += text.substr(0, size);
        } else {
            for (size_t i = 0; i < size; ++i) {
                char code[8];
                snprintf(code, sizeof(code), "\\x%02x", bytes[i]);
                out += code;
            }
        }
        text.remove_prefix(size);
    }
    return out;
}

std::string shortened(std::string_view text, size_t most) {
    static constexpr std::string_view kMore = "…";
    if (text.size() <= most) return std::string(text);
    size_t end = most - std::min(most, kMore.size());
    while (end > 0 && (text[end] & 0xc0) == 0x80) --end;
    return std::string(text.substr(0, end)).append(kMore);
}

std::string grouped(size_t number) {
    std::string digits = std::to_string(number);
    for (size_t at = digits.size(); at > 3;) digits.insert(at -= 3, ",");
    return digits;
}

}  // namespace text
