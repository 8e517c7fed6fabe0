// SPDX-License-Identifier: Apache-2.0
// The shipped scenarios, by name.

#pragma once

#include <string>
#include <vector>

namespace lab {

// In the order of the alphabet.
std::vector<std::string> shippedScenarios();

// The file of a scenario: a path, or the name of a shipped one. Throws std::runtime_error where
// there is none, with the names that are near.
std::string scenarioFile(const std::string& pathOrName);

}  // namespace lab
