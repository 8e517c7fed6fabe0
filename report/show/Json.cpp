// SPDX-License-Identifier: Apache-2.0
// A report as JSON, for other programs and for the page.

#include "report/show/Json.h"

#include <stdlib.h>

#include "common/version/Version.h"
#include "report/judge/Judgement.h"

namespace report {

using Json = nlohmann::ordered_json;

namespace {

constexpr const char* kSchema = "bootvigil-report/2";

template <typename Value>
Json orNull(bool known, const Value& value) {
    return known ? Json(value) : Json();
}

// A text, null when it is empty.
Json orNull(const std::string& text) {
    return orNull(!text.empty(), text);
}

// A time as it stands, and in ISO 8601, under `name` and `name` with "_iso".
void addTime(Json& json, const std::string& name, const std::string& time, const std::string& iso) {
    json[name] = orNull(time);
    json[name + "_iso"] = orNull(iso);
}

Json placeOf(const Place& place) {
    if (place.file.empty()) return {};
    return {{"file", place.file}, {"line", orNull(place.line > 0, place.line)}};
}

// Digits that no pid has are none.
Json pidOf(const BootEvent& event) {
    constexpr size_t kMost = 9;
    const bool known = !event.pid.empty() && event.pid.size() <= kMost;
    return orNull(known, known ? atoi(event.pid.c_str()) : 0);
}

// What is known of an error number: null where there is none, as in an animation that stays.
Json numberOf(const ErrorNumber& number) {
    return orNull(number.type != 0 || number.stamp, formatErrorNumber(number));
}

}  // namespace

// The library finds these by their arguments.

static void to_json(Json& json, const Problem& problem) {
    json = {{"file", problem.file},
            {"line", orNull(problem.line > 0, problem.line)},
            {"what", problem.what}};
}

static void to_json(Json& json, const Note& note) {
    json = {{"file", note.file}, {"text", note.text}};
}

static void to_json(Json& json, const JournalLine& line) {
    json = {{"text", line.text}, {"time_iso", orNull(line.iso)}, {"what", orNull(line.what)}};
}

static void to_json(Json& json, const Refusal& refusal) {
    addTime(json, "time", refusal.time, refusal.iso);
    json["action"] = refusal.action;
    json["why"] = refusal.why;
}

static void to_json(Json& json, const Milestone& milestone) {
    json = {{"t", milestone.t}, {"name", milestone.name}};
}

static void to_json(Json& json, const Event& event) {
    json = {{"t", event.t},       {"until", event.until}, {"count", event.count},
            {"kind", event.kind}, {"text", event.text},   {"place", placeOf(event.place)}};
    addTime(json, "clock", event.clock, event.iso);
}

static void to_json(Json& json, const Boot& boot) {
    json = {{"title", boot.title}, {"first", boot.first}};
    addTime(json, "begin", boot.begin, boot.beginIso);
    json["events"] = boot.events;
    json["kernel_start"] = orNull(boot.kernelStart.has_value(), boot.kernelStart.value_or(0));
    json["milestones"] = boot.milestones;
    json["rounds"] = boot.rounds;
}

static void to_json(Json& json, const Comparison& comparison) {
    json = {{"name", comparison.name}, {"milestones", comparison.milestones}};
}

// What is said of a failure wherever it is mentioned; nothing of one that isn't known.
static Json describeFailure(const Failure* known) {
    const Failure failure = known == nullptr ? Failure() : *known;
    const ErrorNumber& number = failure.number;
    const BootEvent event = parseBootEvent(failure.lastEvent);
    Json json = {{"number", numberOf(number)},
                 {"situation", describeSituation(number)},
                 {"phase_text", orNull(!number.stamp, phaseName(number))},
                 {"detail_text", orNull(!number.stamp, detailName(number))},
                 {"missing_milestone", orNull(missingMilestone(failure))},
                 {"last_event", orNull(failure.lastEvent)},
                 {"pid", pidOf(event)},
                 {"process", orNull(event.process)},
                 {"event", orNull(event.name)}};
    for (Json& value : json) {
        if (known == nullptr) value = nullptr;
    }
    return json;
}

static void to_json(Json& json, const Failure& failure) {
    const ErrorNumber& number = failure.number;
    addTime(json, "time", failure.time, failure.iso);
    json.update(describeFailure(&failure));
    json["phase"] = orNull(!number.stamp, number.phase);
    json["detail_phase"] = orNull(!number.stamp, number.detailPhase);
    json["type"] = orNull(!number.stamp, number.type);
    json["reason"] = orNull(!number.stamp, number.reason);
    json["stamp"] = number.stamp;
    json["country"] = orNull(failure.country != "0", failure.country);
    if (failure.country.empty()) json["country"] = nullptr;
    json["file"] = failure.file;
    json["line"] = failure.line;
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
            {"blocked", recovery.blocked != Blocked::NO},
            {"next", recovery.next}};
}

static void to_json(Json& json, const Capture& capture) {
    const ArchiveInfo& info = capture.info;
    json = {{"name", capture.name},        {"bytes", info.content},
            {"compressed", info.size},     {"ratio", orNull(info.ratio() > 0, info.ratio())},
            {"whole", info.error.empty()}, {"error", info.error}};
}

