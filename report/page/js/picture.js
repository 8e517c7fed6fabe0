// SPDX-License-Identifier: Apache-2.0
// The picture of all boots: one bar each, on one axis of seconds.

import { bar, outcomeLabel } from "./bar.js";
import { chooseBoot } from "./boot.js";
import { boots, headline, isCrowd } from "./boots.js";
import { bundlesOf, countsOf, thinBars } from "./bundles.js";
import { compare } from "./data.js";
import { count, el, fill, nothing, objects, plural, text } from "./dom.js";
import { Scale } from "./scale.js";

const NEWEST = 3;  // that have a row of their own even among many

function bootLink(boot, words) {
    const link = el("a", { href: "#boot", class: "boot-name" }, words);
    link.addEventListener("click", (event) => {
        event.preventDefault();
        chooseBoot(boot.place, true);
    });
    return link;
}

const row = (boot, scale) => el("li", {}, el("div", { class: "boot-head" },
    bootLink(boot, boot.name), outcomeLabel(boot.outcome)), ...bar(boot, scale));

function bundleRow(bundle, scale) {
    if (bundle.length === 1) return row(bundle[0], scale);
    const failed = bundle.findLast((boot) => boot.outcome.color !== "good") ?? bundle.at(-1);
    const name = `boots ${count(bundle[0].place + 1)} to ${count(bundle.at(-1).place + 1)}`;
    const head = el("div", { class: "boot-head" }, bootLink(failed, name), el("span", {}, ...countsOf(bundle)));
    const bars = thinBars(bundle, scale, (boot) => chooseBoot(boot.place, true));
    return el("li", {}, head, el("div", { class: "track bundle" }, bars));
}

// Older boots in bundles; the newest, and the one that failed last, each with a row.
function rows(scale) {
    if (!isCrowd) return boots.map((boot) => row(boot, scale));
    const newest = boots.length - NEWEST;
    const parts = headline < newest
        ? [...bundlesOf(boots.slice(0, headline)), [boots[headline]], ...bundlesOf(boots.slice(headline + 1, newest))]
        : bundlesOf(boots.slice(0, newest));
    return [...parts.map((bundle) => bundleRow(bundle, scale)), ...boots.slice(newest).map((boot) => row(boot, scale))];
}

const legend = (kind, words) => el("span", { class: "key" }, el("span", { class: `swatch ${kind}` }), words);

function legends() {
    const keys = [legend("reached", "events come")];
    if (boots.some((boot) => boot.milestones.length > 0)) keys.push(legend("line milestone", "milestone"));
    if (boots.some((boot) => boot.silence)) keys.push(legend("silence", "silence"));
    if (boots.some((boot) => boot.rounds.length > 0)) keys.push(legend("round", "round of a loop"));
    if (boots.some((boot) => boot.timeouts.length > 0)) keys.push(legend("line timeout", "time-out"));
    keys.push(legend("after", "the daemon's work after the decision"));
    if (objects(compare.milestones).length > 0) keys.push(legend("ghost", `the good boot, ${text(compare.name)}`));
    return el("p", { class: "legend" }, ...keys);
}

export function showBoots() {
    if (boots.length === 0) return fill("boots", nothing("No log tells of a boot."));
    // A bar of milestones in kernel seconds has the same scale.
    const kernelEnd = ({ offset, milestones }) => (offset === null ? milestones.at(-1)?.t ?? 0 : 0);
    const ends = boots.map((boot) => Math.max(boot.end, kernelEnd(boot)));
    const scale = new Scale(ends);
    const one = boots.some((boot) => boot.offset !== null);
    const caption = `${plural(boots.length, "boot")}${boots.length > 1 ? ", the newest last" : ""}, in seconds since ` +
        `the daemon's start${one ? ", which is the kernel's too" : ""}`;
    fill("boots", scale.figure(caption, el("ol", { class: "bars" }, ...rows(scale)), legends()));
}
