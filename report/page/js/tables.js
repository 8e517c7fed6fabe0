// SPDX-License-Identifier: Apache-2.0
// Tables, of which only so many rows are in the document as a browser handles with ease.

import { asText, count, el, nothing } from "./dom.js";

const AT_ONCE = 200;

function makeRow(columns, item, rowClass) {
    const cells = columns.map(([title, show, kind]) => {
        const shown = show(item);
        const content = shown instanceof Node ? shown : el("span", {}, asText(shown));
        return el("td", { class: kind ?? "", "data-label": title }, content);
    });
    return el("tr", { class: rowClass(item) }, ...cells);
}

// A column is a title, what it shows of an item (a value or an element) and its class. At the least
// so many rows are there at once.
export function table(caption, columns, items, { rowClass = () => "", style = "", least = 0 } = {}) {
    if (items.length === 0) return nothing();
    const head = columns.map(([title, , kind]) => el("th", { scope: "col", class: kind ?? "" }, title));
    const body = el("tbody");
    const more = el("button", { type: "button", class: "screen" });
    const box = el("div", { class: "scroll" }, el("table", { class: style }, el("caption", {}, caption),
        el("thead", {}, el("tr", {}, ...head)), body));
    const showMore = () => {
        const done = body.rows.length;
        body.append(...items.slice(done, done + AT_ONCE).map((item) => makeRow(columns, item, rowClass)));
        const rest = items.length - body.rows.length;
        more.textContent = `Show ${count(Math.min(rest, AT_ONCE))} more of ${count(rest)}`;
        if (rest === 0) more.remove();
    };
    more.addEventListener("click", showMore);
    box.append(more);
    do showMore(); while (body.rows.length < least);
    return box;
}
