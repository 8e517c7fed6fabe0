// SPDX-License-Identifier: Apache-2.0
// Record files through submitInfo, revertLastInfo and saveRecoveryInfo, against a model of them and
// the rules' reading of a line.

#include <stdint.h>
#include <unistd.h>

#include <stdexcept>

#include "bootvigil/ErrNumInfo.h"
#include "fuzz/FuzzDevice.h"
#include "lab/base/DevicePaths.h"
#include "lab/rules/Reading.h"

using namespace fuzz;
using namespace lab;

namespace {

void submit(const std::vector<std::string>& lines) {
    write(kFailureUpload, std::nullopt);
    rmdir("/velafs/SDD/bf_upload");
    std::optional<std::string> expected;
    bool shouldEnd = false;
    bool ended = false;
    try {
        std::vector<std::string> notes;
        expected = failureUpload(lines.empty() ? "" : lines.back(), notes);
    } catch (const MustEnd&) {
        shouldEnd = true;
    }
    try {
        ErrNumInfo::submitInfo();
    } catch (const std::out_of_range&) {
        ended = true;
    }
    if (ended != shouldEnd) fault(ended ? "submitting ends the process" : "the process survives");
    expectEqual("the upload", read(kFailureUpload), expected.value_or("<missing>"));
}

}  // namespace

// The input is the record file.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string content(reinterpret_cast<const char*>(data), size);
    const std::string stamp =
            "TIME:Sun Nov 15 11:00:00 2026;    ERR_NUM:0xf00001;    ERR_INFO:;    ERR_EXPINFO:;\n";
    const Watch watch;
    write(kRecord, content);
    std::vector<std::string> lines = linesOf(content);
    submit(lines);
    expectEqual("the record file", read(kRecord), content);
    for (int i = 0; i < 2; ++i) {
        std::string expected = i == 0 ? content : read(kRecord);
        expectEqual("what reverting says", ErrNumInfo::revertLastInfo(), !lines.empty());
        if (!lines.empty()) {
            lines.pop_back();
            expected.clear();
            for (const std::string& line : lines) expected += line + "\n";
        }
        expectEqual("the record file", read(kRecord), expected);
        submit(lines);
    }
    const std::string before = read(kRecord);
    expectEqual("what stamping says", ErrNumInfo::saveRecoveryInfo(1), true);
    expectEqual("the record file", read(kRecord), before + stamp);
    submit({stamp.substr(0, stamp.size() - 1)});
    return 0;
}
