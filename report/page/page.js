// SPDX-License-Identifier: Apache-2.0
// Fills the report page from its data blocks: the tables, the charts and the log reader.

"use strict";

(() => {
    // Anything in the data may be missing or of another type; the page says so instead of failing.
    const byId = (id) => document.getElementById(id);
    const list = (value) => (Array.isArray(value) ? value : []);
    const count = (number) => number.toLocaleString("en-US");
    const plural = (number, noun) => `${count(number)} ${noun}${number === 1 ? "" : "s"}`;
    const shorten = (text, length) => (text.length > length ? `${text.slice(0, length - 1)}…` : text);

    // Strings among the children become text nodes: what a log or a record says is never markup.
    function el(tag, attributes = {}, ...children) {
        const node = document.createElement(tag);
        for (const [name, value] of Object.entries(attributes)) node.setAttribute(name, value);
        node.append(...children);
        return node;
    }

    const asText = (value) => (value === null || value === undefined || value === "" ? "–" : String(value));
    const yesNo = (value) => (value === null || value === undefined ? null : value ? "yes" : "no");
    const nothing = (text = "Nothing here.") => el("p", { class: "nothing" }, text);

    // A column is a title, what it shows of an item (a value or an element) and its class.
    function table(caption, columns, items, rowClass = () => "", style = "") {
        const head = columns.map(([title, , kind]) => el("th", { scope: "col", class: kind ?? "" }, title));
        const rows = items.map((item) => {
            const cells = columns.map(([title, show, kind]) => {
                const shown = show(item);
                const content = shown instanceof Node ? shown : el("span", {}, asText(shown));
                return el("td", { class: kind ?? "", "data-label": title }, content);
            });
            return el("tr", { class: rowClass(item) }, ...cells);
        });
        const body = [el("thead", {}, el("tr", {}, ...head)), el("tbody", {}, ...rows)];
        return el("div", { class: "scroll" }, el("table", { class: style }, el("caption", {}, caption), ...body));
    }

    function fill(section, ...nodes) {
        byId(section).querySelector(".content").replaceChildren(...nodes);
    }

    // A page whose data is damaged still shows its logs, and says what is wrong.
    function readReport() {
        try {
            return JSON.parse(byId("report").textContent) ?? {};
        } catch (error) {
            return { problems: [{ file: "this page", what: `its data can't be read: ${error.message}` }] };
        }
    }

    const report = readReport();
    const failures = list(report.failures);
    const recovery = report.recovery ?? {};
    const boots = list(report.boots);
    const logs = [...document.querySelectorAll("script.log")];

    // ---- Summary and tables

    // The worst failure is the one that left the device earliest in its boot, the latest of these.
    function worstFailure() {
        const phase = (failure) => failure.phase ?? Infinity;
        return failures
            .filter((failure) => !failure.stamp)
            .reduce((worst, next) => (worst && phase(worst) < phase(next) ? worst : next), null);
    }

    function showVerdict() {
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
    function showProblems() {
        const items = list(report.problems);
        byId("problems").hidden = items.length === 0;
        const line = ({ file, what }) => el("li", {}, el("code", {}, asText(file)), `: ${asText(what)}`);
        fill("problems", el("ul", {}, ...items.map(line)));
    }

    function showFailures() {
        if (failures.length === 0) return fill("failures", nothing());
        const columns = [
            ["Time", (failure) => failure.time, "time"],
            ["Error number", (failure) => failure.number, "mono"],
            ["Phase", (failure) => failure.phase, "number"],
            ["Detail phase", (failure) => failure.detail_phase, "number"],
            ["Type", (failure) => failure.type, "number"],
            ["Reason", (failure) => failure.reason, "number"],
            ["In words", (failure) => failure.situation, "words"],
            ["Milestone never reached", (failure) => failure.missing_milestone, "mono"],
            ["Last event", (failure) => failure.last_event, "mono long"],
            ["Country", (failure) => failure.country],
        ];
        const caption = `${plural(failures.length, "record")}, in the order of the record files`;
        fill("failures", table(caption, columns, failures, (failure) => (failure.stamp ? "stamp" : ""), "stack"));
    }

    function showRecovery() {
        const order = list(recovery.list).join(", then ");
        const rows = [
            ["Next", recovery.next],
            ["Last action", recovery.last_mode],
            ["Reason of the last action", recovery.last_reason],
            ["History", recovery.history],
            ["Order of actions", order],
            ["Where the order is from", order && recovery.list_source],
            ["Not reported yet", report.pending ? `a failure in phase ${asText(report.pending.phase)}` : null],
            ["Disabled", yesNo(recovery.disabled)],
            ["Note", recovery.note],
        ];
        // A device that never tried a recovery has few of these, and no row of blanks for the rest.
        const known = rows.filter(([, value]) => asText(value) !== "–");
        if (known.length === 0) return fill("recovery", nothing());
        const line = ([name, value]) => el("tr", {}, el("th", { scope: "row" }, name), el("td", {}, asText(value)));
        fill("recovery", el("div", { class: "scroll" }, el("table", {}, el("tbody", {}, ...known.map(line)))));
    }

    function showUploads() {
        const uploads = list(report.uploads);
        if (uploads.length === 0) return fill("uploads", nothing());
        const columns = [["File", (upload) => upload.file], ["Text", (upload) => upload.text, "mono"]];
        fill("uploads", table(`${plural(uploads.length, "report")} not collected yet`, columns, uploads));
    }

    function showCaptures() {
        const read = (capture) => {
            // A capture that couldn't be unpacked has a row here but no log to read.
            const place = logs.findIndex((node) => node.dataset.name === capture.name);
            if (place < 0) return "";
            const button = el("button", { type: "button", "aria-label": `Read ${capture.name}` }, "Read");
            button.addEventListener("click", () => {
                byId("log").value = String(place);
                openLog();
                byId("reader").scrollIntoView();
                byId("lines").focus({ preventScroll: true });
            });
            return button;
        };
        const size = (value) => (typeof value === "number" ? count(value) : value);
        const ratio = (value) => (typeof value === "number" ? value.toFixed(1) : value);
        const columns = [
            ["Log", (capture) => capture.name],
            ["Bytes", (capture) => size(capture.bytes), "number"],
            ["Compressed", (capture) => size(capture.compressed), "number"],
            ["Ratio", (capture) => ratio(capture.ratio), "number"],
            ["Whole", (capture) => yesNo(capture.whole)],
            ["Error", (capture) => capture.error],
            ["Lines", read, "screen"],
        ];
        const captures = list(report.captures);
        // A log that is cut or damaged may lack the very lines that explain the hang.
        const bad = (capture) => (capture.error || capture.whole === false ? "bad" : "");
        const title = plural(captures.length, "captured log");
        fill("captures", captures.length ? table(title, columns, captures, bad, "stack") : nothing());
        // What else was left about the device: the reasons of power-offs, its memory and the like.
        const notes = list(report.notes);
        const noteColumns = [["File", (note) => note.file], ["Text", (note) => note.text, "mono"]];
        byId("notes").hidden = notes.length === 0;
        byId("notes").append(table(plural(notes.length, "file"), noteColumns, notes));
        const entries = list(report.journal).map((entry) => el("li", { class: "mono" }, asText(entry)));
        byId("journal").replaceChildren(entries.length ? el("ul", {}, ...entries) : nothing());
    }

    // ---- Timeline

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
    const seconds = (value) => (typeof value === "number" ? value.toFixed(3) : asText(value));
    const bootName = (boot) => boot?.title || "this boot";

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
    function milestoneRows(boot) {
        const own = timesByName(boot?.milestones);
        const good = timesByName(report.compare?.milestones);
        const names = [...new Set([...good.keys(), ...own.keys()])];
        const rows = names.map((name) => ({ name, own: own.get(name) ?? null, good: good.get(name) ?? null }));
        return rows.sort((a, b) => (a.good ?? a.own) - (b.good ?? b.own));
    }

    let charts = [];  // those drawn now, destroyed before the next ones

    // The library knows no style sheets: every colour has to be handed over, and again when it changes.
    function chartOptions(color, xTitle, names) {
        const ticks = { color: color("--muted"), font: { size: 12 } };
        const grid = { color: color("--line"), borderColor: color("--control"), tickColor: color("--line") };
        // Asked of the chart each time, since the window may be resized after the drawing.
        const isNarrow = (chart) => chart.width < 600;
        return {
            responsive: true,
            maintainAspectRatio: false,
            animation: false,
            interaction: { mode: "nearest", intersect: true },
            scales: {
                x: {
                    type: "linear",
                    beginAtZero: true,
                    ticks,
                    grid,
                    title: { display: true, text: xTitle, color: color("--muted") },
                },
                y: {
                    type: "category",
                    labels: names,
                    offset: true,
                    ticks: {
                        ...ticks,
                        callback(value) {
                            return shorten(names[value], isNarrow(this.chart) ? 14 : 30);
                        },
                    },
                    grid,
                },
            },
            plugins: {
                legend: { display: false, labels: { color: color("--ink"), usePointStyle: true, boxHeight: 7 } },
                tooltip: {
                    backgroundColor: color("--raised"),
                    borderColor: color("--control"),
                    borderWidth: 1,
                    titleColor: color("--ink"),
                    bodyColor: color("--ink"),
                    padding: 10,
                    displayColors: false,
                    callbacks: {
                        // The library doesn't wrap, so that a long text would leave the canvas.
                        title: () => "",
                        label: ({ chart, raw }) => {
                            const text = shorten(`${seconds(raw.x)} s  ${raw.text}`, 500);
                            const most = isNarrow(chart) ? 34 : 70;
                            const pieces = text.match(new RegExp(`.{1,${most}}(?:\\s|$)|.{${most}}`, "gu")) ?? [];
                            return pieces.map((piece) => piece.trimEnd());
                        },
                    },
                },
            },
        };
    }

    // A record alone is no sign: recovery leaves its stamps in good boots.
    function hasFailed(boot) {
        return list(boot.events).some((event) => event.kind === "verdict" || event.kind === "timeout");
    }

    // One lane for each kind that comes up in this boot, from the first sign to the exit.
    function drawEvents(boot, color) {
        const events = list(boot?.events).filter((event) => typeof event.t === "number");
        byId("events-figure").hidden = events.length === 0;
        if (events.length === 0) return;
        const point = (event, kind) => {
            const text = `${asText(event.clock)}\n${asText(event.text)}`;
            return { x: event.t, y: laneName(kind), text };
        };
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
        const canvas = byId("events-chart");
        byId("events-caption").textContent = `What happened in ${bootName(boot)}, in device seconds`;
        const label = `${plural(events.length, "event")} of ${bootName(boot)}; the tables below list them`;
        canvas.setAttribute("aria-label", label);
        canvas.parentElement.style.height = `${present.length * 38 + 90}px`;
        const names = present.map(laneName);
        const options = chartOptions(color, "seconds since the daemon's start", names);
        charts.push(new Chart(canvas, { type: "scatter", data: { datasets }, options }));
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
        let caption = `${bootName(boot)} reached ${last ? plural(reached.length, "milestone") : "no milestone"}`;
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
        const canvas = byId("milestones-chart");
        byId("milestones-caption").textContent = `Milestones: ${caption}`;
        canvas.setAttribute("aria-label", `Milestones: ${caption}; the tables below list them`);
        canvas.parentElement.style.height = `${Math.min(640, Math.max(200, rows.length * 22 + 110))}px`;
        const options = chartOptions(color, "seconds since the kernel's start", rows.map((row) => row.name));
        options.plugins.legend.display = true;
        charts.push(new Chart(canvas, { type: "scatter", data: { datasets }, options }));
    }

    // Draws the chosen boot from scratch: at first, for another boot, another colour scheme or paper.
    function drawCharts() {
        for (const chart of charts) chart.destroy();
        charts = [];
        const style = getComputedStyle(document.documentElement);
        const color = (name) => style.getPropertyValue(name).trim();
        const boot = boots[Number(byId("boot").value) || 0];
        if (typeof Chart === "undefined") return;
        Chart.defaults.font.family = style.fontFamily;
        // Paper shows more dots than a screen does.
        Chart.defaults.devicePixelRatio = document.documentElement.classList.contains("printing") ? 3 : undefined;
        drawEvents(boot, color);
        drawMilestones(boot, color);
    }

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

    function showTimeline() {
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
        if (tables.length === 0 && charts.length === 0) tables.push(nothing());
        if (typeof Chart === "undefined") {
            tables.unshift(nothing("The charts can't be drawn; the tables hold the same data."));
        }
        fill("timeline", ...tables);
        matchMedia("(prefers-color-scheme: dark)").addEventListener("change", drawCharts);
    }

    // ---- Log index

    // Stands for "<" in the log blocks, where a real one could end the block.
    const HIDDEN_LESS = "\u0002";
    const show = (text) => text.replaceAll(HIDDEN_LESS, "<");
    const PRIORITIES = "VDIWEF";
    const SPACE = 0x20;
    const COLON = 0x3a;
    const isDigit = (code) => code >= 0x30 && code <= 0x39;

    // An array of numbers that grows without knowing how many will come.
    class Numbers {
        constructor(Type) {
            this.items = new Type(1 << 14);
            this.length = 0;
        }

        push(value) {
            if (this.length === this.items.length) {
                const more = new this.items.constructor(2 * this.length);
                more.set(this.items);
                this.items = more;
            }
            this.items[this.length++] = value;
        }
    }

    // Where each line of a log begins, its priority (0: none) and its tag (0: none), a few bytes a line.
    class LogIndex {
        // `text` stays as it is: a converted copy of 64 MB would cost as much again.
        constructor(text) {
            this.text = text;
            this.starts = new Numbers(Uint32Array);
            this.priorities = new Numbers(Uint8Array);
            this.tags = new Numbers(Uint32Array);
            this.tagNames = [""];
            this.tagUses = [0];
            this.tagNumbers = new Map();
            this.longest = 0;
            this.count = 0;
        }

        // Yields now and then, for runSliced().
        *build() {
            const { text } = this;
            let start = 0;
            while (start < text.length) {
                const newline = text.indexOf("\n", start);
                const end = newline < 0 ? text.length : newline;
                this.addLine(start, end);
                start = end + 1;
                if (++this.count % 2048 === 0) yield;
            }
            this.starts.push(start);  // so that each line ends before the next one's start
        }

        // Reads "MM-DD HH:MM:SS.mmm  PID  TID P TAG: text"; a line in another layout has no priority.
        addLine(start, end) {
            const { text } = this;
            this.starts.push(start);
            if (end - start > this.longest) this.longest = end - start;
            let at = start + 18;
            let priority = 0;
            if (end - at > 8 && text.charCodeAt(start + 2) === 0x2d && text.charCodeAt(start + 8) === COLON &&
                    text.charCodeAt(start + 11) === COLON && text.charCodeAt(start + 14) === 0x2e) {
                // Process and thread have five columns, but longer numbers push the rest to the right.
                for (let field = 0; field < 2; ++field) {
                    const before = at;
                    while (at < end && text.charCodeAt(at) === SPACE) ++at;
                    const digits = at;
                    while (at < end && isDigit(text.charCodeAt(at))) ++at;
                    if (digits === before || at === digits) at = end;
                }
                if (at + 2 < end && text.charCodeAt(at) === SPACE && text.charCodeAt(at + 2) === SPACE) {
                    priority = PRIORITIES.indexOf(text[at + 1]) + 1;
                }
            }
            this.priorities.push(priority);
            this.tags.push(priority ? this.tagAt(at + 3, end) : 0);
        }

        // A tag ends at its colon and blank, and may have blanks of its own before them.
        tagAt(start, end) {
            const { text } = this;
            for (let at = start; at < end; ++at) {
                if (text.charCodeAt(at) !== COLON || (at + 1 < end && text.charCodeAt(at + 1) !== SPACE)) continue;
                while (at > start && text.charCodeAt(at - 1) === SPACE) --at;
                const name = text.slice(start, at);
                let number = this.tagNumbers.get(name);
                if (number === undefined) {
                    number = this.tagNames.push(show(name)) - 1;
                    this.tagUses.push(0);
                    this.tagNumbers.set(name, number);
                }
                ++this.tagUses[number];
                return number;
            }
            return 0;
        }

        length(number) {
            return this.starts.items[number + 1] - 1 - this.starts.items[number];
        }

        // A line's text, cut before anything is done to it: a damaged log may be one single line.
        line(number, most) {
            const start = this.starts.items[number];
            return show(this.text.slice(start, start + Math.min(most, this.length(number))));
        }

        // The line that holds an offset, searched between two lines.
        lineAt(offset, first, last) {
            const { items } = this.starts;
            while (last - first > 1) {
                const middle = (first + last) >> 1;
                if (items[middle] <= offset) first = middle;
                else last = middle;
            }
            return first;
        }

        // The lines that pass the filters, or null when these let everything pass.
        filter(leastPriority, tag) {
            if (leastPriority === 0 && tag === "") return null;
            const wanted = tag.toLowerCase();
            // Decided once a tag, not once a line; there are a thousand times more lines.
            const whole = this.tagNames.map((name) => name.toLowerCase() === wanted);
            const part = this.tagNames.map((name) => name.toLowerCase().includes(wanted));
            const tags = wanted !== "" && whole.includes(true) ? whole : part;
            const passing = new Numbers(Uint32Array);
            for (let line = 0; line < this.count; ++line) {
                const priority = this.priorities.items[line];
                if (priority !== 0 && priority >= leastPriority && tags[this.tags.items[line]]) passing.push(line);
            }
            return passing;
        }

        // Collects the lines that hold the text, in pieces small enough to stop between them.
        *search(query, passing, hits) {
            const { items } = this.starts;
            const pattern = matcher(query.replaceAll("<", HIDDEN_LESS));
            let next = 0;
            for (let from = 0, to; from < this.count; from = to) {
                to = this.lineAt(items[from] + SEARCH_PIECE, from, this.count - 1) + 1;
                const piece = this.text.slice(items[from], items[to]);
                // One hit a line is enough: the rest of the line is skipped.
                let line = from;
                pattern.lastIndex = 0;
                while (pattern.test(piece)) {
                    line = this.lineAt(items[from] + pattern.lastIndex - 1, line, to);
                    if (passing) {
                        while (next < passing.length && passing.items[next] < line) ++next;
                    }
                    if (!passing || (next < passing.length && passing.items[next] === line)) hits.push(line);
                    pattern.lastIndex = items[++line] - items[from];
                    if (line === to) break;
                }
                yield;
            }
        }
    }

    const SEARCH_PIECE = 1 << 20;
    // An expression that ignores case, since a lower-case copy may have other offsets than the text.
    const matcher = (query) => new RegExp(query.replace(/[\\^$.*+?()[\]{}|/]/g, "\\$&"), "gi");

    // Runs a job in slices that leave the page alive; false when something newer has replaced it.
    async function runSliced(steps, isCurrent) {
        const SLICE = 20;
        let until = performance.now() + SLICE;
        while (!steps.next().done) {
            if (performance.now() < until) continue;
            await new Promise((resolve) => setTimeout(resolve));
            if (!isCurrent()) return false;
            until = performance.now() + SLICE;
        }
        return true;
    }

    // ---- Log reader

    const ROW = 20;  // pixels, as --row in the style
    const SPARE_ROWS = 12;
    const MOST_PIXELS = 12_000_000;  // browsers stop laying out somewhat above this
    const MOST_SHOWN = 4_000;  // characters of one row
    const MOST_IN_FULL = 20_000;
    const MOST_TAGS = 2_000;

    // Shows a window of rows; nothing but these is in the document.
    class RowView {
        constructor(scroller, space, frame, makeRow) {
            Object.assign(this, { scroller, space, frame, makeRow, count: 0, top: 0, scrolledTo: 0 });
            scroller.addEventListener("scroll", () => this.onScroll());
            scroller.addEventListener("keydown", (event) => this.onKey(event));
            scroller.addEventListener("wheel", (event) => this.onWheel(event), { passive: false });
            // A taller window shows more rows, and a scroller that was hidden had none at all.
            new ResizeObserver(() => this.moveTo(this.top)).observe(scroller);
        }

        get rowsInView() {
            return this.scroller.clientHeight / ROW;
        }

        get lastTop() {
            return Math.max(0, this.count - this.rowsInView);
        }

        // Rows for each pixel that can be scrolled; more than 1 / ROW when the log is too high.
        get rowsPerPixel() {
            if (this.count * ROW <= MOST_PIXELS) return 1 / ROW;
            return this.lastTop / (MOST_PIXELS - this.scroller.clientHeight);
        }

        resize(count, width) {
            this.count = count;
            this.space.style.height = `${Math.min(count * ROW, MOST_PIXELS)}px`;
            this.space.style.minWidth = width;
        }

        moveTo(row) {
            this.top = Math.min(Math.max(0, row), this.lastTop);
            this.scroller.scrollTop = this.top / this.rowsPerPixel;
            this.scrolledTo = this.scroller.scrollTop;
            this.render();
        }

        // Leaves the view alone when the row is in it: stepping through close hits doesn't jump about.
        reveal(row) {
            const inView = row >= this.top && row + 1 <= this.top + this.rowsInView;
            this.moveTo(inView ? this.top : row - this.rowsInView / 3);
        }

        onScroll() {
            // What moveTo() did keeps its exact row, which the pixels of a high log can't tell.
            if (Math.abs(this.scroller.scrollTop - this.scrolledTo) < 1) return;
            this.scrolledTo = this.scroller.scrollTop;
            this.top = Math.min(this.scrolledTo * this.rowsPerPixel, this.lastTop);
            this.render();
        }

        // By rows, where the browser would scroll by pixels that stand for hundreds of them.
        onKey(event) {
            if (event.altKey || event.ctrlKey || event.metaKey) return;
            const page = Math.max(1, Math.floor(this.rowsInView) - 1);
            const moves = { ArrowUp: -1, ArrowDown: 1, PageUp: -page, PageDown: page, Home: -Infinity, End: Infinity };
            if (!Object.hasOwn(moves, event.key)) return;
            event.preventDefault();
            this.moveTo(this.top + moves[event.key]);
        }

        // Only a log too high for the browser needs this; any other scrolls smoothly by itself.
        onWheel(event) {
            if (this.rowsPerPixel === 1 / ROW || event.ctrlKey || event.shiftKey) return;
            event.preventDefault();
            this.moveTo(this.top + event.deltaY / (event.deltaMode === 0 ? ROW : 1));
            this.scroller.scrollLeft += event.deltaX;
        }

        render(spare = SPARE_ROWS) {
            const first = Math.max(0, Math.floor(this.top) - spare);
            const last = Math.min(this.count, Math.ceil(this.top + this.rowsInView) + spare);
            const rows = [];
            for (let row = first; row < last; ++row) rows.push(this.makeRow(row));
            // From the exact top row, which may lie between two pixels of the scroll bar.
            this.frame.style.top = `${this.scroller.scrollTop - (this.top - first) * ROW}px`;
            this.frame.replaceChildren(...rows);
        }
    }

    // What the reader shows. `passing` and `hits` hold line numbers; a null `passing` passes every line;
    // `opening` and `searching` number the jobs, so that an older one knows that it has been replaced.
    const reader = {
        index: null, passing: null, hits: null, hit: -1, query: "", current: -1, opening: 0, searching: 0,
    };
    const indexes = new Map();  // of the logs opened so far, by their elements
    let view = null;

    const lineOf = (row) => (reader.passing ? reader.passing.items[row] : row);

    // The row of a line, or of the first line after it that is shown.
    function rowOf(line) {
        if (!reader.passing) return line;
        let [first, last] = [0, reader.passing.length];
        while (first < last) {
            const middle = (first + last) >> 1;
            if (reader.passing.items[middle] < line) first = middle + 1;
            else last = middle;
        }
        return first;
    }

    // The text with every occurrence of the query in a mark.
    function markedText(text) {
        if (reader.query === "") return [text];
        const parts = [];
        let done = 0;
        for (const match of text.matchAll(matcher(reader.query))) {
            parts.push(text.slice(done, match.index), el("mark", {}, match[0]));
            done = match.index + match[0].length;
        }
        return [...parts, text.slice(done)];
    }

    function makeRow(row) {
        const { index } = reader;
        const line = lineOf(row);
        const text = index.line(line, MOST_SHOWN);
        const rest = index.length(line) - MOST_SHOWN;
        const shown = rest > 0 ? `${text} … ${count(rest)} more characters` : text;
        const number = el("span", { class: "number" }, String(line + 1).padStart(String(index.count).length));
        const content = el("span", { class: `text p${index.priorities.items[line]}` }, ...markedText(shown));
        const current = line === reader.current ? " current" : "";
        return el("div", { class: `row${current}`, "data-line": line }, number, content);
    }

    // Shows a line wrapped and in full below the rows, where long ones leave the window.
    function selectLine(line) {
        reader.current = line;
        byId("line").hidden = line < 0;
        if (line < 0) return;
        const cut = reader.index.length(line) > MOST_IN_FULL ? `, its first ${count(MOST_IN_FULL)} characters` : "";
        byId("line-title").textContent = `Line ${count(line + 1)}${cut}`;
        byId("line-text").replaceChildren(...markedText(reader.index.line(line, MOST_IN_FULL)));
    }

    function goToHit(place) {
        const { hits } = reader;
        if (!hits || hits.length === 0) return;
        reader.hit = (place + hits.length) % hits.length;
        selectLine(hits.items[reader.hit]);
        view.reveal(rowOf(reader.current));
        byId("hits").textContent = `Hit ${count(reader.hit + 1)} of ${plural(hits.length, "line")}`;
        // A mark far to the right of a long line is scrolled into view as well.
        const mark = view.frame.querySelector(".current mark");
        const gutter = view.frame.querySelector(".current .number");
        if (!mark) return;
        const [box, found] = [view.scroller.getBoundingClientRect(), mark.getBoundingClientRect()];
        const left = box.left + gutter.offsetWidth;
        if (found.left >= left && found.right <= box.right) return;
        view.scroller.scrollLeft += found.left - left - (box.right - left) / 3;
    }

    // Tells assistive technology, and tests, that what is shown isn't final.
    const busy = (is) => byId("reader").setAttribute("aria-busy", String(is));

    async function search() {
        const job = ++reader.searching;
        const { index, passing } = reader;
        const query = byId("search").value;
        const hits = new Numbers(Uint32Array);
        Object.assign(reader, { query, hits: null, hit: -1 });
        byId("hits").textContent = query === "" ? "" : "Searching …";
        for (const id of ["previous", "next"]) byId(id).disabled = true;
        if (query !== "") {
            busy(true);
            if (!await runSliced(index.search(query, passing, hits), () => job === reader.searching)) return;
            reader.hits = hits;
            byId("hits").textContent = "No line holds this text";
        }
        busy(false);
        for (const id of ["previous", "next"]) byId(id).disabled = hits.length === 0;
        selectLine(-1);
        view.render();
        if (hits.length === 0) return;
        // Starts at the first hit from the view on, so that typing doesn't lose one's place.
        const from = lineOf(Math.min(Math.ceil(view.top), view.count - 1));
        const ahead = hits.items.subarray(0, hits.length).findIndex((line) => line >= from);
        goToHit(Math.max(0, ahead));
    }

    function applyFilters() {
        const { index } = reader;
        // The line on top stays there when it passes, else the next that does.
        const before = view.count > 0 ? lineOf(Math.min(Math.floor(view.top), view.count - 1)) : 0;
        reader.passing = index.filter(Number(byId("priority").value), byId("tag").value.trim());
        const shown = reader.passing ? reader.passing.length : index.count;
        const width = Math.min(index.longest, MOST_SHOWN + 40) + String(index.count).length + 6;
        let text = reader.passing ? `${count(shown)} of ${plural(index.count, "line")}` : plural(index.count, "line");
        if (index.count === 0) text = "This log is empty";
        else if (index.tagNames.length === 1) text += ", without priorities or tags";
        byId("shown").textContent = text;
        view.resize(shown, `${width}ch`);
        view.moveTo(rowOf(before));
        search();
    }

    async function openLog() {
        const job = ++reader.opening;
        ++reader.searching;  // a search in the log left behind has no use any more
        const node = logs[Number(byId("log").value)];
        busy(true);
        let index = indexes.get(node);
        if (!index) {
            byId("shown").textContent = "Reading …";
            index = new LogIndex(node.textContent);
            if (!await runSliced(index.build(), () => job === reader.opening)) return;
            indexes.set(node, index);
        }
        Object.assign(reader, { index, passing: null });
        const numbers = index.tagNames.map((_, number) => number).slice(1);
        if (numbers.length > MOST_TAGS) numbers.sort((a, b) => index.tagUses[b] - index.tagUses[a]);
        // A damaged log may have a tag a line; the most used ones are offered, all can be typed.
        const names = numbers.slice(0, MOST_TAGS).map((number) => index.tagNames[number]).sort();
        byId("tags").replaceChildren(...names.map((name) => el("option", { value: name })));
        // Filters would hide all of a log whose lines have neither priority nor tag.
        for (const id of ["priority", "tag"]) {
            byId(id).disabled = names.length === 0;
            if (names.length === 0) byId(id).value = id === "tag" ? "" : "0";
        }
        byId("lines").setAttribute("aria-label", `Lines of ${node.dataset.name}`);
        view.resize(0, "");
        view.scroller.scrollLeft = 0;
        applyFilters();
    }

    // Waits for a pause in the typing.
    function debounced(action, delay = 150) {
        let timer = 0;
        return () => {
            clearTimeout(timer);
            timer = setTimeout(action, delay);
        };
    }

    function showReader() {
        byId("reader-body").hidden = logs.length === 0;
        if (logs.length === 0) return fill("reader", nothing());
        view = new RowView(byId("lines"), byId("lines-space"), byId("lines-window"), makeRow);
        byId("log").append(...logs.map((node, place) => el("option", { value: place }, asText(node.dataset.name))));
        // Some captures are empty or short; the largest is the one to begin with.
        const sizes = new Map(list(report.captures).map((capture) => [capture.name, Number(capture.bytes) || 0]));
        const size = (node) => (node.firstChild ? sizes.get(node.dataset.name) ?? 1 : -1);
        const largest = logs.reduce((best, node, place) => (size(node) > size(logs[best]) ? place : best), 0);
        byId("log").value = String(largest);
        // Enter doesn't wait for the pause after the typing.
        const step = (by) => {
            if (byId("search").value !== reader.query) search();
            else goToHit(reader.hit + by);
        };
        byId("log").addEventListener("change", openLog);
        const searchSoon = debounced(() => byId("search").value !== reader.query && search());
        byId("search").addEventListener("input", searchSoon);
        byId("priority").addEventListener("change", applyFilters);
        byId("tag").addEventListener("input", debounced(applyFilters));
        byId("previous").addEventListener("click", () => step(-1));
        byId("next").addEventListener("click", () => step(1));
        byId("reader-form").addEventListener("submit", (event) => event.preventDefault());
        byId("search").addEventListener("keydown", (event) => {
            if (event.key !== "Enter" || event.isComposing) return;
            event.preventDefault();
            step(event.shiftKey ? -1 : 1);
        });
        document.addEventListener("keydown", (event) => {
            const typing = event.target.closest?.("input, select, textarea");
            if (event.key !== "/" || typing || event.altKey || event.ctrlKey || event.metaKey) return;
            event.preventDefault();
            byId("search").focus();
            byId("search").select();
        });
        view.frame.addEventListener("click", (event) => {
            const row = event.target.closest(".row");
            // Selecting text to copy it ends in a click, too.
            if (!row || !getSelection().isCollapsed) return;
            selectLine(Number(row.dataset.line));
            view.render();
        });
        openLog();
    }

    // ---- Printing

    // Paper can't be opened, scrolled or pointed at: everything is unfolded and drawn black on white.
    function watchPrinting() {
        let opened = [];
        addEventListener("beforeprint", () => {
            opened = [...document.querySelectorAll("details:not([open])")];
            for (const details of opened) details.open = true;
            document.documentElement.classList.add("printing");
            drawCharts();
            // The width of a page's text; the canvas doesn't learn the paper's in time.
            for (const chart of charts) chart.resize(680, chart.canvas.parentElement.clientHeight);
            if (reader.index) view.render(0);
        });
        addEventListener("afterprint", () => {
            for (const details of opened) details.open = false;
            document.documentElement.classList.remove("printing");
            drawCharts();
            if (reader.index) view.render();
        });
    }

    for (const part of [showVerdict, showProblems, showTimeline, showFailures, showRecovery, showUploads,
            showCaptures, showReader, watchPrinting]) {
        part();
    }
})();
