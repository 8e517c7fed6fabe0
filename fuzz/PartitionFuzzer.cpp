// SPDX-License-Identifier: Apache-2.0
// Every file of the persistent partition through the report, in each of its forms.

#include <locale.h>
#include <stdlib.h>

#include <algorithm>
#include <iterator>
#include <utility>

#include <zstd.h>

#include <nlohmann/json.hpp>

#include "fuzz/FuzzDevice.h"
#include "lab/base/Text.h"
#include "report/judge/Judgement.h"
#include "report/read/ReadReport.h"
#include "report/show/Json.h"
#include "report/show/Page.h"
#include "report/show/Text.h"
#include "report/show/TraceEvents.h"

using namespace fuzz;

namespace {

constexpr const char* kFiles[] = {
        "/SDD/bfRecord.txt",
        "/SDD/bfRecord_backup.txt",
        "/SDD/bfflag.txt",
        "/SDD/bf_upload/boot_vigil",
        "/SDD/bf_upload/recovery_record",
        "/boot_vigil/reason.txt",
        "/boot_vigil/pmic_info",
        "/boot_vigil/mem_hwinfo",
        "/boot_vigil/log/info",
        "/boot_vigil/recovery_flag.txt",
        "/boot_vigil/recoveryList",
        "/boot_vigil/bfEnable",
        "/boot_vigil/refused",
};
constexpr size_t kLongestLine = 2047;

std::string compressed(const std::string& text) {
    std::string archive(ZSTD_compressBound(text.size()), '\0');
    archive.resize(ZSTD_compress(archive.data(), archive.size(), text.data(), text.size(), 1));
    return archive;
}

size_t countOf(const std::string& part, const std::string& text) {
    size_t count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++count;
    return count;
}

// Whether a terminal would take something in the text for a command, or show it elsewhere.
bool steers(const std::string& text) {
    static constexpr std::pair<wchar_t, wchar_t> kWrong[] = {
            {0, 0x9},         {0xb, 0x1f},      {0x7f, 0x9f},     {0x61c, 0x61c},
            {0x200e, 0x200f}, {0x2028, 0x202e}, {0x2066, 0x2069},
    };
    static const char* const locale = setlocale(LC_CTYPE, "C.UTF-8");
    if (locale == nullptr) fault("no UTF-8 locale");
    for (size_t at = 0; at < text.size();) {
        wchar_t c = 0;
        const int size = mbtowc(&c, &text[at], text.size() - at);
        const bool wrong =
                std::any_of(std::begin(kWrong), std::end(kWrong), [&](const auto& range) {
                    return c >= range.first && c <= range.second;
                });
        if (size <= 0 || wrong) return true;  // 0: a NUL
        at += static_cast<size_t>(size);
    }
    return false;
}

std::string pageOf(const report::Report& report) {
    report::writePage(report, "/data/page.html");
    return read("/data/page.html");
}

}  // namespace

// Texts: the files above, then the main log (compressed here). What is missing is no file.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const size_t elements = countOf("</script", pageOf({}));
    const std::vector<std::string> input = texts(data, size);
    size_t i = 0;
    for (const char* file : kFiles) {
        write(std::string("/velafs") + file,
              i < input.size() ? std::optional<std::string>(input[i]) : std::nullopt);
        ++i;
    }
    write("/velafs/boot_vigil/log/android_main_log.zs",
          i < input.size() ? std::optional<std::string>(compressed(input[i])) : std::nullopt);

    const report::Report report = report::readReport("/velafs");
    const report::State state = report::judge(report).state;
    const bool green = state == report::State::NO_FAILURE || state == report::State::CURED;
    if (green && (report.flag || report.recordsEndDamaged)) fault("green in spite of a flag");
    if (green && !report.failures.empty() && !report.failures.back().number.stamp) {
        fault("green in spite of a failure without a stamp");
    }
    if (state == report::State::NO_FAILURE &&
        !(report.problems.empty() && report.journal.empty() && report.captures.empty())) {
        fault("no failure, and traces of one");
    }
    std::string text = report::toText(report);
    for (const std::string& line : lab::linesOf(text)) {
        if (line.size() > kLongestLine) fault("two lines of the text have become one");
    }
    if (steers(text)) fault("the text would steer a terminal");
    for (const std::string& json :
         {report::dump(report::toJson(report)), report::toTraceEvents(report)}) {
        if (!nlohmann::json::accept(json)) fault("the JSON is none");
        const bool ascii = std::all_of(json.begin(), json.end(), [](unsigned char c) {
            return c < 0x7f && (c >= 0x20 || c == '\n');
        });
        if (!ascii) fault("the JSON is no printable ASCII");
    }
    // The page is large and takes its time: one input in eight.
    if (size % 8 == 0 && countOf("</script", pageOf(report)) != elements + report.captures.size()) {
        fault("something in a file ends an element of the page");
    }
    return 0;
}
