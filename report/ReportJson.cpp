// SPDX-License-Identifier: Apache-2.0
// A report as JSON: for table engines, for the page, and as trace events.

#include <algorithm>

#include "BootMilestones.h"
#include "Formats.h"

namespace report {

namespace {

using Json = nlohmann::ordered_json;

constexpr const char* kSchema = "bootvigil-report/1";

Json milestonesJson(const std::vector<Milestone>& milestones) {
    Json list = Json::array();
    for (const Milestone& milestone : milestones) {
        list.push_back({{"t", milestone.t}, {"name", milestone.name}});
    }
    return list;
}

Json failureJson(const Failure& failure) {
    const ErrorNumber& number = failure.number;
    const std::string missing = missingMilestone(number);
    return {{"time", failure.time},
            {"number", formatErrorNumber(number)},
            {"phase", number.phase},
            {"detail_phase", number.detailPhase},
            {"type", number.type},
            {"reason", number.reason},
            {"stamp", number.stamp},
            {"situation", describeSituation(number)},
            {"missing_milestone", missing.empty() ? Json() : Json(missing)},
            {"last_event", failure.lastEvent},
            {"country", failure.country},
            {"file", failure.file},
            {"line", failure.line}};
}

Json recoveryJson(const Recovery& recovery) {
    Json list = Json::array();
    for (const int mode : recovery.list) list.push_back(describeMode(mode));
    return {{"history", recovery.history},
            {"last_mode", recovery.lastMode != 0 ? Json(describeMode(recovery.lastMode)) : Json()},
            {"last_reason", recovery.lastReason != 0 ? Json(recovery.lastReason) : Json()},
            {"reason", recovery.reason != 0 ? Json(recovery.reason) : Json()},
            {"list", list},
            {"list_source", recovery.override ? "override" : "default"},
            {"disabled", recovery.disabled},
            {"next", recovery.next}};
}

Json captureJson(const Capture& capture) {
    const ArchiveInfo& info = capture.info;
    const bool sized = info.content > 0 && info.size > 0;
    return {{"name", capture.name},
            {"bytes", info.content},
            {"compressed", info.size},
            {"ratio",
             sized ? Json(static_cast<double>(info.content) / static_cast<double>(info.size))
                   : Json()},
            {"whole", info.error.empty()},
            {"error", info.error}};
}

Json bootJson(const Boot& boot) {
    Json events = Json::array();
    for (const Event& event : boot.events) {
        events.push_back({{"t", event.t},
                          {"clock", event.clock},
                          {"kind", event.kind},
                          {"text", event.text}});
    }
    return {{"title", boot.title},
            {"begin", boot.begin},
            {"events", events},
            {"milestones", milestonesJson(boot.milestones)}};
}

template <typename Item, typename ToJson>
Json listJson(const std::vector<Item>& items, ToJson toJson) {
    Json list = Json::array();
    for (const Item& item : items) list.push_back(toJson(item));
    return list;
}

}  // namespace

Json toJson(const Report& report) {
    Json json = {{"schema", kSchema}, {"device", report.device}, {"readable", report.readable}};
    json["verdict"] = report.verdict;
    json["problems"] = listJson(report.problems, [](const Problem& problem) {
        return Json{{"file", problem.file}, {"what", problem.what}};
    });
    json["pending"] = report.pendingPhase ? Json{{"phase", *report.pendingPhase}} : Json();
    json["failures"] = listJson(report.failures, failureJson);
    json["recovery"] = recoveryJson(report.recovery);
    const auto noteJson = [](const Note& note) {
        return Json{{"file", note.file}, {"text", note.text}};
    };
    json["uploads"] = listJson(report.uploads, noteJson);
    json["notes"] = listJson(report.notes, noteJson);
    json["captures"] = listJson(report.captures, captureJson);
    json["journal"] = report.journal;
    json["boots"] = listJson(report.boots, bootJson);
    json["compare"] = Json();
    if (report.comparison) {
        json["compare"] = {{"name", report.comparison->name},
                           {"milestones", milestonesJson(report.comparison->milestones)}};
    }
    return json;
}

std::string dump(const Json& json) {
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::string toPerfetto(const Report& report) {
    static const std::vector<std::string> kLanes = {"milestones", "poll",    "timeout",  "verdict",
                                                    "record",     "capture", "recovery", "request",
                                                    "success",    "start",   "exit",     "other"};
    Json events = Json::array();
    double offset = 0;  // boots follow each other, ten seconds apart
    int process = 0;
    for (const Boot& boot : report.boots) {
        ++process;
        const auto us = [&](double t) { return (offset + t) * 1e6; };
        const auto name = [&](const char* what, int lane, const std::string& value) {
            events.push_back({{"ph", "M"},
                              {"name", what},
                              {"pid", process},
                              {"tid", lane},
                              {"args", {{"name", value}}}});
        };
        name("process_name", 0, boot.title);
        for (size_t i = 0; i < kLanes.size(); ++i) {
            name("thread_name", static_cast<int>(i) + 1, kLanes[i]);
        }
        double end = 0;
        for (size_t i = 0; i < boot.milestones.size(); ++i) {
            const double t = boot.milestones[i].t;
            const double next = i + 1 < boot.milestones.size() ? boot.milestones[i + 1].t : t;
            events.push_back({{"ph", "X"},
                              {"name", boot.milestones[i].name},
                              {"pid", process},
                              {"tid", 1},
                              {"ts", us(t)},
                              {"dur", std::max(0.0, next - t) * 1e6}});
            end = std::max(end, t);
        }
        for (const Event& event : boot.events) {
            const auto lane = std::find(kLanes.begin(), kLanes.end(), event.kind);
            events.push_back({{"ph", "i"},
                              {"s", "t"},
                              {"name", event.text},
                              {"cat", event.kind},
                              {"pid", process},
                              {"tid", static_cast<int>(lane - kLanes.begin()) + 1},
                              {"ts", us(event.t)},
                              {"args", {{"clock", event.clock}}}});
            end = std::max(end, event.t);
        }
        offset += end + 10;
    }
    return dump({{"displayTimeUnit", "ms"}, {"traceEvents", events}}) + "\n";
}

}  // namespace report
