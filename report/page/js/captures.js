// SPDX-License-Identifier: Apache-2.0
// The captured logs and what else the daemon left beside them.

import { report } from "./data.js";
import { count, fill, fold, objects, plural, yesNo } from "./dom.js";
import { hasLog, placeLink } from "./places.js";
import { table } from "./tables.js";

// After a cold start there is no console of a boot before.
const isEmptyConsole = (capture) => capture.name === "console-ramoops-0" && capture.compressed === 0;

function captureTable(captures) {
    const size = (value) => (typeof value === "number" ? count(value) : value);
    const ratio = (value) => (typeof value === "number" ? value.toFixed(1) : value);
    const columns = [
        ["Log", (capture) => (hasLog(capture.name) ? placeLink(capture.name) : capture.name)],
        ["Bytes", (capture) => size(capture.bytes), "number"],
        ["Compressed", (capture) => size(capture.compressed), "number"],
        ["Ratio", (capture) => ratio(capture.ratio), "number"],
        ["Whole", (capture) => (isEmptyConsole(capture) ? "empty" : yesNo(capture.whole))],
        ["Error", (capture) => (isEmptyConsole(capture) ? "" : capture.error)],
    ];
    const isBad = (capture) => !isEmptyConsole(capture) && (capture.error || capture.whole === false);
    // A log that is cut or damaged may lack the very lines that explain the hang.
    const rowClass = (capture) => (isBad(capture) ? "bad" : "");
    const used = captures.some(isBad) ? columns : columns.slice(0, -1);
    return table("As the daemon or the log-capture service left them", used, captures, { rowClass, style: "stack" });
}

export function showCaptures() {
    const parts = [];
    const captures = objects(report.captures);
    if (captures.length) parts.push(fold(plural(captures.length, "captured log"), captureTable(captures)));
    const journal = objects(report.journal);
    const entries = () => table("What was captured, when", [["Line", (entry) => entry.text, "mono"]], journal);
    if (journal.length) parts.push(fold(plural(journal.length, "journal line"), entries()));
    // What else was left about the device: the reasons of power-offs, its memory and the like.
    const notes = objects(report.notes);
    const columns = [["File", (note) => note.file], ["Text", (note) => note.text, "mono"]];
    if (notes.length) parts.push(fold(plural(notes.length, "note"), table("About the device", columns, notes)));
    fill("captures", ...parts);
}
