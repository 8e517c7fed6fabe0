// SPDX-License-Identifier: Apache-2.0
// Keeps a text that is no scenario from costing much memory or time: its size, how deep it is
// nested, and what its aliases stand for.

#pragma once

#include <stddef.h>

#include <string>

namespace lab {

constexpr size_t kMostYaml = 1 << 20;  // bytes of a scenario's file

// Throws YAML::Exception with the place from which on the text is too much to be read.
void checkYamlBounds(const std::string& text);

}  // namespace lab
