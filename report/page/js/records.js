// SPDX-License-Identifier: Apache-2.0
// The tables of the failures, the recovery and the uploads.

import { failures, recovery, report } from "./data.js";
import { asText, el, fill, list, nothing, plural, table, yesNo } from "./dom.js";

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
    const caption = `${plural(failures.length, "record")}, in the order of the record files`;
    const rowClass = (failure) => (failure.stamp ? "stamp" : "");
    fill("failures", table(caption, columns, failures, { rowClass, style: "stack" }));
}

export function showRecovery() {
    const order = list(recovery.list).join(", then ");
    const rows = [
        ["Next", recovery.next],
        ["Last action", recovery.last_mode],
        ["Reason of the last action", recovery.last_reason],
        ["History", recovery.history],
        ["Order of actions", order],
        ["Where the order is from", order && recovery.list_source],
        ["Not reported yet", report.pending ? `a failure in phase ${asText(report.pending.phase)}` : null],
        ["Disabled", yesNo(recovery.disabled)],
    ];
    // A device that never tried a recovery has few of these, and no row of blanks for the rest.
    const known = rows.filter(([, value]) => asText(value) !== "–");
    if (known.length === 0) return fill("recovery", nothing());
    const line = ([name, value]) => el("tr", {}, el("th", { scope: "row" }, name), el("td", {}, asText(value)));
    fill("recovery", el("div", { class: "scroll" }, el("table", {}, el("tbody", {}, ...known.map(line)))));
}

export function showUploads() {
    const uploads = list(report.uploads);
    const columns = [["File", (upload) => upload.file], ["Text", (upload) => upload.text, "mono"]];
    fill("uploads", table(`${plural(uploads.length, "report")} not collected yet`, columns, uploads));
}
