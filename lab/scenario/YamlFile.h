// SPDX-License-Identifier: Apache-2.0
// Reads a stranger's YAML file within bounds, and says where in it something is wrong.

#pragma once

#include <functional>
#include <string>

#include <yaml-cpp/yaml.h>

namespace lab {

// "FILE:LINE:COLUMN: text", printable.
std::string placed(const std::string& path, const YAML::Mark& mark, const std::string& text);

// Calls `read` with the file's one document. Throws std::runtime_error(placed()) where the file is
// no YAML or too much to be read, or `read` throws a YAML::Exception.
void readYaml(const std::string& path, const std::function<void(const YAML::Node&)>& read);

}  // namespace lab
