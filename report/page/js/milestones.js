// SPDX-License-Identifier: Apache-2.0
// The milestones of one boot, beside those of a good one.

import { seconds, short } from "./boots.js";
import { compare } from "./data.js";
import { asText, el, objects, text } from "./dom.js";
import { piece, Scale } from "./scale.js";

const MOST = 100;

// Names made unique, since a milestone that comes twice is two milestones.
function timesByName(milestones) {
    const times = new Map();
    for (const { name, t } of objects(milestones).slice(0, MOST)) {
        let key = asText(name);
        for (let again = 2; times.has(key); ++again) key = `${asText(name)} (${again})`;
        times.set(key, typeof t === "number" && t >= 0 ? t : null);
    }
    return times;
}

// In the good boot's order as far as it knows them.
function rowsOf(boot) {
    const own = timesByName(boot?.milestones);
    const good = timesByName(compare.milestones);
    const rows = [...new Set([...good.keys(), ...own.keys()])]
        .map((name) => ({ name, own: own.get(name) ?? null, good: good.get(name) ?? null }));
    return rows.sort((a, b) => (a.good ?? a.own) - (b.good ?? b.own));
}

function difference({ own, good }) {
    if (own === null || good === null) return "";
    const late = Math.round((own - good) * 1000) / 1000;
    return `${late < 0 ? "−" : late > 0 ? "+" : "±"}${Math.abs(late).toFixed(3)} s`;
}

function line(row, scale, hasGood, missing) {
    const pieces = [];
    if (row.good !== null) pieces.push(piece(scale, "ghost", 0, row.good));
    if (row.own !== null) pieces.push(piece(scale, "reached", 0, row.own));
    const time = row.own === null ? el("td", { class: `number ${missing === "not seen" ? "" : "bad"}` }, missing)
        : el("td", { class: "number" }, `${seconds(row.own)} s`);
    const cells = [el("th", { scope: "row" }, row.name), el("td", { class: "bar" },
        el("div", { class: "track" }, ...pieces)), time];
    if (hasGood) {
        const good = row.good === null ? "–" : `${seconds(row.good)} s`;
        cells.push(el("td", { class: "number", "data-label": "good" }, good),
            el("td", { class: "number" }, difference(row)));
    }
    return el("tr", {}, ...cells);
}

export function milestoneTable(boot) {
    const rows = rowsOf(boot);
    if (rows.length === 0) return null;
    const hasGood = objects(compare.milestones).length > 0;
    const scale = new Scale(rows.map((row) => Math.max(row.own ?? 0, row.good ?? 0)));
    const last = rows.filter((row) => row.own !== null).reduce((a, b) => (a && a.own > b.own ? a : b), null);
    const reached = last ? `last ${last.name} at ${short(last.own)}` : "none was reached";
    // Polls see only what came last; from a captured log no more is known.
    const missing = (row) => (boot?.offset === null && (boot.outcome.color === "good" || row.good < (last?.good ?? 0))
        ? "not seen" : "✕ not reached");
    const head = ["Milestone", "", boot?.name ? "This boot" : "", ...(hasGood ? ["Good boot", "Difference"] : [])];
    const caption = `Milestones in seconds since the kernel's start: ${reached}` +
        (hasGood ? `; outlined: the good boot, ${text(compare.name)}` : "");
    return el("table", { class: "milestones", style: scale.grid }, el("caption", {}, caption),
        el("thead", {}, el("tr", {}, ...head.map((title, i) =>
            el("th", { scope: "col", class: i > 0 ? "number" : "" }, title)))),
        el("tbody", {}, ...rows.map((row) => line(row, scale, hasGood, missing(row)))));
}
