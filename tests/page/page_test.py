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
            "disable-component-update", "disable-sync", "window-size=1280,900"]


# Nothing in the data may end its block or begin a comment in it, so no block has a "<".
def data_blocks(report, logs):
    data = json.dumps(report).replace("<", "\\u003c")
    blocks = [f'<script type="application/json" id="report">{data}</script>']
    for name, text in logs:
        text = text.replace("<", "\x02")
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
    text = text.replace("\r\n", "\n").replace("\r", "\n").replace("\0", "\ufffd").replace("\x02", "<")
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

    def test_tables_hold_the_data_in_both_schemes(self):
        def shown(value):
            return "–" if value is None or value == "" else str(value)
        keys = ["time", "number", "phase", "detail_phase", "type", "reason", "situation", "missing_milestone",
                "last_event", "country"]
        expected = [[shown(failure.get(key)) for key in keys] for failure in self.report.get("failures") or []]
        for scheme in "light", "dark":
            self.open(scheme=scheme)
            if expected:
                self.assertEqual(self.table("#failures table")[1:], expected)
            else:
                self.assertIn("Nothing here", self.element("failures").text)
        self.assertIn(self.report.get("device") or "", self.browser.title)
        tables = self.script("return [...document.querySelectorAll('#timeline details')]"
                             ".filter(d => d.textContent.startsWith('Events'))"
                             ".map(d => d.querySelectorAll('tbody tr').length)")
        counts = [len(boot.get("events") or []) for boot in self.report.get("boots") or []]
        self.assertEqual(tables, [number for number in counts if number])
        names = [row[0] for row in self.table("#captures table")[1:]] if self.report.get("captures") else []
        self.assertEqual(names, [capture["name"] for capture in self.report.get("captures") or []])

    def test_charts_follow_the_scheme(self):
        canvases = "[...document.querySelectorAll('figure:not([hidden]) canvas')].map(c => c.toDataURL())"
        light = self.script(f"return {canvases}")
        boots = self.report.get("boots") or []
        self.assertEqual(bool(light), any(boot.get("events") or boot.get("milestones") for boot in boots) or
                         bool(self.report.get("compare")))
        self.set_scheme("dark")
        self.until(f"{canvases}.every(url => !{json.dumps(light)}.includes(url))", "redrawing the charts")

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
            colors = self.script(code, inks + ["paper", "raised", "current", "mark", "control"])
            pairs = [(ink, paper, 4.5) for ink in inks for paper in ("paper", "current")]
            pairs += [("ink", "raised", 4.5), ("muted", "raised", 4.5), ("ink", "mark", 4.5), ("control", "paper", 3)]
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
        self.assertEqual(self.script("return document.querySelectorAll('details[open], .printing').length"), 0)


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

    def test_hostile_text_stays_text(self):
        hostile = "<script>alert(1)</script><img src=x onerror=alert(2)>\" & '"
        failure = dict.fromkeys(["time", "number", "situation", "missing_milestone", "last_event", "country"], hostile)
        event = {"t": 1, "clock": hostile, "kind": "constructor", "text": hostile}
        milestone = {"t": 1, "name": hostile}
        report = {"device": hostile, "problems": [{"file": hostile, "what": hostile}], "failures": [failure],
                  "recovery": {"history": hostile, "next": hostile}, "uploads": [{"file": hostile, "text": hostile}],
                  "captures": [{"name": hostile, "bytes": hostile, "ratio": hostile, "error": hostile}],
                  "journal": [hostile], "boots": [{"title": hostile, "events": [event], "milestones": [milestone] * 2}],
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
        self.assertEqual(self.table("#failures table")[1][8], hostile)
        lanes = self.script("return Chart.getChart('events-chart').data.datasets.length")
        self.assertEqual(lanes, 1, "an event of an unknown kind is drawn")
        milestones = self.table("#timeline details:last-child table")[1:]
        self.assertEqual(milestones, [[hostile, "1.000", "1.000", "0.000"], [f"{hostile} (2)", "1.000", "–", "–"]])

    def test_missing_data(self):
        keys = ["device", "problems", "pending", "failures", "recovery", "uploads", "captures", "journal", "boots",
                "compare"]
        for report in {}, dict.fromkeys(keys), dict.fromkeys(keys[1:], []), {"failures": [{}], "recovery": {},
                "captures": [{}], "boots": [{}, {"events": [{}], "milestones": None}], "compare": {}}:
            with self.subTest(report=report):
                self.open(report)
                self.assertIn("Nothing here", self.element("reader").text)
                self.assertNotRegex(self.browser.find_element("tag name", "body").text, "undefined|null|NaN")
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
            clip = {"x": 0, "y": 0, "width": 1280, "height": height, "scale": 1}
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
