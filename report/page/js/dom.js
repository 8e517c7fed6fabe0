// SPDX-License-Identifier: Apache-2.0
// Finds and makes elements of the page, and puts values into words.

// Anything in the data may be missing or of another type; the page shows that instead of failing.
export const byId = (id) => document.getElementById(id);
export const list = (value) => (Array.isArray(value) ? value : []);
export const count = (number) => number.toLocaleString("en-US");
export const plural = (number, noun) => `${count(number)} ${noun}${number === 1 ? "" : "s"}`;
export const shorten = (text, length) => (text.length > length ? `${text.slice(0, length - 1)}…` : text);

// Strings among the children become text nodes: what a log or a record says is never markup.
export function el(tag, attributes = {}, ...children) {
    const node = document.createElement(tag);
    for (const [name, value] of Object.entries(attributes)) node.setAttribute(name, value);
    node.append(...children);
    return node;
}

export const asText = (value) => (value === null || value === undefined || value === "" ? "–" : String(value));
export const yesNo = (value) => (value === null || value === undefined ? null : value ? "yes" : "no");
export const nothing = (text = "Nothing here.") => el("p", { class: "nothing" }, text);

// A column is a title, what it shows of an item (a value or an element) and its class.
export function table(caption, columns, items, { rowClass = () => "", style = "" } = {}) {
    if (items.length === 0) return nothing();
    const head = columns.map(([title, , kind]) => el("th", { scope: "col", class: kind ?? "" }, title));
    const rows = items.map((item) => {
        const cells = columns.map(([title, show, kind]) => {
            const shown = show(item);
            const content = shown instanceof Node ? shown : el("span", {}, asText(shown));
            return el("td", { class: kind ?? "", "data-label": title }, content);
        });
        return el("tr", { class: rowClass(item) }, ...cells);
    });
    const body = [el("thead", {}, el("tr", {}, ...head)), el("tbody", {}, ...rows)];
    return el("div", { class: "scroll" }, el("table", { class: style }, el("caption", {}, caption), ...body));
}

export function fill(section, ...nodes) {
    byId(section).querySelector(".content").replaceChildren(...nodes);
}
