// SPDX-License-Identifier: Apache-2.0
// A failure and all that followed it, until a boot completed.

#include "report/judge/Episodes.h"

#include "report/judge/Actions.h"
#include "report/read/Times.h"

namespace report {

namespace {

// Cuts what is known of failures and stamps into episodes. A stamp that follows no failure ends
// none.
std::vector<Episode> cut(const Report& report) {
    std::vector<Failure> all = report.failures;
    for (Failure& failure : unrecordedFailures(report)) all.push_back(std::move(failure));
    std::vector<Episode> episodes;
    for (const Failure& failure : all) {
        const bool open = !episodes.empty() && !episodes.back().stamp;
        if (!failure.number.stamp) {
            if (!open) episodes.emplace_back();
            episodes.back().failures.push_back(failure);
        } else if (open) {
            episodes.back().stamp = failure;
        }
        if (episodes.empty()) continue;
        // What is never recorded is not lost.
        const bool isRecord = failure.number.type != 0 || failure.number.stamp;
        const bool lost = failure.afterDamage || (!failure.recorded && isRecord);
        episodes.back().evidenceLost = episodes.back().evidenceLost || lost;
    }
    if (!episodes.empty() && report.recordsEndDamaged) episodes.back().evidenceLost = true;
    return episodes;
}

int countBoots(const Episode& episode) {
    int boots = 0;
    bool keptBefore = false;
    for (const Failure& failure : episode.failures) {
        // The init log and the kernel log of one boot are recorded by one boot.
        const bool kept = isKeptLog(failure.number);
        if (!kept || !keptBefore) ++boots;
        keptBefore = kept;
    }
    constexpr int kLaterBoot = 2;
    if (episode.stamp && episode.stamp->number.reason == kLaterBoot) ++boots;
    return boots;
}

}  // namespace

std::vector<Episode> episodesOf(const Report& report, const Notices& notices) {
    std::vector<Episode> episodes = cut(report);
    Actions actions(report, notices);
    for (Episode& episode : episodes) {
        actions.fill(episode, &episode == &episodes.back());
        episode.boots = countBoots(episode);
        if (!episode.stamp) continue;
        episode.outcome = Outcome::CURED;
        episode.curedBy = actions.cureOf(episode);
        const auto begin = secondsOfIso(episode.failures.front().iso);
        const auto end = secondsOfIso(episode.stamp->iso);
        if (begin && end && *end >= *begin) episode.secondsToCure = *end - *begin;
    }
    return episodes;
}

const char* sourceName(Source source) {
    constexpr const char* kNames[] = {"none", "log", "history", "upload", "list"};
    return kNames[static_cast<int>(source)];
}

const char* outcomeName(Outcome outcome) {
    constexpr const char* kNames[] = {"open", "cured", "unclear"};
    return kNames[static_cast<int>(outcome)];
}

}  // namespace report
