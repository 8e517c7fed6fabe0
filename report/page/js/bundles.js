// SPDX-License-Identifier: Apache-2.0
// Many boots in little room: neighbours in a bundle of thin bars with one line of words.

import { count, el, shorten } from "./dom.js";

const MOST_BUNDLES = 5;
const PITCH = 3;  // pixels of a thin bar with its gap
const MOST_BARS = 60;

// Runs of boots that ended alike; where these would be too many, equal shares.
export function bundlesOf(boots) {
    const runs = [];
    for (const boot of boots) {
        const run = runs.at(-1);
        if (run && run[0].outcome.kind === boot.outcome.kind) run.push(boot);
        else if (runs.length <= MOST_BUNDLES) runs.push([boot]);
        else break;
    }
    if (runs.length <= MOST_BUNDLES) return runs;
    const size = Math.ceil(boots.length / MOST_BUNDLES);
    return Array.from({ length: Math.ceil(boots.length / size) }, (_, i) => boots.slice(i * size, (i + 1) * size));
}

// "10 ✕ stalled in the system server", for each way to end, the most frequent first.
export function countsOf(bundle) {
    const counts = new Map();
    for (const { outcome } of bundle) {
        const entry = counts.get(outcome.kind) ?? { ...outcome, number: 0, first: Infinity, last: 0 };
        entry.number += 1;
        entry.first = Math.min(entry.first, outcome.at);
        entry.last = Math.max(entry.last, outcome.at);
        counts.set(outcome.kind, entry);
    }
    const sorted = [...counts.values()].sort((a, b) => b.number - a.number);
    return sorted.slice(0, 4).map(({ number, color, sign, kind, first, last }) => {
        const [from, to] = [Math.round(first), Math.round(last)];
        const when = from === to ? `${from} s` : `${from} to ${to} s`;
        return el("span", { class: `outcome ${color}` }, `${count(number)} ${sign} ${shorten(kind, 120)}`,
            el("span", { class: "when" }, ` at ${when}`));
    });
}

// The one that says most of a few neighbours: a failure before a longer bar.
const worse = (a, b) => ((a.outcome.color === "good") !== (b.outcome.color === "good")
    ? (a.outcome.color === "good" ? b : a) : (a.end >= b.end ? a : b));

function thinned(bundle) {
    if (bundle.length <= MOST_BARS) return bundle;
    return Array.from({ length: MOST_BARS }, (_, i) => {
        const [from, to] = [i, i + 1].map((n) => Math.floor((n * bundle.length) / MOST_BARS));
        return bundle.slice(from, to).reduce(worse);
    });
}

// A path for each colour, so that the document grows by the bundle and not by the boot. A click on a
// bar gives `choose` its boot; the keyboard has the number of a boot for that.
export function thinBars(bundle, scale, choose) {
    const bars = thinned(bundle);
    const paths = new Map();
    const draw = (kind, row, from, to) => {
        const [left, right] = [from, to].map((time) => scale.at(time).toFixed(2));
        paths.set(kind, `${paths.get(kind) ?? ""}M${left} ${row * PITCH}H${right}v2H${left}z`);
    };
    const END = scale.end / 120;
    bars.forEach(({ silence, outcome }, row) => {
        draw("reached", row, 0, silence?.from ?? outcome.at);
        if (silence) draw("silence", row, silence.from, silence.to);
        draw(`end ${outcome.color}`, row, Math.max(0, outcome.at - END), outcome.at);
    });
    const svg = document.createElementNS("http://www.w3.org/2000/svg", "svg");
    const height = bars.length * PITCH;
    for (const [name, value] of Object.entries({
        viewBox: `0 0 100 ${height}`, height, preserveAspectRatio: "none", class: "thin", "aria-hidden": "true",
    })) svg.setAttribute(name, value);
    svg.addEventListener("click", ({ clientY }) => {
        const box = svg.getBoundingClientRect();
        choose(bars[Math.min(bars.length - 1, Math.floor(((clientY - box.top) / box.height) * bars.length))]);
    });
    for (const [kind, d] of paths) {
        const path = document.createElementNS("http://www.w3.org/2000/svg", "path");
        path.setAttribute("class", kind);
        path.setAttribute("d", d);
        svg.append(path);
    }
    return svg;
}
