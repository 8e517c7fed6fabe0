// SPDX-License-Identifier: Apache-2.0
// Long work in slices, and work that waits for a pause.

// Runs a job in slices that leave the page alive; false when something newer has replaced it.
export async function runSliced(steps, isCurrent) {
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

// Waits for a pause in the typing.
export function debounced(action, delay = 150) {
    let timer = 0;
    return () => {
        clearTimeout(timer);
        timer = setTimeout(action, delay);
    };
}
