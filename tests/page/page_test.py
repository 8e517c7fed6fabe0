#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Tests a report page in a headless browser: page_test.py PAGE.html [--screenshot FILE.png]."""

import argparse
import base64
import html
import json
import pathlib
import re
import shutil
import sys
import tempfile
import time
import unittest

try:
    from selenium import webdriver
    from selenium.webdriver.common.keys import Keys
    from selenium.webdriver.chrome.service import Service
except ImportError:
    sys.exit("page_test: python3-selenium is missing")

REPORT = re.compile(r'<script type="application/json" id="report">(.*?)</script>', re.S)
LOG = re.compile(r'<script type="text/plain" class="log" data-name="([^"]*)">(.*?)</script>', re.S)
THREADTIME = re.compile(r"\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} +\d+ +\d+ ([VDIWEF]) (?:(.*?) *:(?: |$))?")
PRIORITIES = "VDIWEF"
SWITCHES = ["headless", "no-sandbox", "disable-gpu", "no-first-run", "disable-background-networking",
            "disable-component-update", "disable-sync", "window-size=1400,900"]


# Nothing in the data may end its block or begin a comment in it, so no block has a "<".
def data_blocks(report, logs):
    data = json.dumps(report).replace("<", "\\u003c")
    blocks = [f'<script type="application/json" id="report">{data}</script>']
    for name, text in logs:
        text = text.replace("<", "\x02").replace("\r", "\x03")
        blocks.append(f'<script type="text/plain" class="log" data-name="{html.escape(name)}">{text}</script>')
    return "\n".join(blocks)


class Line:
    def __init__(self, number, text):
        self.number, self.text = number, text
        match = THREADTIME.match(text)
        self.priority = PRIORITIES.index(match[1]) + 1 if match else 0
        self.tag = match[2] or "" if match else ""


# What the page should make of a log, worked out another way: whole lines and an expression.
def lines_of(text):
    text = text.replace("\0", "\ufffd").replace("\x02", "<").replace("\x03", "\\x0d")
    lines = text.split("\n")
    return [Line(number, line) for number, line in enumerate(lines[:-1] if lines[-1] == "" else lines)]


class BrowserTest(unittest.TestCase):
    page = None  # the text of the page under test

    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.TemporaryDirectory()
        options = webdriver.ChromeOptions()
        options.binary_location = shutil.which("chromium")
        for switch in SWITCHES + [f"user-data-dir={cls.folder.name}/profile"]:
            options.add_argument(f"--{switch}")
        options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
        cls.browser = webdriver.Chrome(service=Service(shutil.which("chromedriver")), options=options)
        cls.addClassCleanup(cls.folder.cleanup)
        cls.addClassCleanup(cls.browser.quit)

    # Whatever a test does, the page has no complaint on the console.
    def tearDown(self):
        self.assertEqual([entry["message"] for entry in self.browser.get_log("browser")], [], "console messages")

    def script(self, code, *arguments):
        return self.browser.execute_script(code, *arguments)

    def element(self, name):
        return self.browser.find_element("id", name)

    def open(self, report=None, logs=None, scheme="light"):
        """Opens the page, or a variant of it that has other data."""
        text = self.page
        if report is not None:
            blocks = report if isinstance(report, str) else data_blocks(report, logs or [])
            text = REPORT.sub(lambda _: blocks, LOG.sub("", text), count=1)
        file = pathlib.Path(self.folder.name, "page.html")
        file.write_text(text, newline="")
        self.set_scheme(scheme)
        self.browser.get(file.as_uri())
        self.wait()
        self.script("document.getElementById('reader-body').open = true")

    def set_scheme(self, scheme):
        features = [{"name": "prefers-color-scheme", "value": scheme}]
        self.browser.execute_cdp_cmd("Emulation.setEmulatedMedia", {"features": features})

    def until(self, code, what):
        end = time.monotonic() + 20
        while not self.script(f"return {code}"):
            self.assertLess(time.monotonic(), end, f"{what} takes too long")
            time.sleep(0.01)

    def wait(self):
        self.until("document.getElementById('reader').getAttribute('aria-busy') !== 'true'", "reading")

    def set(self, name, value):
        event = "input" if name in ("search", "tag") else "change"
        self.script("const e = document.getElementById(arguments[0]); e.value = arguments[1];"
                    "e.dispatchEvent(new Event(arguments[2]))", name, str(value), event)
        time.sleep(0.25)  # typing takes effect after a pause
        self.wait()

    # The rows in the document, by line number: those in view and a few around them.
    def rows(self):
        rows = self.script("return [...document.querySelectorAll('.row')].map(r => "
                           "[Number(r.dataset.line), r.querySelector('.text').textContent])")
        return {line: text for line, text in rows}

    def top_line(self):
        return self.script("const top = document.getElementById('lines').getBoundingClientRect().top;"
                           "return Number([...document.querySelectorAll('.row')].find("
                           "r => r.getBoundingClientRect().bottom > top + 1).dataset.line)")

    def table(self, selector):
        return self.script("return [...document.querySelector(arguments[0]).rows].map("
                           "r => [...r.cells].map(c => c.textContent))", selector)

    def texts(self, selector):
        return self.script("return [...document.querySelectorAll(arguments[0])].map("
                           "e => e.textContent.trim())", selector)

    def size(self, width):
        metrics = {"width": width, "height": 900, "deviceScaleFactor": 1, "mobile": False}
        self.browser.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", metrics)
        self.addCleanup(self.browser.execute_cdp_cmd, "Emulation.clearDeviceMetricsOverride", {})
        return self.script("const e = document.documentElement; return [e.scrollWidth, e.scrollHeight]")


