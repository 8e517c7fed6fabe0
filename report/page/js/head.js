// SPDX-License-Identifier: Apache-2.0
// The head of the page: the verdict, and what is wrong with the data.

import { failures, recovery, report } from "./data.js";
import { asText, byId, el, fill, list } from "./dom.js";

// The worst failure is the one that left the device earliest in its boot, the latest of these.
function worstFailure() {
    const phase = (failure) => failure.phase ?? Infinity;
    return failures
        .filter((failure) => !failure.stamp)
        .reduce((worst, next) => (worst && phase(worst) < phase(next) ? worst : next), null);
}

export function showVerdict() {
    const worst = worstFailure();
    const parts = [];
    if (worst) {
        const what = worst.situation || "failed to boot";
        const phase = worst.phase === null || worst.phase === undefined ? "" : `, phase ${worst.phase}`;
        // Stamps are recovery's own notes among the records, no failures.
        const others = failures.filter((failure) => !failure.stamp).length;
        const among = others > 1 ? `, the worst of ${others} failures` : "";
        const when = worst.time ? ` on ${worst.time}` : "";
        const number = `${worst.number ?? "no error number"}${phase}`;
        // A stamp on the end tells what became of the device since.
        const end = failures.at(-1);
        const since = end.stamp && end.situation ? `; since then: ${end.situation}` : "";
        parts.push(`${what[0].toUpperCase()}${what.slice(1)} (${number})${when}${among}${since}.`);
    } else {
        parts.push("No boot failure is recorded.");
    }
    if (recovery.next) parts.push(`At the next failure: ${recovery.next}.`);
    const title = report.device ? `Boot report of ${report.device}` : "Boot report";
    document.title = title;
    byId("title").textContent = title;
    byId("verdict").textContent = parts.join(" ");
    byId("verdict").classList.toggle("bad", worst !== null);
}

// Hidden when there is none: unlike an empty table, a missing problem needs no mention.
export function showProblems() {
    const items = list(report.problems);
    byId("problems").hidden = items.length === 0;
    const line = ({ file, what }) => el("li", {}, el("code", {}, asText(file)), `: ${asText(what)}`);
    fill("problems", el("ul", {}, ...items.map(line)));
}
