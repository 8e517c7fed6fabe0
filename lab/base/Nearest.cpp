// SPDX-License-Identifier: Apache-2.0
// The name that a misspelt one was meant to be.

#include "lab/base/Nearest.h"

#include <ctype.h>
#include <stddef.h>

#include <algorithm>
#include <numeric>
#include <utility>

namespace lab {

namespace {

constexpr size_t kLongest = 100;  // of names worth a comparison
constexpr size_t kMostNames = 3;

// Letters to add, drop or replace, or neighbours to swap, until `a` is `b`; case doesn't count.
size_t distance(const std::string& a, const std::string& b) {
    std::vector<size_t> beforeLast, last, row(b.size() + 1);
    std::iota(row.begin(), row.end(), 0);
    const auto same = [&](size_t i, size_t j) {
        return tolower(static_cast<unsigned char>(a[i])) ==
               tolower(static_cast<unsigned char>(b[j]));
    };
    for (size_t i = 0; i < a.size(); ++i) {
        beforeLast = std::move(last);
        last = row;
        row[0] = i + 1;
        for (size_t j = 0; j < b.size(); ++j) {
            row[j + 1] = std::min({last[j] + (same(i, j) ? 0 : 1), last[j + 1] + 1, row[j] + 1});
            const bool swapped = i > 0 && j > 0 && same(i, j - 1) && same(i - 1, j);
            if (swapped) row[j + 1] = std::min(row[j + 1], beforeLast[j - 1] + 1);
        }
    }
    return row.back();
}

}  // namespace

std::string didYouMean(const std::string& name, const std::vector<std::string>& known) {
    if (name.empty() || name.size() > kLongest) return "";
    size_t least = name.size() / 3 + 1;  // mistakes for which a name is still meant
    std::vector<std::string> nearest;
    for (const std::string& one : known) {
        if (one.size() > kLongest) continue;
        const size_t mistakes = distance(name, one);
        if (mistakes > least || mistakes >= one.size()) continue;
        if (mistakes < least) nearest.clear();
        least = mistakes;
        const bool there = std::find(nearest.begin(), nearest.end(), one) != nearest.end();
        if (!there && nearest.size() < kMostNames) nearest.push_back(one);
    }
    std::string text;
    for (const std::string& one : nearest) {
        text.append(text.empty() ? "; did you mean '" : " or '").append(one).append("'");
    }
    return text.empty() ? text : text + "?";
}

}  // namespace lab
