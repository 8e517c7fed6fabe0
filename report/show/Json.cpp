// SPDX-License-Identifier: Apache-2.0
// A report as JSON, for other programs and for the page.

#include "report/show/Json.h"

namespace report {

using Json = nlohmann::ordered_json;

namespace {

constexpr const char* kSchema = "bootvigil-report/1";

template <typename Value>
Json orNull(bool known, const Value& value) {
    return known ? Json(value) : Json();
}

}  // namespace

// The library finds these by their arguments.

static void to_json(Json& json, const Problem& problem) {
    json = {{"file", problem.file}, {"what", problem.what}};
}

static void to_json(Json& json, const Note& note) {
    json = {{"file", note.file}, {"text", note.text}};
}

static void to_json(Json& json, const Milestone& milestone) {
    json = {{"t", milestone.t}, {"name", milestone.name}};
}

static void to_json(Json& json, const Event& event) {
    json = {{"t", event.t}, {"clock", event.clock}, {"kind", event.kind}, {"text", event.text}};
}

static void to_json(Json& json, const Boot& boot) {
    json = {{"title", boot.title},
            {"begin", boot.begin},
            {"events", boot.events},
            {"milestones", boot.milestones}};
}

static void to_json(Json& json, const Comparison& comparison) {
    json = {{"name", comparison.name}, {"milestones", comparison.milestones}};
}

static void to_json(Json& json, const Failure& failure) {
    const ErrorNumber& number = failure.number;
    const std::string missing = missingMilestone(number);
    json = {{"time", failure.time},
            {"number", formatErrorNumber(number)},
            {"phase", number.phase},
            {"detail_phase", number.detailPhase},
            {"type", number.type},
            {"reason", number.reason},
            {"stamp", number.stamp},
            {"situation", describeSituation(number)},
            {"missing_milestone", orNull(!missing.empty(), missing)},
            {"last_event", failure.lastEvent},
            {"country", failure.country},
            {"file", failure.file},
            {"line", failure.line}};
}

static void to_json(Json& json, const Recovery& recovery) {
    std::vector<std::string> list;
    for (const int mode : recovery.list) list.push_back(modeName(mode));
    json = {{"history", recovery.history},
            {"last_mode", orNull(recovery.lastMode != 0, modeName(recovery.lastMode))},
            {"last_reason", orNull(recovery.lastReason != 0, recovery.lastReason)},
            {"reason", orNull(recovery.reason != 0, recovery.reason)},
            {"list", list},
            {"list_source", recovery.override ? "override" : "default"},
            {"disabled", recovery.disabled},
            {"next", recovery.next}};
}

static void to_json(Json& json, const Capture& capture) {
    const ArchiveInfo& info = capture.info;
    json = {{"name", capture.name},        {"bytes", info.content},
            {"compressed", info.size},     {"ratio", orNull(info.ratio() > 0, info.ratio())},
            {"whole", info.error.empty()}, {"error", info.error}};
}

Json toJson(const Report& report) {
    Json json = {{"schema", kSchema}, {"device", report.device}, {"readable", report.readable}};
    json["verdict"] = report.verdict;
    json["problems"] = report.problems;
    json["pending"] = report.pendingPhase ? Json{{"phase", *report.pendingPhase}} : Json();
    json["failures"] = report.failures;
    json["recovery"] = report.recovery;
    json["uploads"] = report.uploads;
    json["notes"] = report.notes;
    json["captures"] = report.captures;
    json["journal"] = report.journal;
    json["boots"] = report.boots;
    json["compare"] = report.comparison ? Json(*report.comparison) : Json();
    return json;
}

std::string dump(const Json& json) {
    return json.dump(-1, ' ', true, Json::error_handler_t::replace);
}

}  // namespace report
