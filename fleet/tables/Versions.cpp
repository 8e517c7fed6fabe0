// SPDX-License-Identifier: Apache-2.0
// The order of names of software.

#include "fleet/tables/Versions.h"

#include <algorithm>

namespace fleet {

namespace {

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

// Takes the number at the beginning of a text, without its leading zeros.
std::string_view takeNumber(std::string_view& text) {
    const size_t size = std::min(text.size(), text.find_first_not_of("0123456789"));
    std::string_view number = text.substr(0, size);
    text.remove_prefix(size);
    number.remove_prefix(std::min(number.size(), number.find_first_not_of('0')));
    return number;
}

// Below 0, 0 or above 0.
int compare(std::string_view one, std::string_view other) {
    while (!one.empty() && !other.empty()) {
        if (isDigit(one[0]) && isDigit(other[0])) {
            const std::string_view a = takeNumber(one);
            const std::string_view b = takeNumber(other);
            if (a.size() != b.size()) return a.size() < b.size() ? -1 : 1;
            if (const int order = a.compare(b)) return order;
        } else {
            if (one[0] != other[0]) {
                return static_cast<unsigned char>(one[0]) < static_cast<unsigned char>(other[0])
                               ? -1
                               : 1;
            }
            one.remove_prefix(1);
            other.remove_prefix(1);
        }
    }
    return static_cast<int>(!one.empty()) - static_cast<int>(!other.empty());
}

}  // namespace

bool isOlder(std::string_view one, std::string_view other) {
    const int order = compare(one, other);
    // "3.02" and "3.2" are two names.
    return order != 0 ? order < 0 : one < other;
}

}  // namespace fleet
