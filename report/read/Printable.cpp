// SPDX-License-Identifier: Apache-2.0
// Text from outside, made safe for a terminal.

#include "report/read/Printable.h"

#include <stddef.h>
#include <stdio.h>

namespace report {

std::string printable(const std::string& text) {
    std::string out;
    bool control = false;  // the second byte of U+0080 to U+009F, which control a terminal too
    for (size_t i = 0; i < text.size(); ++i) {
        const auto c = static_cast<unsigned char>(text[i]);
        const auto next = static_cast<unsigned char>(i + 1 < text.size() ? text[i + 1] : 0);
        const bool first = c == 0xc2 && next >= 0x80 && next < 0xa0;
        if (c >= 0x20 && c != 0x7f && !first && !control) {
            out += static_cast<char>(c);
        } else {
            char code[8];
            snprintf(code, sizeof(code), "\\x%02x", c);
            out += code;
        }
        control = first;
    }
    return out;
}

}  // namespace report
