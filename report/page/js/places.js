// SPDX-License-Identifier: Apache-2.0
// Links to lines of the logs, and to the events of a log that is not on the page.

import { boots } from "./boots.js";
import { logs } from "./data.js";
import { count, el, text } from "./dom.js";
import { readLog } from "./log-reader.js";

// A capture that couldn't be unpacked has no log to read.
export const hasLog = (name) => logs.some((node) => node.dataset.name === name);

const isLine = (line) => Number.isInteger(line) && line > 0;

export const isAt = (file, line) => ({ place }) => place.file === file && place.line === line;

export const placeName = (file, line) => `${text(file)}${isLine(line) ? `, line ${count(line)}` : ""}`;

// A file and its line: a link where the page has that log, or an event that the line tells of, else
// only their names.
export function placeLink(file, line) {
    const log = hasLog(file);
    const boot = log || !isLine(line) ? -1 : boots.findIndex(({ events }) => events.some(isAt(file, line)));
    if (!log && boot < 0) return el("code", {}, placeName(file, line));
    const link = el("a", { href: log ? "#reader" : "#boot" }, placeName(file, line));
    link.addEventListener("click", (event) => {
        event.preventDefault();
        if (log) readLog(file, isLine(line) ? line : 0);
        else document.dispatchEvent(new CustomEvent("event-wanted", { detail: { boot, file, line } }));
    });
    return link;
}
