// SPDX-License-Identifier: Apache-2.0
// The log reader: chooses, filters, searches and steps through a log.

import { logs, report } from "./data.js";
import { asText, byId, count, el, fill, nothing, objects, plural } from "./dom.js";
import { LogIndex } from "./log-index.js";
import { makeRow, MOST_SHOWN, showInFull } from "./log-lines.js";
import { debounced, runSliced } from "./pacing.js";
import { RowView } from "./row-view.js";

const MOST_TAGS = 2_000;

// What the reader shows. `passing` and `hits` hold line numbers; a null `passing` passes every line;
// `opening` and `searching` number the jobs, so that an older one knows that it has been replaced.
const reader = {
    index: null, passing: null, hits: [], hit: -1, query: "", current: -1, opening: 0, searching: 0,
};
const indexes = new Map();  // of the logs opened so far, by their elements
let view = null;

const lineOf = (row) => (reader.passing ? reader.passing[row] : row);

// The row of a line, or of the first line after it that is shown.
function rowOf(line) {
    if (!reader.passing) return line;
    let [first, last] = [0, reader.passing.length];
    while (first < last) {
        const middle = (first + last) >> 1;
        if (reader.passing[middle] < line) first = middle + 1;
        else last = middle;
    }
    return first;
}

// Shows a line wrapped and in full below the rows, where long ones leave the window.
function selectLine(line) {
    reader.current = line;
    byId("line").hidden = line < 0;
    if (line >= 0) showInFull(reader, line);
}

function goToHit(place) {
    const { hits } = reader;
    if (hits.length === 0) return;
    reader.hit = (place + hits.length) % hits.length;
    selectLine(hits[reader.hit]);
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
    const hits = [];
    Object.assign(reader, { query, hits: [], hit: -1 });
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
    const ahead = hits.findIndex((line) => line >= from);
    goToHit(Math.max(0, ahead));
}

function applyFilters() {
    const { index } = reader;
    // The line on top stays there when it passes, else the next that does.
    const before = view.count > 0 ? lineOf(Math.min(Math.floor(view.top), view.count - 1)) : 0;
    reader.passing = index.filter(Number(byId("priority").value), byId("tag").value.trim());
    const shown = reader.passing ? reader.passing.length : index.count;
    const width = Math.min(index.longest, MOST_SHOWN + 40) + index.digits + 6;
    let text = reader.passing ? `${count(shown)} of ${plural(index.count, "line")}` : plural(index.count, "line");
    if (index.count === 0) text = "This log is empty";
    else if (index.tagNames.length === 1) text += ", without priorities or tags";
    byId("shown").textContent = text;
    view.resize(shown, `${width}ch`);
    view.moveTo(rowOf(before));
    search();
}

// False when another log was opened meanwhile.
async function openLog() {
    const job = ++reader.opening;
    ++reader.searching;  // a search in the log left behind is of no use any more
    const node = logs[Number(byId("log").value)];
    busy(true);
    let index = indexes.get(node);
    if (!index) {
        byId("shown").textContent = "Reading …";
        index = new LogIndex(node.textContent);
        if (!await runSliced(index.build(), () => job === reader.opening)) return false;
        indexes.set(node, index);
    }
    Object.assign(reader, { index, passing: null });
    const numbers = index.tagNames.map((_, number) => number).slice(1);
    if (numbers.length > MOST_TAGS) numbers.sort((a, b) => index.tagUses[b] - index.tagUses[a]);
    // A damaged log may have a tag per line; the most used ones are offered, all can be typed.
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
    return true;
}

// Opens a log at a line, counted from 1 as everything that names one does; 0 is none.
export async function readLog(name, number = 0) {
    byId("reader-body").open = true;
    byId("log").value = String(logs.findIndex((node) => node.dataset.name === name));
    for (const id of ["search", "tag"]) byId(id).value = "";
    byId("priority").value = "0";
    byId("reader").scrollIntoView();
    byId("lines").focus({ preventScroll: true });
    if (!await openLog() || number === 0) return;
    selectLine(reader.index.lineOf(number));
    view.reveal(reader.current);
}

export function renderLog(spareRows) {
    if (reader.index) view.render(spareRows);
}

export function showReader() {
    byId("reader-body").hidden = logs.length === 0;
    if (logs.length === 0) return fill("reader", nothing("No log was captured."));
    byId("reader-summary").textContent = `Read, search and filter ${plural(logs.length, "log")}`;
    view = new RowView(byId("lines"), byId("lines-space"), byId("lines-window"), (row) => makeRow(reader, lineOf(row)));
    byId("log").append(...logs.map((node, place) => el("option", { value: place }, asText(node.dataset.name))));
    // Some captures are empty or short; the largest is the one to begin with.
    const sizes = new Map(objects(report.captures).map((capture) => [capture.name, Number(capture.bytes) || 0]));
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
        byId("reader-body").open = true;
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
