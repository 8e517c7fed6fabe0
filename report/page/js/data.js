// SPDX-License-Identifier: Apache-2.0
// The report's data and the logs, as the page holds them.

import { byId, object, objects } from "./dom.js";

// A page whose data is damaged still shows its logs, and says what is wrong.
function readReport() {
    try {
        return object(JSON.parse(byId("report").textContent));
    } catch (error) {
        return { problems: [{ file: "this page", what: `its data can't be read: ${error.message}` }] };
    }
}

export const report = readReport();
export const failures = objects(report.failures);
export const recovery = object(report.recovery);
export const answers = object(report.answers);
export const compare = object(report.compare);
export const logs = [...document.querySelectorAll("script.log")];
