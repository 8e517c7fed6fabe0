// SPDX-License-Identifier: Apache-2.0
// The known limits that apply, in the words of the documentation, which the page has with it.

import { answers } from "./data.js";
import { byId, el, fill, fold, object, objects, sentence, text } from "./dom.js";

const anchorOf = (limit) => text(limit.link).split("#")[1] ?? "";

// Markdown without its marks; the page has no use for links into other documents.
const plain = (markdown) => markdown.replace(/\[([^\]]*)\]\([^)]*\)/g, "$1").replace(/\*\*|`/g, "");

// The paragraph and the points from an anchor to the next limit, which begins in bold.
function sectionOf(anchor) {
    const lines = byId("limits-text")?.textContent.split("\n") ?? [];
    const first = anchor === "" ? -1 : lines.indexOf(`\u0002a id="${anchor}">\u0002/a>`);
    if (first < 0) return [];
    const rest = lines.slice(first + 1);
    const end = rest.findIndex((line, i) => /^(\u0002a id=|#|\*\*)/.test(line) && i > 0);
    const section = rest.slice(0, end < 0 ? undefined : end).join("\n");
    return section.split(/\n(?=- )|\n\n/).map((part) => plain(part.replace(/\s+/g, " ").trim())).filter(Boolean);
}

const limits = () => objects(object(answers.next).limits);

// A link to the limit below, or its name where the documentation has no such place.
export function limitLink(limit) {
    const anchor = anchorOf(limit);
    const words = text(limit.text) || anchor;
    if (sectionOf(anchor).length === 0) return el("span", {}, words);
    const link = el("a", { href: `#limit-${anchor}` }, words);
    link.addEventListener("click", () => {
        byId(`limit-${anchor}`).open = true;
    });
    return link;
}

export function showLimits() {
    const known = limits().filter((limit) => sectionOf(anchorOf(limit)).length > 0).map((limit) => {
        const paragraphs = sectionOf(anchorOf(limit)).map((part) => el("p", {}, part.replace(/^- /, "• ")));
        const details = fold(sentence(text(limit.text)), ...paragraphs);
        details.id = `limit-${anchorOf(limit)}`;
        return details;
    });
    byId("limits").hidden = known.length === 0;
    fill("limits", ...known);
}
