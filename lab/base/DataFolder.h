// SPDX-License-Identifier: Apache-2.0
// Where the lab's own data lie: scenarios and profiles.

#pragma once

#include <string>

namespace lab {

// The path of a file of lab/data in the source tree: dataPath("profiles/healthy.txt").
std::string dataPath(const std::string& name);

}  // namespace lab
