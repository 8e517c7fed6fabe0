// SPDX-License-Identifier: Apache-2.0
// The boots as the charts and tables of the timeline need them.

import { report } from "./data.js";
import { asText, list } from "./dom.js";

export const seconds = (value) => (typeof value === "number" ? value.toFixed(3) : asText(value));
export const bootName = (boot) => boot?.title || "this boot";

// Names made unique, since a milestone that comes twice is two milestones.
function timesByName(milestones) {
    const times = new Map();
    for (const { name, t } of list(milestones)) {
        let key = asText(name);
        for (let again = 2; times.has(key); ++again) key = `${asText(name)} (${again})`;
        times.set(key, t);
    }
    return times;
}

// The milestones of a boot and of the good one, in the good one's order as far as it knows them.
export function milestoneRows(boot) {
    const own = timesByName(boot?.milestones);
    const good = timesByName(report.compare?.milestones);
    const names = [...new Set([...good.keys(), ...own.keys()])];
    const rows = names.map((name) => ({ name, own: own.get(name) ?? null, good: good.get(name) ?? null }));
    return rows.sort((a, b) => (a.good ?? a.own) - (b.good ?? b.own));
}

// A record alone is no sign: recovery leaves its stamps in good boots.
export function hasFailed(boot) {
    return list(boot.events).some((event) => event.kind === "verdict" || event.kind === "timeout");
}
