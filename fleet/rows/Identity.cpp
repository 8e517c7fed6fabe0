// SPDX-License-Identifier: Apache-2.0
// Which device a copy or an upload comes from: the fields of device.json.

#include "fleet/rows/Identity.h"

#include <stdio.h>
#include <time.h>

#include <optional>

namespace fleet {

namespace {

using Json = nlohmann::json;

constexpr size_t kMostOfFile = 64 << 10;
constexpr size_t kMostOfField = 128;

// Seconds that a zone, "Z", "+01:00", "-0330" or nothing, is ahead of UTC.
std::optional<int> secondsOfZone(const char* zone) {
    if (*zone == '\0' || (zone[0] == 'Z' && zone[1] == '\0')) return 0;
    if (*zone != '+' && *zone != '-') return std::nullopt;
    int hours = 0;
    int minutes = 0;
    int used = 0;
    const bool colon = sscanf(zone + 1, "%2d:%2d%n", &hours, &minutes, &used) == 2;
    if (!colon && sscanf(zone + 1, "%2d%2d%n", &hours, &minutes, &used) != 2) return std::nullopt;
    if (zone[1 + used] != '\0' || hours < 0 || minutes < 0) return std::nullopt;
    const int seconds = (hours * 60 + minutes) * 60;
    return *zone == '-' ? -seconds : seconds;
}

}  // namespace

std::string utcTime(const std::string& text) {
    tm date = {};
    const char* rest = nullptr;
    for (const char* layout :
         {"%Y-%m-%dT%H:%M:%S", "%Y-%m-%d %H:%M:%S", "%Y-%m-%dT%H:%M", "%Y-%m-%d"}) {
        date = {};
        rest = strptime(text.c_str(), layout, &date);
        if (rest != nullptr) break;
    }
    if (rest == nullptr) return "";
    if (*rest == '.') {
        do ++rest;
        while (*rest >= '0' && *rest <= '9');
    }
    const std::optional<int> zone = secondsOfZone(rest);
    if (!zone) return "";
    const time_t utc = timegm(&date) - *zone;
    char iso[32];
    gmtime_r(&utc, &date);
    const size_t size = strftime(iso, sizeof(iso), "%Y-%m-%dT%H:%M:%S", &date);
    constexpr size_t kLength = 19;  // of a year with four digits
    return size == kLength ? iso : "";
}

Identity identityOf(const Json& object) {
    Identity identity;
    const auto take = [&](const char* name, std::string& field) {
        const auto value = object.find(name);
        if (value == object.end() || value->is_null()) return;
        const std::string* text = value->get_ptr<const std::string*>();
        const bool useful = text != nullptr && text->size() <= kMostOfField;
        if (useful) field = *text;
        if (!useful) ++identity.problems;
    };
    if (!object.is_object()) {
        identity.problems = 1;
        return identity;
    }
    take("serial", identity.serial);
    take("model", identity.model);
    take("software", identity.software);
    take("country", identity.country);
    std::string pulled;
    take("pulled", pulled);
    identity.pulled = utcTime(pulled);
    if (!pulled.empty() && identity.pulled.empty()) ++identity.problems;
    return identity;
}

Identity readIdentity(const report::Folder& folder) {
    std::string error;
    const report::File file = folder.openFile("device.json", error);
    if (!file && error.empty()) return {};
    std::string content(kMostOfFile + 1, '\0');
    content.resize(file ? fread(content.data(), 1, content.size(), file.get()) : 0);
    if (!file || content.size() > kMostOfFile) {
        Identity nothing;
        nothing.problems = 1;
        return nothing;
    }
    return identityOf(Json::parse(content, nullptr, false));
}

}  // namespace fleet
