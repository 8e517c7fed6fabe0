// SPDX-License-Identifier: Apache-2.0
// The boots as the picture and the tables need them: how far each came, where it fell silent, how it ended.

import { report } from "./data.js";
import { count, list, object, objects, text } from "./dom.js";

const MOST_SECONDS = 1e9;  // a damaged clock must not stretch the axis beyond all sense
const isTime = (value) => typeof value === "number" && value >= 0 && value <= MOST_SECONDS;

export const seconds = (value) => (typeof value === "number" ? value.toFixed(3) : "–");
export const short = (value) => `${count(Math.round(value))} s`;

const CODES = / \(0x.*/;
const LAST_EVENT = "last event: ";

// "1113-system_server  | AMS:systemReady" in parts; the process may be missing.
function parseEvent(words) {
    const bar = words.indexOf("|");
    return { who: words.slice(0, Math.max(0, bar)).trim().replace("-", " "), name: words.slice(bar + 1).trim() };
}

// Of the failure that was decided last, without its codes; then what was asked of the platform.
function failedWords(verdicts, events) {
    const verdict = verdicts.findLast((event) => /\(0x[0-9a-f]+/.test(event.text)) ?? verdicts.at(-1);
    const request = events.findLast((event) => event.kind === "request" && event.t >= verdict.t);
    const what = verdict.text.replace(CODES, "");
    return `${what || "a failure"} at ${short(verdict.t)}${request ? ` → ${request.text}` : ""}`;
}

// How a boot ended, in words, with a colour and a sign. What is alike in two boots has one `kind`.
function outcomeOf(events, end) {
    const verdicts = events.filter((event) => event.kind === "verdict");
    const complete = events.find((event) => event.kind === "success" && event.text.includes("boot is complete"));
    const exit = events.findLast((event) => event.kind === "exit" && /^(killed|exit status)/.test(event.text));
    if (verdicts.length > 0) {
        const words = failedWords(verdicts, events);
        const at = verdicts[0].t;
        const kind = verdicts.at(-1).text.replace(CODES, "");
        const done = complete ? `complete at ${short(complete.t)}` : "";
        if (done && complete.t > at) return { color: "warn", sign: "!", words: `${words}, yet ${done}`, kind, at };
        return { color: "bad", sign: "✕", words: done ? `${done}, then ${words}` : words, kind, at };
    }
    if (complete) {
        const words = `complete at ${short(complete.t)}`;
        return { color: "good", sign: "✓", words, kind: "complete", at: complete.t };
    }
    if (exit) {
        const words = `${exit.text} at ${short(exit.t)}`;
        return { color: "bad", sign: "✕", words, kind: exit.text, at: exit.t };
    }
    const words = events.length ? `not known: its log ends at ${short(end)}` : "not known: no line of it was kept";
    return { color: "warn", sign: "?", words, kind: "not known", at: end };
}

// From the last event to the verdict, or to the log's end. Nothing but the polls tells when the event
// came, unless kernel and daemon have one clock.
function silenceOf(events, milestones, offset, outcome) {
    const poll = events.findLast((event) => event.kind === "poll" && event.t <= outcome.at
        && event.text.startsWith(LAST_EVENT));
    if (outcome.color === "good" || !poll || poll.polls < 2) return null;
    const { who, name } = parseEvent(poll.text.slice(LAST_EVENT.length));
    const milestone = offset === null ? undefined : milestones.findLast((one) => one.name === name);
    const from = milestone && milestone.t + offset <= poll.t ? milestone.t + offset : poll.t;
    const least = milestone ? "" : "at least ";
    const words = `${least}${short(outcome.at - from)} of silence after ${name || "an event"}${who ? `, ${who}` : ""}`;
    return { from, to: outcome.at, words };
}

function repeatedOf(events) {
    const verdict = events.find((event) => event.text.startsWith("came again and again: "));
    const [, name, times] = /^came again and again: (.*), count (\d+)/.exec(verdict?.text ?? "") ?? [];
    return name ? `${name} came ${times} times` : "";
}

function describe(boot, place) {
    const source = objects(boot.events).filter((event) => isTime(event.t));
    const events = source.map((event) => ({
        t: event.t,
        until: isTime(event.until) ? event.until : event.t,
        polls: Number.isInteger(event.count) ? event.count : 1,
        kind: text(event.kind) || "other",
        text: text(event.text),
        clock: event.clock,
        place: object(event.place),
    }));
    const milestones = objects(boot.milestones).filter((one) => isTime(one.t));
    // Seconds of the daemon's clock at the kernel's start; null where nothing tells.
    const offset = typeof boot.kernel_start === "number" ? boot.kernel_start : null;
    const onAxis = offset === null ? [] : milestones.map((one) => one.t + offset);
    const end = Math.max(0, ...onAxis.slice(-1), ...events.slice(-1).map((event) => event.until));
    const outcome = outcomeOf(events, end);
    return {
        place, events, milestones, offset, end, outcome,
        name: text(boot.title) || `boot ${place + 1}`,
        begin: boot.begin,
        silence: silenceOf(events, milestones, offset, outcome),
        timeouts: events.filter((event) => event.kind === "timeout").map((event) => event.t),
        // What comes after the decision is no part of it.
        rounds: list(boot.rounds).filter((t) => isTime(t) && t + (offset ?? 0) < outcome.at),
        repeated: repeatedOf(events),
    };
}

export const boots = list(report.boots).map((boot, place) => describe(object(boot), place));

// More than can be shown in full.
const MOST_IN_FULL = 12;
export const isCrowd = boots.length > MOST_IN_FULL;

// The boot that a reader came for: the one that failed last.
export const headline = Math.max(0, boots.findLastIndex((boot) => boot.outcome.color === "bad"));
