// SPDX-License-Identifier: Apache-2.0
// The five answers of the first screen.

import { boots } from "./boots.js";
import { answers, report } from "./data.js";
import { asText, el, fill, nothing, object, objects, sentence, text } from "./dom.js";
import { limitLink } from "./limits.js";
import { placeLink } from "./places.js";

const hasAnswers = () => Object.keys(answers).length > 0;

// What stands for the answers where nothing has failed.
function withoutFailure(question) {
    if (report.state !== "no-failure") return [];
    const words = {
        hung: "Nothing.",
        why: `${sentence(text(report.sentence))}.`,
        did: boots.length ? `In its last boot: ${boots.at(-1).outcome.words}.` : "No log of a boot is here.",
        worked: "There was nothing to mend.",
        next: "Nothing to do.",
    };
    return [el("p", {}, words[question])];
}

const paragraph = (value) => (text(value) ? [el("p", {}, sentence(text(value)))] : []);

// A process or an event keeps its own spelling.
function hung(answer) {
    return text(answer.text) ? [el("p", { class: "lead" }, answer.process ? answer.text : sentence(answer.text))] : [];
}

function why(answer) {
    const lines = objects(answer.lines).map(({ text: words, file, line }) => {
        const place = placeLink(file, line);
        return el("li", {}, place, words ? ` ${asText(words)}` : "");
    });
    return [...paragraph(answer.text), ...(lines.length ? [el("ul", { class: "plain" }, ...lines)] : [])];
}

// Copies without the clipboard's permission where a browser asks for one.
async function copy(code, button) {
    try {
        await navigator.clipboard.writeText(code.textContent);
    } catch {
        getSelection().selectAllChildren(code);
        if (!document.execCommand("copy")) {
            button.textContent = "Selected";
            return;
        }
    }
    button.textContent = "Copied";
}

function command(value) {
    const code = el("code", {}, value);
    const button = el("button", { type: "button", class: "screen", "aria-label": "Copy the replay command" }, "Copy");
    button.addEventListener("click", () => copy(code, button));
    return el("p", { class: "command" }, "Replay it: ", code, " ", button);
}

function next(answer) {
    const nodes = [];
    const { file, line } = object(answer.open);
    if (file) nodes.push(el("p", {}, "Open ", placeLink(file, line), "."));
    if (text(answer.replay)) nodes.push(command(answer.replay));
    const limits = objects(answer.limits).flatMap((limit, i) => [i > 0 ? "; " : "", limitLink(limit)]);
    if (limits.length) nodes.push(el("p", {}, "Known limits that may apply: ", ...limits, "."));
    if (text(answer.recovery)) nodes.push(el("p", {}, `The next failure leads to: ${answer.recovery}.`));
    return nodes.length ? nodes : paragraph(answer.text);
}

const questions = [
    ["hung", "What hung?", hung],
    ["why", "Why do we believe so?", why],
    ["did", "What did the device do?", (answer) => paragraph(answer.text)],
    ["worked", "Did it work?", (answer) => paragraph(answer.text)],
    ["next", "What next?", next],
];

export function showAnswers() {
    const rows = questions.flatMap(([key, question, show]) => {
        const shown = hasAnswers() ? show(object(answers[key])) : withoutFailure(key);
        return [el("dt", {}, question), el("dd", {}, ...(shown.length ? shown : [nothing("Not known.")]))];
    });
    fill("answers", el("dl", { class: "answers" }, ...rows));
}
