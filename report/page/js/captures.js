// SPDX-License-Identifier: Apache-2.0
// The captured logs and what else the daemon left beside them.

import { logs, report } from "./data.js";
import { asText, byId, count, el, fill, list, nothing, plural, table, yesNo } from "./dom.js";
import { readLog } from "./log-reader.js";

export function showCaptures() {
    const read = (capture) => {
        // A capture that couldn't be unpacked has a row here but no log to read.
        const place = logs.findIndex((node) => node.dataset.name === capture.name);
        if (place < 0) return "";
        const button = el("button", { type: "button", "aria-label": `Read ${capture.name}` }, "Read");
        button.addEventListener("click", () => readLog(place));
        return button;
    };
    const size = (value) => (typeof value === "number" ? count(value) : value);
    const ratio = (value) => (typeof value === "number" ? value.toFixed(1) : value);
    const columns = [
        ["Log", (capture) => capture.name],
        ["Bytes", (capture) => size(capture.bytes), "number"],
        ["Compressed", (capture) => size(capture.compressed), "number"],
        ["Ratio", (capture) => ratio(capture.ratio), "number"],
        ["Whole", (capture) => yesNo(capture.whole)],
        ["Error", (capture) => capture.error],
        ["Lines", read, "screen"],
    ];
    const captures = list(report.captures);
    // A log that is cut or damaged may lack the very lines that explain the hang.
    const rowClass = (capture) => (capture.error || capture.whole === false ? "bad" : "");
    const title = plural(captures.length, "captured log");
    fill("captures", table(title, columns, captures, { rowClass, style: "stack" }));
    // What else was left about the device: the reasons of power-offs, its memory and the like.
    const notes = list(report.notes);
    const noteColumns = [["File", (note) => note.file], ["Text", (note) => note.text, "mono"]];
    byId("notes").hidden = notes.length === 0;
    byId("notes").append(table(plural(notes.length, "file"), noteColumns, notes));
    const entries = list(report.journal).map((entry) => el("li", { class: "mono" }, asText(entry?.text ?? entry)));
    byId("journal").replaceChildren(entries.length ? el("ul", {}, ...entries) : nothing());
}
