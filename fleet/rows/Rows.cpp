// SPDX-License-Identifier: Apache-2.0
// The rows that one copy of a partition gives.

#include "fleet/rows/Rows.h"

#include <stdlib.h>

#include "fleet/rows/Signature.h"
#include "report/judge/Episodes.h"

namespace fleet {

namespace {

using report::Action;
using report::Episode;
using report::Failure;

// That a record has, "0" where the device didn't know it.
std::string countryOf(const Failure& failure) {
    return failure.country == "0" ? "" : failure.country;
}

// "reboot (log), wait for the user (list)"; of many the first and the last ones.
std::string actionWords(const std::vector<Action>& actions) {
    constexpr size_t kMost = 8;
    std::string words;
    for (size_t i = 0; i < actions.size(); ++i) {
        if (actions.size() > kMost && i >= kMost / 2 && i + kMost / 2 < actions.size()) {
            if (i == kMost / 2) words += ", …";
            continue;
        }
        if (i > 0) words += ", ";
        words += actions[i].mode == 0 ? "none" : report::modeName(actions[i].mode);
        if (actions[i].source != report::Source::NONE) {
            words += std::string(" (") + report::sourceName(actions[i].source) + ")";
        }
    }
    return words;
}

void describeFirst(const Failure& failure, EpisodeRow& row) {
    const report::ErrorNumber& number = failure.number;
    const report::BootEvent event = report::parseBootEvent(failure.lastEvent);
    row.begin = failure.iso;
    // What the daemon only captures has no number.
    if (number.type != 0) row.number = report::formatErrorNumber(number);
    row.phase = report::phaseName(number);
    row.detail = report::detailName(number);
    row.milestone = report::missingMilestone(failure);
    row.lastEvent = failure.lastEvent;
    row.process = event.process;
    row.event = event.name;
    row.reason = number.reason;
    groupAgain(row);
}

EpisodeRow rowOf(const DeviceRow& device, const Episode& episode) {
    EpisodeRow row = episodeOn(device);
    describeFirst(episode.failures.front(), row);
    row.failures = static_cast<int64_t>(episode.failures.size());
    row.lastTime = episode.last().iso;
    if (episode.last().number.type != 0) {
        row.lastNumber = report::formatErrorNumber(episode.last().number);
    }
    row.actions = actionWords(episode.actions);
    row.outcome = report::outcomeName(episode.outcome);
    row.curedBy = episode.curedBy;
    row.end = episode.stamp ? episode.stamp->iso : "";
    row.boots = episode.boots;
    row.secondsToCure = episode.secondsToCure.value_or(-1);
    row.evidenceLost = episode.evidenceLost ? 1 : 0;
    row.died = !episode.stamp && episode.actions.back().endedEarly ? 1 : 0;
    return row;
}

// Of the last record that has one.
std::string lastCountry(const report::Report& report) {
    std::string country;
    for (const Failure& failure : report.failures) {
        if (!countryOf(failure).empty()) country = countryOf(failure);
    }
    return country;
}

}  // namespace

EpisodeRow episodeOn(const DeviceRow& device) {
    EpisodeRow row;
    row.device = device.device;
    row.software = device.software;
    row.country = device.country;
    row.model = device.model;
    row.pulled = device.pulled;
    row.source = device.source;
    row.path = device.path;
    return row;
}

Rows rowsOf(const report::Report& report, const Identity& identity, const std::string& name) {
    const report::Judgement judgement = report::judge(report);
    DeviceRow device;
    device.device = identity.serial.empty() ? name : identity.serial;
    device.software = identity.software;
    device.country = identity.country.empty() ? lastCountry(report) : identity.country;
    device.model = identity.model;
    device.pulled = identity.pulled;
    device.state = report::stateName(judgement.state);
    device.rule = judgement.rule;
    device.episodes = static_cast<int64_t>(judgement.episodes.size());
    device.problems = identity.problems + static_cast<int64_t>(report.problems.size());
    device.source = "partition";
    device.path = report.path;
    Rows rows;
    for (const Episode& episode : judgement.episodes) {
        rows.episodes.push_back(rowOf(device, episode));
    }
    if (!rows.episodes.empty()) {
        // Captures are overwritten, so they are the last failure's.
        rows.episodes.back().captured = report.captures.empty() ? 0 : 1;
        device.died = rows.episodes.back().died;
    }
    for (EpisodeRow& row : rows.episodes) finish(row);
    finish(device);
    rows.devices.push_back(std::move(device));
    return rows;
}

void groupAgain(EpisodeRow& row) {
    const unsigned long number = strtoul(row.number.c_str(), nullptr, 16);
    Signature signature;
    if (row.source == "recovery") {
        signature = unknownSignature("only its recovery was uploaded");
    } else if (row.number.empty() && row.source == "upload") {
        signature = unknownSignature("its record was damaged when it was uploaded");
    } else {
        signature = signatureOf(row.number.empty() ? report::animationStays()
                                                   : report::decodeErrorNumber(number),
                                row.lastEvent,
                                row.source == "upload" ? EventText::CUT : EventText::WHOLE);
    }
    row.kind = signature.kind;
    row.signature = signature.text;
    row.signatureRules = kSignatureRules;
}

}  // namespace fleet
