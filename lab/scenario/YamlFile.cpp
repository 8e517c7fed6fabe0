// SPDX-License-Identifier: Apache-2.0
// Reads a stranger's YAML file within bounds, and says where in it something is wrong.

#include "lab/scenario/YamlFile.h"

#include <stdexcept>

#include "common/text/Printable.h"
#include "lab/base/Files.h"
#include "lab/scenario/YamlBounds.h"

namespace lab {

std::string placed(const std::string& path, const YAML::Mark& mark, const std::string& text) {
    return path + ":" + std::to_string(mark.line + 1) + ":" + std::to_string(mark.column + 1) +
           ": " + text::printable(text);
}

void readYaml(const std::string& path, const std::function<void(const YAML::Node&)>& read) {
    try {
        const std::string text = readFile(path, kMostYaml);
        checkYamlBounds(text);
        read(YAML::Load(text));
    } catch (const YAML::ParserException& error) {
        throw std::runtime_error(placed(path, error.mark, "expected YAML: " + error.msg));
    } catch (const YAML::Exception& error) {
        throw std::runtime_error(placed(path, error.mark, error.msg));
    }
}

}  // namespace lab
