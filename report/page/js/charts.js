// SPDX-License-Identifier: Apache-2.0
// The charts of the timeline: the events and the milestones of one boot.

import { bootName, hasFailed, milestoneRows, seconds } from "./boots.js";
import { boots, report } from "./data.js";
import { asText, byId, list, plural, shorten } from "./dom.js";

// Each kind has a place, a colour and a shape of its own, so that none depends on colour alone.
const kinds = {
    start: ["--muted", "circle"],
    poll: ["--muted", "circle"],
    timeout: ["--warn", "triangle"],
    verdict: ["--bad", "rectRot"],
    record: ["--bad", "rect"],
    capture: ["--accent", "rect"],
    request: ["--accent", "triangle"],
    recovery: ["--accent", "rectRot"],
    success: ["--good", "star"],
    exit: ["--muted", "crossRot"],
    other: ["--muted", "cross"],
};
// A kind that a newer tool writes still gets a lane.
const kindOf = (event) => (Object.hasOwn(kinds, event.kind) ? event.kind : "other");
const laneName = (kind) => kind[0].toUpperCase() + kind.slice(1);

const chartsDrawn = () => (typeof Chart === "undefined" ? [] : Object.values(Chart.instances));

export const isAnyDrawn = () => chartsDrawn().length > 0;

export function resizeCharts(width) {
    for (const chart of chartsDrawn()) chart.resize(width, chart.canvas.parentElement.clientHeight);
}

// Asked of the chart each time, since the window may be resized after the drawing.
const isNarrow = (chart) => chart.width < 600;

// The library doesn't wrap, so a long text would leave the canvas.
function wrappedLabel({ chart, raw }) {
    const text = shorten(`${seconds(raw.x)} s  ${raw.text}`, 500);
    const most = isNarrow(chart) ? 34 : 70;
    const pieces = text.match(new RegExp(`.{1,${most}}(?:\\s|$)|.{${most}}`, "gu")) ?? [];
    return pieces.map((piece) => piece.trimEnd());
}

function chartOptions(color, xTitle, names) {
    const grid = { borderColor: color("--control") };
    function callback(value) {
        return shorten(names[value], isNarrow(this.chart) ? 14 : 30);
    }
    return {
        maintainAspectRatio: false,
        animation: false,
        interaction: { mode: "nearest", intersect: true },
        scales: {
            x: { beginAtZero: true, grid, title: { display: true, text: xTitle } },
            y: { type: "category", labels: names, offset: true, ticks: { callback }, grid },
        },
        plugins: {
            legend: { display: false, labels: { color: color("--ink"), usePointStyle: true, boxHeight: 7 } },
            tooltip: {
                backgroundColor: color("--raised"),
                borderColor: color("--control"),
                borderWidth: 1,
                bodyColor: color("--ink"),
                padding: 10,
                displayColors: false,
                callbacks: { label: wrappedLabel },
            },
        },
    };
}

// Draws the chart `name`; `what` it shows is said to those who can't see it.
function draw(name, { caption, what, height, datasets, options }) {
    const canvas = byId(`${name}-chart`);
    byId(`${name}-caption`).textContent = caption;
    canvas.setAttribute("aria-label", `${what}; the tables below list them`);
    canvas.parentElement.style.height = `${height}px`;
    new Chart(canvas, { type: "scatter", data: { datasets }, options });
}

// One lane for each kind that comes up in this boot, from the first sign to the exit.
function drawEvents(boot, color) {
    const events = list(boot?.events).filter((event) => typeof event.t === "number");
    byId("events-figure").hidden = events.length === 0;
    if (events.length === 0) return;
    const point = (event, kind) =>
        ({ x: event.t, y: laneName(kind), text: `${asText(event.clock)}\n${asText(event.text)}` });
    const present = Object.keys(kinds).filter((kind) => events.some((event) => kindOf(event) === kind));
    const datasets = present.map((kind) => ({
        data: events.filter((event) => kindOf(event) === kind).map((event) => point(event, kind)),
        backgroundColor: color(kinds[kind][0]),
        borderColor: color(kinds[kind][0]),
        pointStyle: kinds[kind][1],
        pointBorderWidth: 2,
        pointRadius: 6,
        pointHoverRadius: 8,
    }));
    draw("events", {
        caption: `What happened in ${bootName(boot)}, in device seconds`,
        what: `${plural(events.length, "event")} of ${bootName(boot)}`,
        height: present.length * 38 + 90,
        datasets,
        options: chartOptions(color, "seconds since the daemon's start", present.map(laneName)),
    });
}

// Both boots climb down the same list of milestones: a hang is where one of the lines ends.
function drawMilestones(boot, color) {
    const rows = milestoneRows(boot);
    byId("milestones-figure").hidden = rows.length === 0;
    if (rows.length === 0) return;
    const points = (which) => rows
        .filter((row) => row[which] !== null)
        .map((row) => ({ x: row[which], y: row.name, text: row.name }));
    const line = (label, data, name, pointStyle, more) => ({
        label, data, pointStyle, showLine: true, borderWidth: 2, pointRadius: 4, pointHoverRadius: 7,
        borderColor: color(name), ...more,
    });
    const reached = points("own");
    const last = reached.reduce((latest, point) => (latest && latest.x > point.x ? latest : point), null);
    let caption = `Milestones: ${bootName(boot)} reached ${last ? plural(reached.length, "milestone") : "no milestone"}`;
    if (last) caption += `, last ${last.text} at ${seconds(last.x)} s`;
    const name = boot && hasFailed(boot) ? "--bad" : "--accent";
    const datasets = [line(bootName(boot), reached, name, "rectRot", { backgroundColor: color(name) })];
    if (report.compare) {
        const good = points("good");
        const passed = rows.filter((row) => row.own !== null && row.good !== null).length;
        caption += `; ${passed} of the ${good.length} of ${report.compare.name || "the good boot"}`;
        // Hollow, larger and dashed, so that two lines on each other can still be told apart.
        const hollow = { backgroundColor: "transparent", borderDash: [5, 4], pointRadius: 7, pointBorderWidth: 2 };
        datasets.push(line(report.compare.name || "good boot", good, "--good", "circle", hollow));
    }
    const options = chartOptions(color, "seconds since the kernel's start", rows.map((row) => row.name));
    options.plugins.legend.display = true;
    const height = Math.min(640, Math.max(200, rows.length * 22 + 110));
    draw("milestones", { caption, what: caption, height, datasets, options });
}

// Draws the chosen boot from scratch: at first, for another boot, another colour scheme or paper.
export function drawCharts() {
    for (const chart of chartsDrawn()) chart.destroy();
    if (typeof Chart === "undefined") return;
    const style = getComputedStyle(document.documentElement);
    const color = (name) => style.getPropertyValue(name).trim();
    // The library knows no style sheets: it is told all colours, and again when they change.
    Object.assign(Chart.defaults, { color: color("--muted"), borderColor: color("--line") });
    Chart.defaults.font.family = style.fontFamily;
    // Paper shows more dots than a screen does.
    Chart.defaults.devicePixelRatio = document.documentElement.classList.contains("printing") ? 3 : undefined;
    const boot = boots[Number(byId("boot").value) || 0];
    drawEvents(boot, color);
    drawMilestones(boot, color);
}
