// SPDX-License-Identifier: Apache-2.0
// The scenario reader: a scenario, or one line that names file and place.

#include "lab/scenario/Scenario.h"

#include <stdexcept>

#include "fuzz/FuzzDevice.h"

using namespace fuzz;

namespace {

constexpr const char* kScenario = "/data/scenario.yaml";

}  // namespace

// The input is the scenario.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    write(kScenario, std::string(reinterpret_cast<const char*>(data), size));
    try {
        const lab::Scenario scenario = lab::readScenario(kScenario);
        for (const lab::Boot& boot : scenario.boots) boot.profile.at(600000);
    } catch (const std::runtime_error& error) {
        const std::string message = error.what();
        if (message.rfind(std::string(kScenario) + ":", 0) != 0) {
            fault("the message names no file: " + message);
        }
        if (message.find('\n') != std::string::npos) fault("the message has several lines");
    }
    return 0;
}
