// SPDX-License-Identifier: Apache-2.0
// The name that a misspelt one was meant to be.

#pragma once

#include <string>
#include <vector>

namespace lab {

// "; did you mean 'boots'?" with those of `known` that are nearest to `name`; empty when none is
// near enough to be meant.
std::string didYouMean(const std::string& name, const std::vector<std::string>& known);

}  // namespace lab
