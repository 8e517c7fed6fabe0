// SPDX-License-Identifier: Apache-2.0
// split() against the rules' own: fields, log lines, and the one text that ends the process.

#include <stdint.h>

#include <stdexcept>

#include "bootvigil/Utils.h"
#include "fuzz/FuzzDevice.h"
#include "lab/base/Text.h"
#include "lab/rules/Reading.h"

using namespace fuzz;

namespace {

using Fields = std::optional<std::vector<std::string>>;  // nothing: a text has ended the process

// A line for each empty field, up to one of blanks.
std::vector<std::string> logOf(const std::string& whole, const std::string& pattern) {
    std::vector<std::string> log;
    for (size_t from = 0, end = 0; (end = whole.find(pattern, from)) != std::string::npos;
         from = end + pattern.size()) {
        if (end == from) {
            log.push_back(lab::format("split err, str=%s, pos=%zu;\n", whole.c_str(), from));
        } else if (whole.find_first_not_of(' ', from) >= end) {
            break;
        }
    }
    return log;
}

}  // namespace

// The input's first line is the pattern.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string input(reinterpret_cast<const char*>(data), size);
    const size_t end = input.find('\n');
    const std::string pattern = input.substr(0, end);
    const std::string text = end == std::string::npos ? "" : input.substr(end + 1);
    if (pattern.empty()) return -1;  // the scan would not advance

    Watch watch;
    watch.keepLog = true;
    Fields fields, expected;
    try {
        expected = lab::split(text, pattern);
    } catch (const lab::MustEnd&) {
    }
    try {
        fields = split(text, pattern);
    } catch (const std::out_of_range&) {
    }
    if (fields.has_value() != expected.has_value()) {
        fault(expected ? "split ends the process" : "split survives a blank field");
    }
    if (fields != expected) fault("split gives other fields");
    if (watch.log != logOf(text + pattern, pattern)) fault("split logs other lines");
    return 0;
}
