// SPDX-License-Identifier: Apache-2.0
// The times that a device writes, all of them local and without a zone.

#include "report/read/Times.h"

#include <stdio.h>
#include <time.h>

namespace report {

namespace {

constexpr const char* kIso = "%Y-%m-%dT%H:%M:%S";
constexpr size_t kIsoLength = 19;
constexpr size_t kTimeLength = 24;

// The whole text in one layout.
std::optional<int64_t> parse(const std::string& text, const char* layout) {
    tm date = {};
    const char* end = strptime(text.c_str(), layout, &date);
    if (end == nullptr || *end != '\0') return std::nullopt;
    return timegm(&date);
}

}  // namespace

std::optional<int64_t> parseTime(const std::string& text) {
    if (text.size() != kTimeLength) return std::nullopt;
    return parse(text, "%a %b %d %H:%M:%S %Y");
}

std::string isoTime(const std::string& text) {
    const std::optional<int64_t> seconds = parseTime(text);
    if (!seconds) return "";
    const time_t at = *seconds;
    tm date = {};
    gmtime_r(&at, &date);
    char iso[kIsoLength + 1];
    return strftime(iso, sizeof(iso), kIso, &date) == kIsoLength ? iso : "";
}

std::string isoClock(const std::string& clock, int year) {
    constexpr const char* kDigit = "00-00 00:00:00.000";
    bool matches = year >= 1000 && year <= 9999 && clock.size() == kIsoLength - 1;
    for (size_t i = 0; matches && i < clock.size(); ++i) {
        matches = kDigit[i] == '0' ? clock[i] >= '0' && clock[i] <= '9' : clock[i] == kDigit[i];
    }
    if (!matches) return "";
    return std::to_string(year) + "-" + clock.substr(0, 5) + "T" + clock.substr(6);
}

std::optional<int64_t> secondsOfIso(const std::string& iso) {
    return parse(iso.substr(0, kIsoLength), kIso);
}

}  // namespace report
