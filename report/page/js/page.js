// SPDX-License-Identifier: Apache-2.0
// Fills the report page from its data blocks.

import { showAnswers } from "./answers.js";
import { showBoot } from "./boot.js";
import { showCaptures } from "./captures.js";
import { byId, nothing } from "./dom.js";
import { showProblems, showState } from "./head.js";
import { showLimits } from "./limits.js";
import { showReader } from "./log-reader.js";
import { showBoots } from "./picture.js";
import { watchPrinting } from "./printing.js";
import { showEpisodes, showFailures, showRecovery, showUploads } from "./records.js";

const parts = {
    state: showState,
    answers: showAnswers,
    problems: showProblems,
    boots: showBoots,
    boot: showBoot,
    episodes: showEpisodes,
    failures: showFailures,
    recovery: showRecovery,
    uploads: showUploads,
    captures: showCaptures,
    limits: showLimits,
    reader: showReader,
};

// Whatever one part trips over, the others are shown.
for (const [id, show] of Object.entries(parts)) {
    try {
        show();
    } catch (error) {
        const section = byId(id);
        section.hidden = false;
        (section.querySelector(".content") ?? section).append(nothing(`This part can't be shown: ${error.message}`));
    }
}
watchPrinting();
