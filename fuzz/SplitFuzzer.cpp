// SPDX-License-Identifier: Apache-2.0
// split() against its model: fields, log lines, and the one text that ends the process.

#include <stdint.h>

#include <stdexcept>

#include "bootvigil/Utils.h"
#include "fuzz/FuzzDevice.h"
#include "fuzz/SplitModel.h"

using namespace fuzz;

// The input's first line is the pattern.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string input(reinterpret_cast<const char*>(data), size);
    const size_t end = input.find('\n');
    const std::string pattern = input.substr(0, end);
    const std::string text = end == std::string::npos ? "" : input.substr(end + 1);
    if (pattern.empty()) return -1;  // the scan would not advance

    Watch watch;
    watch.keepLog = true;
    std::vector<std::string> log;
    const Fields expected = splitModel(text, pattern, &log);
    Fields fields;
    try {
        fields = split(text, pattern);
    } catch (const std::out_of_range&) {
    }
    if (fields.has_value() != expected.has_value()) {
        fault(expected ? "split ends the process" : "split survives a blank field");
    }
    if (fields != expected) fault("split gives other fields");
    if (watch.log != log) fault("split logs other lines");
    return 0;
}
