// SPDX-License-Identifier: Apache-2.0
// Record files through submitInfo, revertLastInfo and saveRecoveryInfo, against a model of them.

#include <stdint.h>
#include <unistd.h>

#include <stdexcept>

#include "bootvigil/ErrNumInfo.h"
#include "fuzz/FuzzDevice.h"
#include "fuzz/SplitModel.h"

using namespace fuzz;

namespace {

constexpr const char* kRecords = "/velafs/SDD/bfRecord.txt";
constexpr const char* kUpload = "/velafs/SDD/bf_upload/boot_vigil";

// What is left for the uploader: "<missing>" for a failure that waits for the user, nothing at all
// where the process ends.
std::optional<std::string> uploadOf(const std::string& line) {
    const std::string unknown = "BOOTVIGIL|Unknow|Unknow|Unknow";
    const Fields fields = splitModel(line, ";    ");
    if (!fields) return std::nullopt;
    if (fields->size() < 3) return unknown;
    std::string values[3];
    for (size_t i = 0; i < 3; ++i) {
        const Fields parts = splitModel((*fields)[i], ":");
        if (!parts) return std::nullopt;
        if (parts->size() < 2 && i < 2) return unknown;
        values[i] = parts->size() < 2 ? "NA" : (*parts)[1];
    }
    const std::string& number = values[1];
    if (number.size() > 2 && (number[2] == '6' || number[2] == '7')) return "<missing>";
    return "BOOTVIGIL|" + number + "|" + values[0] + "|" + values[2];
}

void submit(const std::vector<std::string>& lines) {
    write(kUpload, std::nullopt);
    rmdir("/velafs/SDD/bf_upload");
    const std::optional<std::string> expected = uploadOf(lines.empty() ? "" : lines.back());
    bool ended = false;
    try {
        ErrNumInfo::submitInfo();
    } catch (const std::out_of_range&) {
        ended = true;
    }
    if (ended != !expected) fault(ended ? "submitting ends the process" : "the process survives");
    expectEqual("the upload", read(kUpload), expected.value_or("<missing>"));
}

}  // namespace

// The input is the record file.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string content(reinterpret_cast<const char*>(data), size);
    const std::string stamp =
            "TIME:Sun Nov 15 11:00:00 2026;    ERR_NUM:0xf00001;    ERR_INFO:;    ERR_EXPINFO:;\n";
    const Watch watch;
    write(kRecords, content);
    std::vector<std::string> lines = linesOf(content);
    submit(lines);
    expectEqual("the record file", read(kRecords), content);
    for (int i = 0; i < 2; ++i) {
        std::string expected = i == 0 ? content : read(kRecords);
        expectEqual("what reverting says", ErrNumInfo::revertLastInfo(), !lines.empty());
        if (!lines.empty()) {
            lines.pop_back();
            expected.clear();
            for (const std::string& line : lines) expected += line + "\n";
        }
        expectEqual("the record file", read(kRecords), expected);
        submit(lines);
    }
    const std::string before = read(kRecords);
    expectEqual("what stamping says", ErrNumInfo::saveRecoveryInfo(1), true);
    expectEqual("the record file", read(kRecords), before + stamp);
    submit({stamp.substr(0, stamp.size() - 1)});
    return 0;
}
