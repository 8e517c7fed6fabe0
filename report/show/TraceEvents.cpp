// SPDX-License-Identifier: Apache-2.0
// The boots of a report as trace events, for the Perfetto UI.

#include "report/show/TraceEvents.h"

#include <algorithm>
#include <iterator>

#include "report/show/Json.h"

namespace report {

namespace {

using Json = nlohmann::ordered_json;

constexpr double kGap = 10;  // seconds between two boots, which follow each other
constexpr const char* kLanes[] = {"milestones", "poll",    "timeout",  "verdict",
                                  "record",     "capture", "recovery", "request",
                                  "success",    "start",   "exit",     "other"};

// Lanes are numbered from 1.
int laneOf(const std::string& kind) {
    return static_cast<int>(std::find(std::begin(kLanes), std::end(kLanes), kind) - kLanes) + 1;
}

Json nameEvent(const char* what, int process, int lane, const std::string& name) {
    return {{"ph", "M"},
            {"name", what},
            {"pid", process},
            {"tid", lane},
            {"args", {{"name", name}}}};
}

// Adds a boot that begins at `offset` seconds; returns its length.
double addBoot(const Boot& boot, int process, double offset, Json& events) {
    const auto us = [&](double t) { return (offset + t) * 1e6; };
    events.push_back(nameEvent("process_name", process, 0, boot.title));
    for (const char* lane : kLanes) {
        events.push_back(nameEvent("thread_name", process, laneOf(lane), lane));
    }
    double end = 0;
    for (size_t i = 0; i < boot.milestones.size(); ++i) {
        const double t = boot.milestones[i].t;
        const double next = i + 1 < boot.milestones.size() ? boot.milestones[i + 1].t : t;
        events.push_back({{"ph", "X"},
                          {"name", boot.milestones[i].name},
                          {"pid", process},
                          {"tid", laneOf("milestones")},
                          {"ts", us(t)},
                          {"dur", std::max(0.0, next - t) * 1e6}});
        end = std::max(end, t);
    }
    for (const Event& event : boot.events) {
        events.push_back({{"ph", "i"},
                          {"s", "t"},
                          {"name", event.text},
                          {"cat", event.kind},
                          {"pid", process},
                          {"tid", laneOf(event.kind)},
                          {"ts", us(event.t)},
                          {"args", {{"clock", event.clock}}}});
        end = std::max(end, event.t);
    }
    return end;
}

}  // namespace

std::string toTraceEvents(const Report& report) {
    Json events = Json::array();
    double offset = 0;
    int process = 0;
    for (const Boot& boot : report.boots) {
        offset += addBoot(boot, ++process, offset, events) + kGap;
    }
    return dump({{"displayTimeUnit", "ms"}, {"traceEvents", events}}) + "\n";
}

}  // namespace report
