// SPDX-License-Identifier: Apache-2.0
// The tables of the failures, the recovery and the uploads.

import { failures, recovery, report } from "./data.js";
import { asText, el, fill, fold, list, object, objects, plural, yesNo } from "./dom.js";
import { table } from "./tables.js";

// A section without anything is left out: the first screen has said what is missing.
const show = (section, number, noun, content) =>
    fill(section, ...(number > 0 ? [fold(plural(number, noun), content())] : []));

const action = (one) => asText(one.action ?? (one.why_none ? `none: ${one.why_none}` : null));

export function showEpisodes() {
    const episodes = objects(report.episodes);
    const columns = [
        ["Begin", (episode) => episode.begin, "time"],
        ["What", (episode) => episode.situation],
        ["Failures", (episode) => list(episode.failures).length, "number"],
        ["Actions", (episode) => objects(episode.actions).map(action).join(", then ")],
        ["End", (episode) => episode.end, "time"],
        ["Outcome", (episode) => [asText(episode.outcome), episode.cured_by].filter(Boolean).join(", by ")],
        ["Boots", (episode) => episode.boots, "number"],
    ];
    show("episodes", episodes.length, "episode", () =>
        table("A failure and all that followed, until a boot completed", columns, episodes, { style: "stack" }));
}

export function showFailures() {
    const columns = [
        ["Time", (failure) => failure.time, "time"],
        ["Error number", (failure) => failure.number, "mono"],
        ["Phase", (failure) => failure.phase, "number"],
        ["Detail phase", (failure) => failure.detail_phase, "number"],
        ["Type", (failure) => failure.type, "number"],
        ["Reason", (failure) => failure.reason, "number"],
        ["In words", (failure) => failure.situation],
        ["Milestone never reached", (failure) => failure.missing_milestone, "mono"],
        ["Last event", (failure) => failure.last_event, "mono long"],
        ["Country", (failure) => failure.country],
    ];
    // A column that no record fills says nothing.
    const used = columns.filter(([, value]) => failures.some((failure) => asText(value(failure)) !== "–"));
    const rowClass = (failure) => (failure.stamp ? "stamp" : "");
    show("failures", failures.length, "record", () =>
        table("In the order of the record files", used, failures, { rowClass, style: "stack" }));
}

export function showRecovery() {
    const order = list(recovery.list).map(asText).join(", then ");
    const rows = [
        ["Next", recovery.next],
        ["Last action", recovery.last_mode],
        ["Reason of the last action", recovery.last_reason],
        ["History", recovery.history],
        ["Order of actions", order],
        ["Where the order is from", order && recovery.list_source],
        ["Not reported yet", report.pending ? `a failure in phase ${asText(object(report.pending).phase)}` : null],
        ["Disabled", recovery.disabled ? yesNo(recovery.disabled) : null],
    ];
    // A device that never tried a recovery has few of these, and no row of blanks for the rest.
    const known = rows.filter(([, value]) => asText(value) !== "–");
    const line = ([name, value]) => el("tr", {}, el("th", { scope: "row" }, name), el("td", {}, asText(value)));
    const content = el("div", { class: "scroll" }, el("table", {}, el("tbody", {}, ...known.map(line))));
    fill("recovery", ...(known.length ? [fold("Recovery", content)] : []));
}

export function showUploads() {
    const uploads = objects(report.uploads);
    const columns = [["File", (upload) => upload.file], ["Text", (upload) => upload.text, "mono"]];
    show("uploads", uploads.length, "upload", () => table("Not collected yet", columns, uploads));
}
