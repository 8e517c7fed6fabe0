// SPDX-License-Identifier: Apache-2.0
// The run log that a lab writes, as the report reads it.

#include "fuzz/FuzzDevice.h"
#include "lab/base/Text.h"
#include "report/read/Boots.h"

using namespace fuzz;

// The input is the run log.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string log(reinterpret_cast<const char*>(data), size);
    size_t broken = 0;
    const std::vector<report::Boot> boots = report::bootsOfRunLog(log, broken);
    if (boots.size() + broken > lab::linesOf(log).size()) fault("more boots than lines");
    return 0;
}