class GivenPage(BrowserTest):
    """The page as it is; all that is expected is read from its own data."""

    def setUp(self):
        self.report = json.loads(REPORT.search(self.page)[1])
        self.logs = [(html.unescape(name), text) for name, text in LOG.findall(self.page)]
        self.open()

    # The one most likely to have lines to scroll, hits to step through and tags to filter by.
    def open_longest_log(self):
        if not any(text for _, text in self.logs):
            self.skipTest("the page has no log")
        place = max(range(len(self.logs)), key=lambda place: len(self.logs[place][1]))
        self.set("log", place)
        return lines_of(self.logs[place][1])

    def test_shows_the_data_in_both_schemes(self):
        report, answers = self.report, self.report["answers"]
        for scheme in "light", "dark":
            self.open(scheme=scheme)
            self.assertIn(report["state"], self.element("state").text)
            self.assertEqual(len(self.texts(".answers dt")), 5)
            shown = self.element("answers").text.lower()
            for question, key in ("hung", "text"), ("why", "text"), ("worked", "text"), ("next", "replay"):
                self.assertIn(answers[question][key].lower(), shown)
            head, *rows = self.table("#failures table")
            for column, key in ("Error number", "number"), ("In words", "situation"), ("Last event", "last_event"):
                self.assertEqual([row[head.index(column)] for row in rows],
                                 [failure[key] or "–" for failure in report["failures"]])
            self.assertEqual([row[0] for row in self.table("#captures table")[1:]],
                             [capture["name"] for capture in report["captures"]])
            self.assertEqual(self.texts(".boot-name"), [boot["title"] for boot in report["boots"]])
        self.assertIn(report["device"], self.browser.title)
        for boot in report["boots"]:
            self.browser.find_element("link text", boot["title"]).click()
            self.assertEqual(len(self.table("#boot details table")) - 1, len(boot["events"]))

    def test_decisive_lines_are_a_click_away(self):
        lines = [line for line in self.report["answers"]["why"]["lines"] if line["file"] in dict(self.logs)]
        self.assertTrue(lines)
        for line in lines:
            words = f"{line['file']}, line {line['line']:,}"
            self.browser.find_element("link text", words).click()
            self.wait()
            expected = lines_of(dict(self.logs)[line["file"]])[line["line"] - 1].text
            self.until("document.querySelector('.row.current')", words)
            self.assertEqual(self.script("return document.querySelector('.row.current .text').textContent"), expected)

    def test_lines_of_a_log_elsewhere_lead_to_their_event(self):
        def place(line):
            return {"file": "run.jsonl", "line": line}

        events = [{"t": t, "kind": "poll", "text": f"event {t}", "place": place(t + 1)} for t in range(900)]
        boots = [{"title": "boot 1", "events": []}, {"title": "boot 2", "events": events}]
        lines = [dict(place(701), text="there"), dict(place(5000), text="not an event")]
        self.open({"answers": {"why": {"text": "", "lines": lines}}, "boots": boots}, [])
        self.assertEqual(self.texts(".answers a"), ["run.jsonl, line 701"])
        self.browser.find_element("link text", "run.jsonl, line 701").click()
        self.assertIn("event 700", self.element("boot").find_element("css selector", "tr.wanted").text)
        self.until("document.querySelector('tr.wanted').getBoundingClientRect().top < innerHeight", "the row is seen")

    def test_fits_and_names_all_milestones(self):
        long = json.loads(REPORT.search(self.page)[1], object_hook=lambda one: {
            key: value + "x" * 300 if isinstance(value, str) and key != "kind" else value for key, value in one.items()})
        for report, logs in (self.report, self.logs), (long, [("x" * 300, "x" * 9000)]):
            self.open(report, logs)
            names = {milestone["name"] for milestone in report["compare"]["milestones"]}
            self.script("for (const fold of document.querySelectorAll('details')) fold.open = true")
            for width in 1400, 400:
                self.assertLessEqual(self.size(width)[0], width)
                self.assertEqual(set(self.texts(".milestones tbody th")), names)
                cut = "[...document.querySelectorAll('.milestones th')].filter(e => e.scrollWidth > e.clientWidth).length"
                self.assertEqual(self.script(f"return {cut}"), 0)

    def test_contrast(self):
        code = """const style = getComputedStyle(document.documentElement);
            return Object.fromEntries(arguments[0].map(name => [name, style.getPropertyValue("--" + name).trim()]))"""
        inks = ["ink", "muted", "accent", "good", "warn", "bad"]

        # How bright a colour looks, 0 to 1; the ratio of two tells whether one can be read on the other.
        def luminance(color):
            channels = [int(color[at:at + 2], 16) / 255 for at in (1, 3, 5)]
            red, green, blue = [c / 12.92 if c <= 0.04045 else ((c + 0.055) / 1.055) ** 2.4 for c in channels]
            return 0.2126 * red + 0.7152 * green + 0.0722 * blue

        for scheme in "light", "dark":
            self.set_scheme(scheme)
            colors = self.script(code, inks + ["paper", "raised", "current", "mark", "control", "bar"])
            pairs = [(ink, paper, 4.5) for ink in inks for paper in ("paper", "current")]
            pairs += [("ink", "raised", 4.5), ("muted", "raised", 4.5), ("ink", "mark", 4.5), ("control", "paper", 3)]
            pairs += [("bar", "raised", 3), ("ink", "bar", 3), ("bad", "raised", 3)]
            for ink, paper, least in pairs:
                low, high = sorted(luminance(colors[name]) for name in (ink, paper))
                self.assertGreaterEqual((high + 0.05) / (low + 0.05), least, f"{ink} on {paper}, {scheme}")

    def test_search_steps_through_all_hits(self):
        lines = self.open_longest_log()
        words = re.findall(r"\w{4,}", lines[len(lines) // 2].text) or [lines[0].text[:8]]
        word = max(words, key=len)
        hits = [line.number for line in lines if word.lower() in line.text.lower()]
        self.set("search", word.swapcase())
        self.assertIn(f"of {len(hits):,} line", self.element("hits").text)
        visited = []
        for _ in range(min(4, len(hits))):
            line, mark = self.script("const row = document.querySelector('.row.current');"
                                     "return [row.dataset.line, row.querySelector('mark')?.textContent]")
            visited.append(int(line))
            self.assertEqual(mark.lower(), word.lower())
            self.element("next").click()
        # The first hit depends on the view; from there on, each follows the one before.
        start = hits.index(visited[0])
        self.assertEqual(visited, [hits[(start + step) % len(hits)] for step in range(len(visited))])
        for _ in visited:
            self.element("previous").click()
        self.assertIn(f"Hit {start + 1:,} of", self.element("hits").text)
        self.set("search", "no line holds this \x07")
        self.assertIn("No line", self.element("hits").text)
        self.assertFalse(self.element("next").is_enabled())

    def test_filters_show_what_they_must(self):
        lines = self.open_longest_log()
        tags = sorted({line.tag for line in lines if line.tag}, key=lambda tag: (len(tag), tag))
        if not tags:
            self.skipTest("the longest log has no tags")
        whole = tags[-1]
        for priority, tag in [(0, ""), (3, ""), (5, ""), (0, whole), (4, whole), (0, whole[:3])]:
            wanted = [line for line in lines if self.passes(line, priority, tag, tags)]
            self.set("priority", priority)
            self.set("tag", tag)
            filtered = f"{len(wanted):,} of " if priority or tag else ""
            self.assertTrue(self.element("shown").text.startswith(f"{filtered}{len(lines):,} line"), (priority, tag))
            texts = {line.number: line.text for line in wanted}
            for place in 0, 0.5, 1:
                self.script("const l = document.getElementById('lines');"
                            "l.scrollTop = l.scrollHeight * arguments[0]", place)
                time.sleep(0.05)
                rows = self.rows()
                self.assertEqual(bool(rows), bool(wanted))
                for number, text in rows.items():
                    self.assertEqual(text[:4000], texts.get(number, "(hidden)")[:4000], (priority, tag, number))
        self.assertEqual(self.script("return [...document.querySelectorAll('#tags option')].map(o => o.value).sort()"),
                         sorted(tags), "tags offered")

    @staticmethod
    def passes(line, priority, tag, tags):
        if priority == 0 and tag == "":
            return True
        if line.priority == 0 or line.priority < priority:
            return False
        whole = tag.lower() in [name.lower() for name in tags]
        return line.tag.lower() == tag.lower() if whole else tag.lower() in line.tag.lower()

    def test_prints_everything_and_comes_back(self):
        self.script("""addEventListener('beforeprint', () => {
            window.closed = document.querySelectorAll('details:not([open])').length;
            const box = document.getElementById('lines').getBoundingClientRect();
            window.printed = document.querySelectorAll('.row').length, window.most = box.height / 20 + 2; })""")
        data = self.browser.execute_cdp_cmd("Page.printToPDF", {})["data"]
        self.assertEqual(base64.b64decode(data)[:5], b"%PDF-")
        self.assertEqual(self.script("return window.closed"), 0)
        self.assertTrue(self.script("return window.printed <= window.most"), "only the visible lines are printed")
        self.assertEqual(self.script("return document.querySelectorAll('details[open]').length"), 1, "the log reader")
        self.assertEqual(self.script("return document.querySelectorAll('.printing').length"), 0)


class OtherData(BrowserTest):
    """The same page around data made up to try it."""

    def test_keyboard(self):
        lines = [f"11-15 11:00:00.{n % 1000:03}  1000  1001 I Count: {n}" for n in range(3000)]
        self.open({}, [("count", "\n".join(lines) + "\n")])
        body = self.browser.find_element("tag name", "body")
        body.send_keys("/")
        self.assertEqual(self.browser.switch_to.active_element.get_attribute("id"), "search")
        search = self.element("search")
        search.send_keys("count: 77" + Keys.ENTER)  # at once, before the pause after typing
        self.wait()
        hits = [n for n, line in enumerate(lines) if "Count: 77" in line]
        self.assertIn(f"Hit 1 of {len(hits)} lines", self.element("hits").text)
        for keys, hit in [(Keys.ENTER, 2), (Keys.SHIFT + Keys.ENTER, 1), (Keys.SHIFT + Keys.ENTER, len(hits))]:
            search.send_keys(keys)
            self.assertIn(f"Hit {hit} of", self.element("hits").text)
            current = self.script("return document.querySelector('.row.current').dataset.line")
            self.assertEqual(current, str(hits[hit - 1]))
        # From the search box on, Tab has to come to the lines by way of all the controls between.
        for _ in range(8):
            active = self.browser.switch_to.active_element
            self.assertEqual(active.value_of_css_property("outline-style"), "solid", "the focus is visible")
            if active.get_attribute("id") == "lines":
                break
            active.send_keys(Keys.TAB)
        self.assertEqual(active.get_attribute("id"), "lines")
        active.send_keys(Keys.HOME)
        self.assertEqual(self.top_line(), 0)
        active.send_keys(Keys.ARROW_DOWN, Keys.ARROW_DOWN, Keys.ARROW_UP)
        self.assertEqual(self.top_line(), 1)
        active.send_keys(Keys.PAGE_DOWN)
        self.assertGreater(self.top_line(), 10)
        active.send_keys(Keys.PAGE_UP)
        self.assertEqual(self.top_line(), 1)
        active.send_keys(Keys.END)
        self.assertIn(len(lines) - 1, self.rows())

    def test_states_never_by_colour_alone(self):
        for state, words, color in [("no-failure", "✓ no failure", "good"), ("cured", "✓ cured", "good"),
                                    ("failing", "✕ failing", "bad"), ("blocked", "⊘ blocked", "bad"),
                                    ("unclear", "? unclear", "warn"), ("unreadable", "– unreadable", "muted"),
                                    ("healed", "? unclear", "warn"), (None, "? unclear", "warn")]:
            self.open({"state": state, "sentence": "run.jsonl says so"})
            self.assertEqual(self.texts(f"#state .badge.{color}"), [words])
            self.assertEqual(self.element("state").text.split("\n")[-1], "run.jsonl says so.")
            known = [words != "Not known." for words in self.texts(".answers dd")]
            self.assertEqual(known, [state == "no-failure"] * 5, "what the data doesn't answer isn't made up")

    def test_picture_names_what_it_draws(self):
        last = "last event: 1113-system_server  | AMS:ready"
        poll = {"t": 40, "until": 460, "count": 15, "kind": "poll", "text": last}
        stall = {"t": 490, "kind": "verdict", "text": "stalled (0x502564: phase 5)"}
        request = {"t": 500, "kind": "request", "text": "a reboot is requested"}
        loop = {"t": 40, "kind": "verdict", "text": "came again and again: Zygote, count 5"}
        good = {"t": 40, "kind": "success", "text": "the boot is complete"}
        killed = {"t": 7, "kind": "exit", "text": "killed by signal 9"}
        milestones = [{"t": 14.4, "name": "AMS:ready"}]
        silence = "of silence after AMS:ready, 1113 system_server"
        for boot, outcome, notes, rounds in [
                ({"events": [poll, stall, request], "milestones": milestones, "kernel_start": 0},
                 "✕ stalled at 490 s → a reboot is requested", [f"476 s {silence}"], 0),
                ({"events": [poll, stall], "milestones": milestones, "kernel_start": None}, "✕ stalled at 490 s",
                 [f"at least 450 s {silence}", "milestones in kernel seconds: nothing tells when the daemon started"], 0),
                ({"events": [loop], "rounds": [10, 20, 50], "kernel_start": 0},
                 "✕ came again and again: Zygote, count 5 at 40 s", ["3 rounds; Zygote came 5 times"], 3),
                ({"events": [dict(poll, count=1, until=40), stall]}, "✕ stalled at 490 s", [], 0),
                ({"events": [stall, dict(good, t=1120)]}, "! stalled at 490 s, yet complete at 1,120 s", [], 0),
                ({"events": [dict(poll, count=1, until=40), good]}, "✓ complete at 40 s", [], 0),
                ({"events": [killed]}, "✕ killed by signal 9 at 7 s", [], 0),
                ({"events": [poll]}, "? not known: its log ends at 460 s", [f"at least 420 s {silence}"], 0)]:
            with self.subTest(outcome=outcome, notes=notes):
                self.open({"boots": [boot]})
                self.assertEqual(self.texts(".bars .outcome"), [outcome])
                self.assertEqual(self.texts(".bars .note"), notes)
                self.assertEqual(self.texts(".piece.round"), [str(n + 1) for n in range(rounds)])
                last = self.script("return document.querySelector('.mark-end').style.left")
                end = max(event.get("until", event["t"]) for event in boot["events"])
                time_of = {"?": end, "✓": 40, "!": 490}.get(outcome[0], 490 if stall in boot["events"] else end)
                self.assertAlmostEqual(float(last.rstrip("%")), 100 * time_of / end, delta=0.1)

    def test_many_boots_and_events(self):
        good = {"t": 40, "kind": "success", "text": "the boot is complete"}
        stall = {"t": 250, "kind": "verdict", "text": "stalled in the system server (0x502564: phase 5)"}
        poll = {"t": 1, "kind": "poll", "text": "last event: 1-a | b"}
        mixed = [{"title": f"boot {n}", "events": [good if n * n % 7 else dict(stall, t=200 + n)]} for n in range(200)]
        milestones = [{"t": n, "name": f"Milestone:of_some_length_{n}"} for n in range(11)]
        self.open({"boots": mixed, "compare": {"name": "good", "milestones": milestones}}, [("log", "line")])
        self.script("document.getElementById('reader-body').open = false")
        for width in 1400, 400:
            wide, high = self.size(width)
            self.assertLessEqual(wide, width)
            self.assertLessEqual(high, 4 * 900)
        self.assertEqual(sum(int(n.split()[0]) for n in self.texts(".boot-head > span > .outcome")) +
                         len(self.texts(".boot-head > .outcome")), 200)
        self.script("""const svg = document.querySelector('.thin'), box = svg.getBoundingClientRect();
            const y = box.top + box.height * 20.5 / 40;
            svg.dispatchEvent(new MouseEvent('click', {clientY: y}))""")
        self.assertEqual(self.element("boot-title").text, "boot 20", "a click on a thin bar")
        for what, report in [("boots", {"boots": [{"events": [good if n % 2 else stall]} for n in range(200_000)]}),
                             ("events", {"boots": [{"events": [dict(poll, t=n) for n in range(200_000)]}]}),
                             ("records", {"failures": [{"number": n} for n in range(200_000)]})]:
            # The page's own time, whatever else the machine does.
            self.browser.execute_cdp_cmd("Performance.enable", {"timeDomain": "threadTicks"})
            self.open(report)
            metrics = self.browser.execute_cdp_cmd("Performance.getMetrics", {})["metrics"]
            busy = next(metric["value"] for metric in metrics if metric["name"] == "TaskDuration")
            self.browser.execute_cdp_cmd("Performance.disable", {})
            print(f"200,000 {what}: opened in {busy:.2f} s of processor time")
            self.assertLess(busy, 4)
            self.assertLess(self.script("return document.querySelectorAll('*').length"), 4000)
        self.script("document.querySelector('#failures details').open = true")
        self.browser.find_element("css selector", "#failures button").click()
        self.assertEqual([row[0] for row in self.table("#failures table")[1:]], [str(n) for n in range(400)])

    def test_numbers_of_lines_reckon_with_left_out_ones(self):
        why = {"lines": [{"file": "log", "line": line, "text": "x"} for line in (2, 500, 1005)] +
                        [{"file": "run.jsonl", "line": 3, "text": "x"}]}
        self.open({"answers": {"why": why}}, [("log", "first\nsecond\n… 1,001 lines left out\nafter\nlast\n")])
        self.assertEqual(self.script("return document.querySelectorAll('.answers a').length"), 3, "no link without a log")
        for link, text in zip(self.browser.find_elements("css selector", ".answers a"), ["second", "… 1,001", "last"]):
            link.click()
            self.wait()
            self.assertIn(text, self.script("return document.querySelector('.row.current').textContent"))
        self.assertEqual(self.element("line-title").text, "Line 1,005")

    def test_hostile_text_stays_text(self):
        hostile = "<script>alert(1)</script><img src=x onerror=alert(2)>\" & '"
        failure = dict.fromkeys(["time", "number", "situation", "missing_milestone", "last_event", "country"], hostile)
        event = {"t": 1, "clock": hostile, "kind": "constructor", "text": hostile, "place": {"file": hostile, "line": 1}}
        milestone = {"t": 1, "name": hostile}
        answer = {"text": hostile, "process": hostile, "lines": [{"text": hostile, "file": hostile, "line": 1}],
                  "replay": hostile, "open": {"file": hostile}, "limits": [{"text": hostile, "link": f"#{hostile}"}]}
        report = {"device": hostile, "problems": [{"file": hostile, "what": hostile}], "failures": [failure],
                  "state": hostile, "sentence": hostile, "episodes": [failure],
                  "answers": dict.fromkeys(["hung", "why", "did", "worked", "next"], answer),
                  "recovery": {"history": hostile, "next": hostile}, "uploads": [{"file": hostile, "text": hostile}],
                  "captures": [{"name": hostile, "bytes": hostile, "ratio": hostile, "error": hostile}],
                  "journal": [{"text": hostile}],
                  "boots": [{"title": hostile, "events": [event], "milestones": [milestone] * 2}],
                  "compare": {"name": hostile, "milestones": [milestone]}}
        # An opened script or comment would swallow the rest of the page.
        tagged = f"11-15 11:00:00.000  1  2 E <b>tag</b>: {hostile}"
        self.open(report, [(hostile, f"{hostile}\n{tagged}\n-->\n<!-- <script>\n")])
        self.assertEqual(list(self.rows().values()), [hostile, tagged, "-->", "<!-- <script>"])
        self.set("search", "<SCRIPT>alert")
        self.assertIn("Hit 1 of 2 lines", self.element("hits").text)
        self.assertEqual(self.script("return document.querySelector('.current mark').textContent"), "<script>alert")
        self.set("tag", "<b>tag</b>")
        self.assertEqual(self.rows(), {1: tagged})
        self.assertEqual(self.script("return document.querySelectorAll('main img, main script, main b').length"), 0)
        self.assertIn(hostile, self.table("#failures table")[1])
        milestones = self.table(".milestones")[1:]
        self.assertEqual(milestones, [[hostile, "", "1.000 s", "1.000 s", "±0.000 s"],
                                      [f"{hostile} (2)", "", "1.000 s", "–", ""]])

    def test_unseen_characters_are_shown(self):
        unseen, shown = "a\u202eb\x1bc\u200bd\re", r"a\u{202e}b\x1bc\u{200b}d\x0de"
        report = {"device": unseen, "boots": [{"title": unseen}], "failures": [{"number": unseen}]}
        self.open(report, [("log", f"{unseen}\r\nend\n")])
        self.assertEqual(self.rows(), {0: shown, 1: "end"})
        for text in self.browser.title, self.texts(".boot-name")[0], self.texts("#boot-title")[0], self.texts("td")[0]:
            self.assertIn(shown, text)

    def test_damaged_data_empties_no_other_part(self):
        whole = json.loads(REPORT.search(self.page)[1])
        parts = {"answers": "#answers dd a", "boots": ".bars li", "failures": "#failures td", "captures": "#captures td",
                 "episodes": "#episodes td", "recovery": "#recovery td", "uploads": "#uploads td",
                 "compare": ".piece.ghost"}
        strange = [[5, "x", [], {"t": "x"}], {"length": 3, "text": {}, "milestones": {}, "lines": {}}]
        values = {key: [None, *strange[0]] if isinstance(value, list) else strange for key, value in whole.items()}
        quarters = [dict(list(values.items())[start::4]) for start in range(4)]
        for broken in quarters + [dict.fromkeys(whole, value) for value in [None, 5, "text", *strange]]:
            with self.subTest(broken=broken):
                self.open({**whole, **broken})
                shown = self.script("return Object.entries(arguments[0]).filter(([, s]) => "
                                    "document.querySelector(s)).map(([k]) => k)", parts)
                gone = {"answers", "compare", *broken} if "boots" in broken else {"answers", *broken}
                self.assertLessEqual(set(parts) - gone, set(shown))
                text = self.browser.find_element("tag name", "body").text
                self.assertNotRegex(text, r"undefined|\bnull\b|NaN|\[object|can't be shown")
        self.open({}, [("empty", ""), ("unended", "\nlast")])
        self.assertEqual(self.rows(), {0: "", 1: "last"})
        self.set("log", 0)
        self.assertIn("empty", self.element("shown").text)
        self.open('<script type="application/json" id="report">{"device":</script>')
        self.assertIn("can't be read", self.element("problems").text)

    def test_lines_in_other_layouts_give_way_to_a_filter(self):
        # A number with six digits, a tag with a blank, and one that begins with the whole other.
        other = ["--------- beginning of main", "11-15 11:00:00.000  1  2 X Odd: priority", "<6>[    1.5] kernel: text"]
        tagged = ["11-15 11:00:00.000  123456  2 W Long tag : x: y", "11-15 11:00:00.000     1     2 D Long tags: z"]
        self.open({}, [("mixed", "\n".join(other + tagged)), ("kernel", other[2])])
        self.assertEqual(list(self.rows()), [0, 1, 2, 3, 4])
        for name, value, rows in [("priority", 1, [3, 4]), ("priority", 0, [0, 1, 2, 3, 4]), ("tag", "G TAG", [3, 4]),
                                  ("tag", "long TAG", [3])]:
            self.set(name, value)
            self.assertEqual(list(self.rows()), rows, (name, value))
        self.assertEqual(self.script("return document.getElementById('tags').options[0].value"), "Long tag")
        self.set("search", "11-15")
        self.assertIn("of 1 line", self.element("hits").text)
        self.set("log", 1)
        self.assertEqual(list(self.rows()), [0], "a log without tags is not filtered")

    def test_large_log(self):
        count = 1_000_000  # rows higher than a browser lays out
        text = "".join(f"11-15 11:00:00.000  1000  1001 {PRIORITIES[n % 6]} Count: line {n:9}\n" for n in range(count))
        begin = time.monotonic()
        self.open({}, [("large", text)])
        opened = time.monotonic() - begin
        begin = time.monotonic()
        self.set("search", f"{count - 2}")
        searched = time.monotonic() - begin
        print(f"{len(text) / 1e6:.0f} MB: opened in {opened:.2f} s, searched in {searched:.2f} s")
        # Writing the file counts as well, and a busy machine must not fail the test.
        self.assertLess(opened, 12)
        self.assertLess(searched, 4)
        self.assertIn(count - 2, self.rows())
        # Up here a pixel is more than a row, and a key must still be a row.
        lines = self.element("lines")
        lines.send_keys(Keys.END)
        self.assertIn(count - 1, self.rows())
        last = self.top_line()
        lines.send_keys(Keys.ARROW_UP, Keys.ARROW_UP)
        self.assertEqual(self.top_line(), last - 2)
        self.script("const l = document.getElementById('lines'); l.scrollTop = l.scrollHeight / 2")
        time.sleep(0.1)
        self.assertAlmostEqual(self.top_line(), count / 2, delta=count / 1000)
        self.assertLess(self.script("return document.querySelectorAll('#lines *').length"), 1000)


class Screenshot(BrowserTest):
    file = None

    def test_screenshot(self):
        if not self.file:
            self.skipTest("not asked for")
        for scheme in "light", "dark":
            self.open(scheme=scheme)
            height = self.script("return document.documentElement.scrollHeight")
            clip = {"x": 0, "y": 0, "width": 1400, "height": height, "scale": 1}
            parameters = {"captureBeyondViewport": True, "clip": clip}
            data = self.browser.execute_cdp_cmd("Page.captureScreenshot", parameters)["data"]
            file = self.file if scheme == "light" else self.file.with_stem(f"{self.file.stem}-dark")
            file.write_bytes(base64.b64decode(data))


if __name__ == "__main__":
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("page", type=pathlib.Path)
    parser.add_argument("--screenshot", type=pathlib.Path, help="written in light, and as FILE-dark.png in dark")
    options, rest = parser.parse_known_args()
    for program in "chromium", "chromedriver":
        if not shutil.which(program):
            sys.exit(f"page_test: {program} is missing")
    with options.page.open(encoding="utf-8", errors="replace", newline="") as file:
        BrowserTest.page = file.read()
    Screenshot.file = options.screenshot
    unittest.main(argv=[sys.argv[0], *rest])