static void to_json(Json& json, const Action& action) {
    json = {{"action", orNull(action.mode != 0, modeName(action.mode))},
            {"source", orNull(action.source != Source::NONE, sourceName(action.source))},
            {"why_none", orNull(action.whyNone)}};
}

static void to_json(Json& json, const Quote& quote) {
    json = {{"text", quote.text},
            {"file", quote.place.file},
            {"line", orNull(quote.place.line > 0, quote.place.line)}};
}

// A row of its own for whoever keeps the episodes of many devices.
static Json episodeOf(const Report& report, const Episode& episode) {
    const Failure& last = episode.last();
    Json json = {{"device", report.device}};
    addTime(json, "begin", episode.failures.front().time, episode.failures.front().iso);
    json.update(describeFailure(&last));
    Json failures = Json::array();
    for (size_t i = 0; i < episode.failures.size(); ++i) {
        const Failure& failure = episode.failures[i];
        Json one;
        addTime(one, "time", failure.time, failure.iso);
        one.update(describeFailure(&failure));
        one["recorded"] = failure.recorded;
        one["file"] = failure.file;
        one["line"] = orNull(failure.line > 0, failure.line);
        failures.push_back(std::move(one));
    }
    json["failures"] = std::move(failures);
    json["actions"] = episode.actions;
    const Failure end = episode.stamp.value_or(Failure());
    addTime(json, "end", end.time, end.iso);
    json["outcome"] = outcomeName(episode.outcome);
    json["cured_by"] = orNull(episode.curedBy);
    json["boots"] = episode.boots;
    json["seconds_to_cure"] =
            orNull(episode.secondsToCure.has_value(), episode.secondsToCure.value_or(0));
    json["evidence_lost"] = episode.evidenceLost;
    return json;
}

static Json hungOf(const Judgement& judgement) {
    const Hung& hung = judgement.answers->hung;
    const Episode* episode = judgement.headline();
    Json json = {{"text", hung.text}};
    json.update(describeFailure(episode == nullptr ? nullptr : &episode->last()));
    json["pid"] = pidOf(hung.event);
    json["process"] = orNull(hung.event.process);
    json["event"] = orNull(hung.event.name);
    json["named_stuck"] = hung.named;
    const bool known = hung.since != nullptr;
    addTime(json, "since", known ? hung.since->clock : "", known ? hung.since->iso : "");
    json["silent_seconds"] = orNull(hung.silent.has_value(), hung.silent.value_or(0));
    return json;
}

static Json answersOf(const Judgement& judgement) {
    if (!judgement.answers) return {};
    const auto& [hung, why, did, worked, next] = *judgement.answers;
    const Episode episode = judgement.headline() == nullptr ? Episode() : *judgement.headline();
    Json limits = Json::array();
    for (const Limit& limit : next.limits) {
        limits.push_back({{"text", limit.text}, {"link", limit.link}});
    }
    return {{"hung", hungOf(judgement)},
            {"why",
             {{"text", why.text},
              {"rule", why.rule},
              {"polls", why.polls},
              {"timeouts", why.timeouts},
              {"lines", why.quotes}}},
            {"did",
             {{"text", did.text},
              {"signal", orNull(did.signal)},
              {"capture", orNull(did.capture)},
              {"refused", orNull(did.refused)},
              {"action", did.action}}},
            {"worked",
             {{"text", worked.text},
              {"answer", worked.answer},
              {"cured_by", orNull(episode.curedBy)},
              {"seconds_to_cure",
               orNull(episode.secondsToCure.has_value(), episode.secondsToCure.value_or(0))},
              {"boots", episode.boots}}},
            {"next",
             {{"text", next.text},
              {"open", placeOf(next.open)},
              {"replay", orNull(next.replay)},
              {"limits", limits},
              {"recovery", orNull(next.recovery)}}}};
}

Json toJson(const Report& report) {
    const Judgement judgement = judge(report);
    Json json = {{"schema", kSchema},
                 {"version", std::string(kVersion)},
                 {"path", report.path},
                 {"device", report.device},
                 {"state", stateName(judgement.state)},
                 {"rule", judgement.rule},
                 {"sentence", judgement.sentence},
                 {"answers", answersOf(judgement)}};
    json["episodes"] = Json::array();
    for (const Episode& episode : judgement.episodes) {
        json["episodes"].push_back(episodeOf(report, episode));
    }
    json["problems"] = report.problems;
    json["pending"] = report.flag ? Json{{"phase", *report.flag}} : Json();
    json["failures"] = report.failures;
    json["recovery"] = report.recovery;
    json["uploads"] = report.uploads;
    json["notes"] = report.notes;
    json["captures"] = report.captures;
    json["journal"] = report.journal;
    json["refusals"] = report.refusals;
    json["boots"] = report.boots;
    json["compare"] = report.comparison ? Json(*report.comparison) : Json();
    return json;
}

std::string dump(const Json& json) {
    return json.dump(-1, ' ', true, Json::error_handler_t::replace);
}

}  // namespace report
