// SPDX-License-Identifier: Apache-2.0
// Links to lines of the logs.

import { logs } from "./data.js";
import { count, el, text } from "./dom.js";
import { readLog } from "./log-reader.js";

// A capture that couldn't be unpacked has no log to read.
export const hasLog = (name) => logs.some((node) => node.dataset.name === name);

const isLine = (line) => Number.isInteger(line) && line > 0;

// A file and its line: a link where the page has that log, else only their names.
export function placeLink(file, line, words) {
    const place = `${text(file)}${isLine(line) ? `, line ${count(line)}` : ""}`;
    if (!hasLog(file)) return el("code", {}, place);
    const link = el("a", { href: "#reader" }, words ?? place);
    link.addEventListener("click", (event) => {
        event.preventDefault();
        readLog(file, isLine(line) ? line : 0);
    });
    return link;
}
