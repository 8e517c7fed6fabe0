// SPDX-License-Identifier: Apache-2.0
// An index of a log: its lines, priorities and tags, to filter and to search.

// Stands for "<" in the log blocks, where a real one could end the block.
const HIDDEN_LESS = "\u0002";
// Stands for a carriage return, which would become the end of a line.
const HIDDEN_RETURN = "\u0003";
const show = (text) => text.replaceAll(HIDDEN_LESS, "<").replace(/\u0003$/, "").replaceAll(HIDDEN_RETURN, "\r");
const PRIORITIES = "VDIWEF";
// "MM-DD HH:MM:SS.mmm  PID  TID P ", which the tag follows.
const HEAD = /\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} +\d+ +\d+ ([VDIWEF]) /y;
const SPACE = 0x20;
const COLON = 0x3a;
const SEARCH_PIECE = 1 << 20;
// What stands for the middle of a log that was too long for the page.
const GAP = /^… ([\d,]+) lines left out$/;
const ELLIPSIS = 0x2026;

// Where each line of a log begins, its priority (0: none) and its tag (0: none).
export class LogIndex {
    // `text` stays as it is: a converted copy of 64 MB would cost as much again.
    constructor(text) {
        this.text = text;
        this.starts = [];
        this.priorities = [];
        this.tags = [];
        this.tagNames = [""];
        this.tagUses = [0];
        this.tagNumbers = new Map();
        this.longest = 0;
        this.gap = { line: Infinity, lines: 1 };
    }

    get count() {
        return this.tags.length;
    }

    // A line's number in the log as it was captured, from 1.
    numberOf(line) {
        return line <= this.gap.line ? line + 1 : line + this.gap.lines;
    }

    // The line of a number; where that line was left out, the one that says so.
    lineOf(number) {
        const { line, lines } = this.gap;
        const wanted = number <= line ? number - 1 : Math.max(line, number - lines);
        return Math.min(wanted, this.count - 1);
    }

    get digits() {
        return String(this.numberOf(this.count - 1)).length;
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
            if (this.count % 2048 === 0) yield;
        }
        this.starts.push(start);  // so that each line ends before the next one's start
    }

    // A line in another layout has neither priority nor tag.
    addLine(start, end) {
        if (this.gap.line === Infinity && this.text.charCodeAt(start) === ELLIPSIS) {
            const gap = GAP.exec(this.text.slice(start, Math.min(end, start + 60)));
            if (gap) this.gap = { line: this.count, lines: Number(gap[1].replaceAll(",", "")) };
        }
        this.starts.push(start);
        this.longest = Math.max(this.longest, end - start);
        HEAD.lastIndex = start;
        const head = HEAD.exec(this.text);
        this.priorities.push(head ? PRIORITIES.indexOf(head[1]) + 1 : 0);
        this.tags.push(head ? this.tagAt(HEAD.lastIndex, end) : 0);
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
        return this.starts[number + 1] - 1 - this.starts[number];
    }

    // A line's text, cut before anything is done to it: a damaged log may be one single line.
    line(number, most) {
        const start = this.starts[number];
        return show(this.text.slice(start, start + Math.min(most, this.length(number))));
    }

    // The line that holds an offset, searched between two lines.
    lineAt(offset, first, last) {
        while (last - first > 1) {
            const middle = (first + last) >> 1;
            if (this.starts[middle] <= offset) first = middle;
            else last = middle;
        }
        return first;
    }

    // The lines that pass the filters, or null when these let everything pass.
    filter(leastPriority, tag) {
        if (leastPriority === 0 && tag === "") return null;
        const wanted = tag.toLowerCase();
        // Decided once per tag, not once per line: there are a thousand times more lines.
        const whole = this.tagNames.map((name) => name.toLowerCase() === wanted);
        const part = this.tagNames.map((name) => name.toLowerCase().includes(wanted));
        const tags = wanted !== "" && whole.includes(true) ? whole : part;
        const passing = [];
        for (let line = 0; line < this.count; ++line) {
            const priority = this.priorities[line];
            if (priority !== 0 && priority >= leastPriority && tags[this.tags[line]]) passing.push(line);
        }
        return passing;
    }

    // Collects the lines that hold the text, in pieces small enough to stop between them.
    *search(query, passing, hits) {
        const { starts } = this;
        const pattern = matcher(query.replaceAll("<", HIDDEN_LESS));
        let next = 0;
        for (let from = 0, to; from < this.count; from = to) {
            to = this.lineAt(starts[from] + SEARCH_PIECE, from, this.count - 1) + 1;
            const piece = this.text.slice(starts[from], starts[to]);
            // One hit per line is enough: the rest of the line is skipped.
            let line = from;
            pattern.lastIndex = 0;
            while (pattern.test(piece)) {
                line = this.lineAt(starts[from] + pattern.lastIndex - 1, line, to);
                while (passing?.[next] < line) ++next;
                if (!passing || passing[next] === line) hits.push(line);
                pattern.lastIndex = starts[++line] - starts[from];
                if (line === to) break;
            }
            yield;
        }
    }
}

// An expression that ignores case, since a lower-case copy may have other offsets than the text.
export const matcher = (query) => new RegExp(query.replace(/[\\^$.*+?()[\]{}|/]/g, "\\$&"), "gi");
