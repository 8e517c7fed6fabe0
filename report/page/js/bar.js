// SPDX-License-Identifier: Apache-2.0
// One boot's bar: how far it came, its silence or its rounds, and how it ended.

import { short } from "./boots.js";
import { compare } from "./data.js";
import { el, objects, plural } from "./dom.js";
import { mark, piece } from "./scale.js";

const MOST_MARKS = 60;
const ROOM_FOR_WORDS = 50;  // percent of the axis

const goodEnd = () => objects(compare.milestones).reduce((end, { t }) => Math.max(end, Number(t) || 0), 0);

export const outcomeLabel = ({ color, sign, words }) =>
    el("span", { class: `outcome ${color}` }, el("span", { "aria-hidden": "true" }, `${sign} `), words);

// The rounds of a loop; the last one ends with the verdict.
function roundPieces(boot, scale) {
    const starts = [0, ...boot.rounds.slice(0, MOST_MARKS).map((t) => t + (boot.offset ?? 0))];
    return starts.map((from, i) => piece(scale, "round", from, starts[i + 1] ?? boot.outcome.at, String(i + 1)));
}

// What the bar means where it has no room for words: below it, with its colour.
const note = (kind, words, where = "") =>
    el("p", { class: `note ${where}` }, el("span", { class: `swatch ${kind}` }), words);

function kernelTrack(boot, scale) {
    const end = boot.milestones.at(-1).t;
    const marks = boot.milestones.slice(0, MOST_MARKS).map(({ t }) => mark(scale, "milestone", t));
    const ghost = goodEnd() > 0 ? [piece(scale, "ghost", 0, goodEnd())] : [];
    const track = el("div", { class: "track kernel" }, piece(scale, "reached", 0, end), ...ghost, ...marks);
    return [track, note("reached", "milestones in kernel seconds: nothing tells when the daemon started")];
}

// The bar of a boot with its words, for the picture of all and for the chosen one.
export function bar(boot, scale) {
    const { silence, outcome } = boot;
    const isLoop = boot.rounds.length > 0 && boot.offset !== null;
    const pieces = isLoop ? roundPieces(boot, scale) : [piece(scale, "reached", 0, silence?.from ?? outcome.at)];
    const notes = [];
    if (silence && !isLoop) {
        const inside = scale.at(silence.to) - scale.at(silence.from) >= ROOM_FOR_WORDS;
        pieces.push(piece(scale, "silence", silence.from, silence.to, inside ? silence.words : ""));
        notes.push(note("silence", silence.words, inside ? "narrow" : ""));
    }
    if (boot.end > outcome.at) pieces.push(piece(scale, "after", outcome.at, boot.end));
    if (isLoop || boot.repeated) {
        const rounds = isLoop ? plural(boot.rounds.length + 1, "round") : "";
        notes.push(note("round", [rounds, boot.repeated].filter(Boolean).join("; ")));
    }
    if (boot.offset !== null) {
        if (goodEnd() > 0) pieces.push(piece(scale, "ghost", boot.offset, goodEnd() + boot.offset));
        pieces.push(...boot.milestones.slice(0, MOST_MARKS).map(({ t }) => mark(scale, "milestone", t + boot.offset)));
    }
    pieces.push(...boot.timeouts.slice(0, MOST_MARKS).map((t) => mark(scale, "timeout", t)));
    pieces.push(mark(scale, `end ${outcome.color}`, outcome.at));
    if (!scale.holds(boot.end)) notes.push(note("after", `the bar goes on to ${short(boot.end)}`));
    const kernel = boot.offset === null && boot.milestones.length > 0 ? kernelTrack(boot, scale) : [];
    return [el("div", { class: "track" }, ...pieces), ...notes, ...kernel];
}
