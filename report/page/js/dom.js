// SPDX-License-Identifier: Apache-2.0
// Finds and makes elements of the page, and puts values into words.

// Anything in the data may be missing or of another type; the page shows that instead of failing.
export const byId = (id) => document.getElementById(id);
export const list = (value) => (Array.isArray(value) ? value : []);
export const isObject = (value) => typeof value === "object" && value !== null && !Array.isArray(value);
export const object = (value) => (isObject(value) ? value : {});
export const objects = (value) => list(value).filter(isObject);
export const text = (value) => (typeof value === "string" ? value : "");
const grouped = new Intl.NumberFormat("en-US");  // one for all: making it is slow
export const count = (number) => grouped.format(number);
export const plural = (number, noun) => `${count(number)} ${noun}${number === 1 ? "" : "s"}`;
export const shorten = (value, length) => (value.length > length ? `${value.slice(0, length - 1)}…` : value);
// A name keeps its own spelling.
export const sentence = (value) =>
    value.replace(/^[a-z]+(?=[ ,:;]|$)/, (word) => word[0].toUpperCase() + word.slice(1));

// Controls, bidirectional controls and other characters that can't be seen: a log must not be able
// to turn what stands beside it around, or to look like another.
const UNSEEN = new RegExp("[\\u0000-\\u0008\\u000b-\\u001f\\u007f-\\u009f\\u00ad\\u061c\\u115f\\u1160\\u17b4\\u17b5" +
    "\\u180b-\\u180f\\u200b-\\u200f\\u2028-\\u202e\\u2060-\\u206f\\u3164\\ufe00-\\ufe0f\\ufeff\\uffa0\\ufff9-\\ufffb" +
    "\\ud800-\\udfff\\u{e0000}-\\u{e0fff}]", "gu");
const escaped = (character) => {
    const code = character.codePointAt(0).toString(16);
    return code.length <= 2 ? `\\x${code.padStart(2, "0")}` : `\\u{${code}}`;
};
export const visible = (value) => value.replace(UNSEEN, escaped);

// Strings among the children become text nodes: what a log or a record says is never markup.
export function el(tag, attributes = {}, ...children) {
    const node = document.createElement(tag);
    for (const [name, value] of Object.entries(attributes)) node.setAttribute(name, value);
    node.append(...children.map((child) => (typeof child === "string" ? visible(child) : child)));
    return node;
}

export function asText(value) {
    if (value === null || value === undefined || value === "") return "–";
    return typeof value === "object" ? shorten(JSON.stringify(value), 200) : String(value);
}

export const yesNo = (value) => (value === null || value === undefined ? null : value ? "yes" : "no");
export const nothing = (words = "Nothing here.") => el("p", { class: "nothing" }, words);
export const fold = (title, ...content) => el("details", {}, el("summary", {}, title), ...content);

export function fill(section, ...nodes) {
    byId(section).querySelector(".content").replaceChildren(...nodes);
}
