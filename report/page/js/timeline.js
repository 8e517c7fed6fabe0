// SPDX-License-Identifier: Apache-2.0
// The timeline: which boot is drawn, and the tables under the charts.

import { bootName, hasFailed, milestoneRows, seconds } from "./boots.js";
import { drawCharts, isAnyDrawn } from "./charts.js";
import { boots, report } from "./data.js";
import { asText, byId, count, el, fill, list, nothing, table } from "./dom.js";

// The charts' data for readers who can't see or point at a canvas, folded away for the others.
function bootTables(boot) {
    const tables = [];
    const fold = (title, content) => tables.push(el("details", {}, el("summary", {}, title), content));
    const events = list(boot.events);
    if (events.length) {
        const columns = [
            ["Seconds", (event) => seconds(event.t), "number"],
            ["Clock", (event) => event.clock, "time"],
            ["Kind", (event) => event.kind],
            ["Text", (event) => event.text, "mono"],
        ];
        const caption = `${bootName(boot)}${boot.begin ? `, begun ${boot.begin}` : ""}`;
        fold(`Events of ${bootName(boot)} (${count(events.length)})`, table(caption, columns, events));
    }
    const rows = milestoneRows(boot);
    if (rows.length) {
        const columns = [
            ["Milestone", (row) => row.name, "mono"],
            [bootName(boot), (row) => row.own === null ? "not reached" : seconds(row.own), "number"],
        ];
        if (report.compare) {
            const isInBoth = (row) => row.own !== null && row.good !== null;
            columns.push([report.compare.name || "good boot", (row) => seconds(row.good), "number"]);
            columns.push(["Difference", (row) => seconds(isInBoth(row) ? row.own - row.good : null), "number"]);
        }
        const content = table("Seconds since the kernel's start", columns, rows);
        fold(`Milestones of ${bootName(boot)} (${count(rows.length)})`, content);
    }
    return tables;
}

export function showTimeline() {
    // The boot that failed last is the one that a reader came for.
    const chosen = Math.max(0, boots.findLastIndex(hasFailed));
    const choice = byId("boot");
    choice.append(...boots.map((boot, place) => el("option", { value: place }, asText(boot.title))));
    choice.value = String(chosen);
    choice.addEventListener("change", drawCharts);
    byId("boot-choice").hidden = boots.length < 2;
    drawCharts();
    // Even without a boot of its own the page can list the good boot's milestones.
    const tables = (boots.length ? boots : [{}]).flatMap(bootTables);
    if (tables.length === 0 && !isAnyDrawn()) tables.push(nothing());
    if (typeof Chart === "undefined") {
        tables.unshift(nothing("The charts can't be drawn; the tables hold the same data."));
    }
    fill("timeline", ...tables);
    matchMedia("(prefers-color-scheme: dark)").addEventListener("change", drawCharts);
}
