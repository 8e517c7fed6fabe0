// SPDX-License-Identifier: Apache-2.0
// Where the lab's own data lie: scenarios and profiles.

#pragma once

#include <string>

namespace lab {

// The path of a file of lab/data, installed or in the source tree, as of "profiles/healthy.txt".
// The first call has to see the workstation's files.
std::string dataPath(const std::string& name);

}  // namespace lab
