// SPDX-License-Identifier: Apache-2.0
// How the log reader shows a line: as a row, and in full.

import { byId, count, el } from "./dom.js";
import { matcher } from "./log-index.js";

export const MOST_SHOWN = 4_000;  // characters of one row
const MOST_IN_FULL = 20_000;

// The text with every occurrence of the query in a mark.
function markedText(text, query) {
    if (query === "") return [text];
    const parts = [];
    let done = 0;
    for (const match of text.matchAll(matcher(query))) {
        parts.push(text.slice(done, match.index), el("mark", {}, match[0]));
        done = match.index + match[0].length;
    }
    return [...parts, text.slice(done)];
}

export function makeRow({ index, query, current }, line) {
    const text = index.line(line, MOST_SHOWN);
    const rest = index.length(line) - MOST_SHOWN;
    const shown = rest > 0 ? `${text} … ${count(rest)} more characters` : text;
    const number = el("span", { class: "number" }, String(index.numberOf(line)).padStart(index.digits));
    const content = el("span", { class: `text p${index.priorities[line]}` }, ...markedText(shown, query));
    return el("div", { class: line === current ? "row current" : "row", "data-line": line }, number, content);
}

// Below the rows, wrapped, where long ones leave the window.
export function showInFull({ index, query }, line) {
    const cut = index.length(line) > MOST_IN_FULL ? `, its first ${count(MOST_IN_FULL)} characters` : "";
    byId("line-title").textContent = `Line ${count(index.numberOf(line))}${cut}`;
    const text = el("pre", {}, ...markedText(index.line(line, MOST_IN_FULL), query));
    byId("line-text").replaceChildren(...text.childNodes);
}
