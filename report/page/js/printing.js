// SPDX-License-Identifier: Apache-2.0
// Prints the whole page: paper can't be opened, scrolled or pointed at.

import { renderLog } from "./log-reader.js";

export function watchPrinting() {
    let opened = [];
    addEventListener("beforeprint", () => {
        opened = [...document.querySelectorAll("details:not([open])")];
        for (const details of opened) details.open = true;
        document.documentElement.classList.add("printing");
        renderLog(0);
    });
    addEventListener("afterprint", () => {
        for (const details of opened) details.open = false;
        document.documentElement.classList.remove("printing");
        renderLog();
    });
}
