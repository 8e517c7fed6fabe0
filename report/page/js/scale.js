// SPDX-License-Identifier: Apache-2.0
// The axis of seconds that all bars share.

import { count, el } from "./dom.js";

const MANY = 20;

// 1, 2 or 5 times a power of ten.
function roundStep(least) {
    const power = 10 ** Math.floor(Math.log10(least));
    return [1, 2, 5, 10].map((factor) => factor * power).find((step) => step >= least);
}

// A scale to the longest of some times. A few that are far longer than many others leave it, since
// they would press these together.
export class Scale {
    constructor(times) {
        const sorted = Float64Array.from(times).sort();
        const longest = sorted.at(-1) || 1;
        const usual = sorted.length < MANY ? longest : sorted[Math.floor(sorted.length * 0.9)] || longest;
        this.end = longest > usual * 8 ? usual * 2 : longest;
        this.step = roundStep(this.end / 6);
    }

    // The place of a time, 0 to 100.
    at(time) {
        return Math.min(Math.max(0, time / this.end), 1) * 100;
    }

    holds(time) {
        return time <= this.end;
    }

    axis() {
        const ticks = [];
        for (let t = 0; t <= this.end * 0.97; t += this.step) {
            // A label before the axis' end stays within it.
            ticks.push(el("span", { class: "tick", style: `left:${this.at(t)}%` }, count(Number(t.toPrecision(6)))));
        }
        return el("div", { class: "ticks", "aria-hidden": "true" }, ...ticks);
    }

    // For the lines behind the bars.
    get grid() {
        return `--step:${this.at(this.step)}%`;
    }

    // Bars below their axis.
    figure(caption, ...bars) {
        return el("figure", { style: this.grid }, el("figcaption", {}, caption), this.axis(), ...bars);
    }
}

// A piece of a bar, from one time to another.
export function piece(scale, kind, from, to, words = "") {
    const [left, right] = [scale.at(from), scale.at(to)];
    const content = words ? [el("span", { class: "words" }, words)] : [];
    return el("div", { class: `piece ${kind}`, style: `left:${left}%;width:${right - left}%` }, ...content);
}

export const mark = (scale, kind, time) => el("i", { class: `mark-${kind}`, style: `left:${scale.at(time)}%` });
