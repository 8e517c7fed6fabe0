// SPDX-License-Identifier: Apache-2.0
// The head of the page: the device, its state, and what is wrong with the data.

import { report } from "./data.js";
import { asText, byId, el, fill, list, object, sentence, text, visible } from "./dom.js";
import { placeLink } from "./places.js";

// Each state has a sign and a word of its own, so that none depends on its colour.
const states = {
    "no-failure": ["good", "✓", "no failure"],
    cured: ["good", "✓", "cured"],
    failing: ["bad", "✕", "failing"],
    blocked: ["bad", "⊘", "blocked"],
    unclear: ["warn", "?", "unclear"],
    unreadable: ["muted", "–", "unreadable"],
};

export function showState() {
    const title = visible(report.device ? `Boot report of ${asText(report.device)}` : "Boot report");
    document.title = title;
    byId("title").textContent = title;
    // What doesn't say its state is no better than what says that it is unclear.
    const [color, sign, word] = Object.hasOwn(states, report.state) ? states[report.state] : states.unclear;
    const badge = el("strong", { class: `badge ${color}` }, el("span", { "aria-hidden": "true" }, sign), ` ${word}`);
    const why = sentence(text(report.sentence));
    byId("version").textContent = `Made by bootvigil-report ${visible(asText(report.version))}.`;
    byId("state").replaceChildren(badge, el("span", {}, why && `${why}.`));
}

// Hidden when there is none: unlike an empty table, a missing problem needs no mention.
export function showProblems() {
    const items = list(report.problems).map(object);
    byId("problems").hidden = items.length === 0;
    const MOST = 50;
    const lines = items.slice(0, MOST).map(({ file, line, what }) =>
        el("li", {}, placeLink(asText(file), line), `: ${asText(what)}`));
    if (items.length > MOST) lines.push(el("li", {}, `and ${items.length - MOST} more`));
    fill("problems", el("ul", {}, ...lines));
}
