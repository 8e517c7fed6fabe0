// SPDX-License-Identifier: Apache-2.0
// One boot in full: its milestones and its events.

import { bar, outcomeLabel } from "./bar.js";
import { boots, headline, isCrowd, seconds } from "./boots.js";
import { asText, byId, count, el, fill, fold, nothing, plural, text, visible } from "./dom.js";
import { milestoneTable } from "./milestones.js";
import { hasLog, isAt, placeLink, placeName } from "./places.js";
import { Scale } from "./scale.js";
import { table } from "./tables.js";

const when = (event) => (event.until > event.t
    ? `${Math.round(event.t)} to ${Math.round(event.until)}` : seconds(event.t));
const what = (event) => (event.polls > 1
    ? `${event.polls} polls, ${event.text.replace(/^last event/, "last event unchanged")}` : event.text);

const lineOf = ({ file, line }) => (hasLog(file) ? placeLink(file, line) : placeName(file, line));

// With the event that is wanted marked, if one is.
function eventTable(boot, wanted) {
    const columns = [
        ["Seconds", when, "number"],
        ["What", (event) => what(event) || event.kind],
        ["Kind", (event) => event.kind],
        ["Clock", (event) => event.clock, "time"],
        ["Line", (event) => lineOf(event.place)],
    ];
    const caption = `Since the daemon's start${boot.begin ? `; begun ${asText(boot.begin)}` : ""}`;
    const rowClass = (event) => (event === wanted ? "wanted" : "");
    return table(caption, columns, boot.events, { style: "stack", rowClass, least: boot.events.indexOf(wanted) + 1 });
}

export function chooseBoot(place, goThere = false, wanted = null) {
    const boot = boots[Math.min(Math.max(0, place), boots.length - 1)];
    byId("boot-number").value = String((boot?.place ?? 0) + 1);
    byId("boot-title").textContent = visible(boot?.name ?? "Milestones");
    const nodes = boot ? [el("p", {}, outcomeLabel(boot.outcome))] : [];
    // A boot among many has perhaps no bar of its own above.
    if (boot && isCrowd) {
        const scale = new Scale([boot.end]);
        nodes.push(scale.figure("In seconds since the daemon's start", ...bar(boot, scale)));
    }
    const milestones = milestoneTable(boot);
    if (milestones) nodes.push(isCrowd ? fold("Milestones", milestones) : milestones);
    if (boot?.events.length) nodes.push(fold(plural(boot.events.length, "event"), eventTable(boot, wanted)));
    fill("boot", ...(nodes.length ? nodes : [nothing()]));
    if (!goThere) return;
    byId("boot").scrollIntoView();
    byId("boot-title").focus({ preventScroll: true });
}

function showEvent({ detail: { boot, file, line } }) {
    chooseBoot(boot, true, boots[boot].events.find(isAt(file, line)));
    const row = byId("boot").querySelector(".wanted");
    row.closest("details").open = true;
    row.scrollIntoView({ block: "center" });
}

export function showBoot() {
    document.addEventListener("event-wanted", showEvent);
    const number = byId("boot-number");
    number.max = String(boots.length);
    number.addEventListener("change", () => chooseBoot((Math.round(Number(number.value)) || 1) - 1));
    byId("boot-count").textContent = `of ${count(boots.length)}`;
    byId("boot-choice").hidden = boots.length < 2;
    chooseBoot(headline);
}
