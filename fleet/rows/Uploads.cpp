// SPDX-License-Identifier: Apache-2.0
// Rows out of lines of JSON: what an uploader collected, and rows that were written before.

#include "fleet/rows/Uploads.h"

#include <stdio.h>
#include <stdlib.h>
#include <time.h>

#include <optional>
#include <stdexcept>
#include <vector>

#include "bootvigil/RecoveryLists.h"
#include "common/text/Printable.h"
#include "fleet/rows/Signature.h"
#include "report/read/Times.h"

namespace fleet {

namespace {

using Json = nlohmann::json;

constexpr const char* kDevices = "devices";
constexpr const char* kEpisodes = "episodes";

std::vector<std::string> partsOf(const std::string& text) {
    std::vector<std::string> parts(1);
    for (const char c : text) {
        if (c == '|') {
            parts.emplace_back();
        } else {
            parts.back() += c;
        }
    }
    return parts;
}

// "2026-11-15T11:00:00" of "Sun Nov 15 11", which has no year: the last one with such a day before
// the collection. Its clock is another one's, so a day later is before it too. The year is 0000
// where no collection tells, and nothing is given for a text that is no such hour.
std::string hourOf(const std::string& text, const std::string& collected) {
    constexpr int kMostYears = 12;  // each weekday comes at least once
    constexpr int64_t kDay = 24L * 3600;
    tm hour = {};
    const char* rest = strptime(text.c_str(), "%a %b %d %H", &hour);
    if (rest == nullptr || *rest != '\0') return "";
    const auto isoOf = [&](int year) {
        char iso[64];
        snprintf(iso, sizeof(iso), "%04d-%02d-%02dT%02d:00:00", year, hour.tm_mon + 1, hour.tm_mday,
                 hour.tm_hour);
        return std::string(iso);
    };
    const int64_t limit = report::secondsOfIso(collected).value_or(0) + kDay;
    const int year = atoi(collected.c_str());
    for (int before = -1; year > 0 && before <= kMostYears; ++before) {
        tm day = hour;
        day.tm_year = year - before - 1900;
        day.tm_isdst = 0;
        if (timegm(&day) <= limit && day.tm_wday == hour.tm_wday) return isoOf(year - before);
    }
    return isoOf(0);
}

DeviceRow deviceOf(const Identity& identity) {
    DeviceRow row;
    row.device = identity.serial;
    row.software = identity.software;
    row.country = identity.country;
    row.model = identity.model;
    row.pulled = identity.pulled;
    row.state = "uploaded";
    row.rule = "upload";
    row.episodes = 1;
    row.problems = identity.problems;
    row.source = "upload";
    return row;
}

EpisodeRow episodeOf(const DeviceRow& device) {
    EpisodeRow row = episodeOn(device);
    row.failures = 1;
    // A boot that completes leaves either file.
    row.outcome = "cured";
    row.curedBy = "unknown";
    return row;
}

// "BOOTVIGIL|0x502564|Sun Nov 15 11|1113-system_server  | AMS": the last text may have a bar, and
// is cut at its first colon as the time is.
void takeFailure(const std::string& text, EpisodeRow& row) {
    const size_t number = text.find('|');
    const size_t time = text.find('|', number + 1);
    const size_t info = time == std::string::npos ? time : text.find('|', time + 1);
    if (info == std::string::npos) throw std::runtime_error("is no upload of a failure");
    const std::string code = text.substr(number + 1, time - number - 1);
    row.begin = hourOf(text.substr(time + 1, info - time - 1), row.pulled);
    row.lastTime = row.begin;
    char* end = nullptr;
    const unsigned long value = strtoul(code.c_str(), &end, 16);
    if (code.rfind("0x", 0) != 0 || *end != '\0' || code.size() > 8) return groupAgain(row);
    const report::ErrorNumber parsed = report::decodeErrorNumber(value);
    row.number = row.lastNumber = report::formatErrorNumber(parsed);
    row.reason = parsed.reason;
    row.phase = report::phaseName(parsed);
    row.detail = report::detailName(parsed);
    row.milestone = report::missingMilestone(parsed);
    row.lastEvent = text.substr(info + 1);
    if (row.lastEvent == "NA") row.lastEvent.clear();
    const report::BootEvent event = report::parseBootEvent(row.lastEvent);
    row.process = event.process;
    row.event = event.name;
    groupAgain(row);
}

// "BFRECOVERY|1|Sun Nov 15 11:05:18 2026|100"
void takeRecovery(const std::string& text, EpisodeRow& row) {
    const std::vector<std::string> parts = partsOf(text);
    const int mode = parts.size() == 4 ? atoi(parts[1].c_str()) : 0;
    row.source = "recovery";
    row.begin = parts.size() == 4 ? report::isoTime(parts[2]) : "";
    if (row.begin.empty() || (mode != RECOVERY_REBOOT && mode != RECOVERY_DATA_RESET)) {
        throw std::runtime_error("is no report of a recovery");
    }
    row.end = row.lastTime = row.begin;
    row.reason = atoi(parts[3].c_str());
    row.curedBy = mode == RECOVERY_REBOOT ? "reboot" : "reset";
    groupAgain(row);
}

Rows rowsOfUpload(const Json& object) {
    const std::string text = object.at("text");
    const Identity identity = identityOf(object);
    if (identity.serial.empty()) throw std::runtime_error("has no serial");
    Rows rows;
    rows.devices.push_back(deviceOf(identity));
    EpisodeRow row = episodeOf(rows.devices.front());
    if (text.rfind("BOOTVIGIL|", 0) == 0) {
        takeFailure(text, row);
    } else if (text.rfind("BFRECOVERY|", 0) == 0) {
        takeRecovery(text, row);
    } else {
        throw std::runtime_error("its text is no upload of the daemon");
    }
    rows.episodes.push_back(std::move(row));
    return rows;
}

template <typename Row>
Row rowOf(const Json& object, const std::vector<Column<Row>>& columns) {
    Row row;
    for (const Column<Row>& column : columns) {
        const auto value = object.find(column.name);
        if (value == object.end()) continue;
        const bool isNumber = std::holds_alternative<int64_t Row::*>(column.field);
        if (isNumber ? !value->is_number_integer() : !value->is_string()) {
            throw std::runtime_error(std::string(column.name) + " is of another type");
        }
        if (isNumber) {
            row.*std::get<int64_t Row::*>(column.field) = value->template get<int64_t>();
        } else {
            row.*std::get<std::string Row::*>(column.field) = value->template get<std::string>();
        }
    }
    if (row.device.empty()) throw std::runtime_error("has no device");
    return row;
}

template <typename Row>
std::string lineOf(const char* table, const Row& row, const std::vector<Column<Row>>& columns) {
    nlohmann::ordered_json object = {{"table", table}};
    for (const Column<Row>& column : columns) {
        std::visit([&](auto field) { object[column.name] = row.*field; }, column.field);
    }
    return object.dump(-1, ' ', true, Json::error_handler_t::replace) + "\n";
}

}  // namespace

Rows rowsOfLine(std::string_view line) {
    if (line.size() > kMostOfLine) {
        throw std::runtime_error("is longer than " + text::grouped(kMostOfLine) + " bytes");
    }
    const Json object = Json::parse(line, nullptr, false);
    if (!object.is_object()) throw std::runtime_error("is no JSON object");
    const Json named = object.value("table", Json());
    const std::string table = named.is_string() ? named.get<std::string>() : "";
    Rows rows;
    if (table == kDevices) {
        rows.devices.push_back(rowOf(object, deviceColumns()));
    } else if (table == kEpisodes) {
        rows.episodes.push_back(rowOf(object, episodeColumns()));
    } else if (object.value("text", Json()).is_string()) {
        rows = rowsOfUpload(object);
    } else {
        throw std::runtime_error("has neither a text nor a table of rows");
    }
    for (DeviceRow& row : rows.devices) finish(row);
    for (EpisodeRow& row : rows.episodes) {
        if (row.signatureRules < kSignatureRules) groupAgain(row);
        finish(row);
    }
    return rows;
}

std::string toLine(const DeviceRow& row) {
    return lineOf(kDevices, row, deviceColumns());
}

std::string toLine(const EpisodeRow& row) {
    return lineOf(kEpisodes, row, episodeColumns());
}

}  // namespace fleet
