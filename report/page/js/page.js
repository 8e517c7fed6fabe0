// SPDX-License-Identifier: Apache-2.0
// Fills the report page from its data blocks.

import { showCaptures } from "./captures.js";
import { showProblems, showVerdict } from "./head.js";
import { showReader } from "./log-reader.js";
import { watchPrinting } from "./printing.js";
import { showFailures, showRecovery, showUploads } from "./records.js";
import { showTimeline } from "./timeline.js";

for (const show of [showVerdict, showProblems, showTimeline, showFailures, showRecovery, showUploads,
        showCaptures, showReader, watchPrinting]) {
    show();
}
