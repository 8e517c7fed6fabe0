// SPDX-License-Identifier: Apache-2.0
// Shows a window of the rows of a log, however many there are.

const ROW = 20;  // pixels, as --row in the style
const SPARE_ROWS = 12;
const MOST_PIXELS = 12_000_000;  // browsers stop laying out somewhat above this

// Shows a window of rows; nothing but these is in the document.
export class RowView {
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
