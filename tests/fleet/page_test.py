#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Tests a fleet's page in a headless browser: page_test.py FLEET FOLDER."""

import json
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

try:
    from selenium import webdriver
    from selenium.webdriver.chrome.service import Service
    from selenium.webdriver.common.keys import Keys
except ImportError:
    sys.exit("page_test: python3-selenium is missing")

FLEET, FOLDER = sys.argv[1], pathlib.Path(sys.argv[2])
SWITCHES = ["headless", "no-sandbox", "disable-gpu", "no-first-run", "disable-background-networking",
            "disable-component-update", "disable-sync"]
HARM = "</style></h1><script>document.title='harm'</script><img src=x onerror=alert(1)>\"'&"

# What a browser draws, against what it is drawn on, of every text that can be seen.
CONTRASTS = """
const rgb = text => text.match(/[\\d.]+/g).map(Number);
const light = c => { const [r, g, b] = c.map(v => (v /= 255) <= 0.03928 ? v / 12.92 : ((v + 0.055) / 1.055) ** 2.4);
    return 0.2126 * r + 0.7152 * g + 0.0722 * b; };
const paper = e => { for (; e; e = e.parentElement) { const c = rgb(getComputedStyle(e).backgroundColor);
    if (c.length < 4 || c[3] > 0) return c.slice(0, 3); } return [255, 255, 255]; };
return [...document.body.querySelectorAll('*')].filter(e => e.offsetParent &&
    [...e.childNodes].some(n => n.nodeType === 3 && n.data.trim())).map(e => {
    const a = light(rgb(getComputedStyle(e).color).slice(0, 3)), b = light(paper(e));
    return [(Math.max(a, b) + 0.05) / (Math.min(a, b) + 0.05), e.textContent.trim().slice(0, 40)]; });
"""


def made_rows():
    for number in range(400):
        device = {"device": f"d{number}", "software": "3.2" if number % 2 else "3.1", "country": "NG",
                  "model": "M10", "pulled": "2026-11-20T10:00:00", "source": "partition", "path": f"/a/d{number}"}
        yield {"table": "devices", "state": "failing" if number % 20 == 1 else "no-failure", **device}
        if number % 20 == 1:
            yield {"table": "episodes", "begin": "2026-11-15T11:08:10", "number": "0x502564", "outcome": "open",
                   "last_event": "1113-system_server  | Android:PMS_scan_START", **device}
    harm = {"device": HARM, "software": HARM, "country": HARM, "model": HARM, "source": "partition", "path": HARM}
    yield {"table": "devices", "state": HARM, **harm}
    yield {"table": "episodes", "begin": HARM, "number": "0x502564", "outcome": HARM, "cured_by": HARM,
           "last_event": f"1-{HARM} | {HARM}", **harm}
    for number in range(30):
        yield {"table": "episodes", "begin": f"2026-11-15T11:08:{number}", "number": "0x502564", "outcome": "open",
               "last_event": f"1113-x  | {'y' * 90}{chr(97 + number % 26)}", **{**device, "device": f"r{number}"}}


class FleetPage(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        FOLDER.mkdir(parents=True, exist_ok=True)
        lines = "".join(json.dumps(row) + "\n" for row in made_rows())
        (FOLDER / "fleet.db").unlink(missing_ok=True)
        subprocess.run([FLEET, "add", FOLDER / "fleet.db", "-"], input=lines, text=True, check=True,
                       stderr=subprocess.DEVNULL)
        subprocess.run([FLEET, "show", FOLDER / "fleet.db", "--html", FOLDER / "fleet.html"], check=True)
        cls.profile = tempfile.TemporaryDirectory()
        options = webdriver.ChromeOptions()
        options.binary_location = shutil.which("chromium")
        for switch in SWITCHES + [f"user-data-dir={cls.profile.name}"]:
            options.add_argument(f"--{switch}")
        options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
        cls.browser = webdriver.Chrome(service=Service(shutil.which("chromedriver")), options=options)
        cls.addClassCleanup(cls.profile.cleanup)
        cls.addClassCleanup(cls.browser.quit)

    def open(self, width, scheme="light"):
        self.browser.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", {
            "width": width, "height": 900, "deviceScaleFactor": 1, "mobile": False})
        self.browser.execute_cdp_cmd("Emulation.setEmulatedMedia", {
            "features": [{"name": "prefers-color-scheme", "value": scheme}]})
        self.browser.get((FOLDER / "fleet.html").resolve().as_uri())
        self.script("document.querySelector('details').open = true")

    def script(self, code):
        return self.browser.execute_script(code)

    def test_is_read_at_any_width_in_light_and_dark(self):
        for width in 1400, 400:
            for scheme in "light", "dark":
                with self.subTest(width=width, scheme=scheme):
                    self.open(width, scheme)
                    self.assertLessEqual(self.script("return document.documentElement.scrollWidth"), width)
                    low = [text for text in self.script(CONTRASTS) if text[0] < 4.5]
                    self.assertEqual(low, [])
        self.assertEqual([entry["message"] for entry in self.browser.get_log("browser")], [])

    def test_names_what_is_new_first(self):
        self.open(1400)
        first = self.script("return document.querySelector('.first').innerText")
        self.assertIn("Android:PMS_scan_START", first)
        self.assertIn("20 of 200 devices", first)
        links = self.script("return [...document.querySelectorAll('a')].filter(a => "
                            "!document.getElementById(a.getAttribute('href').slice(1))).length")
        self.assertEqual(links, 0)

    def test_takes_no_text_for_markup(self):
        self.open(1400)
        self.assertEqual(self.script("return document.querySelectorAll('script, img, [onerror]').length"), 0)
        self.assertNotEqual(self.browser.title, "harm")
        self.assertIn("<script>", self.script("return document.body.innerText"))
        text = (FOLDER / "fleet.html").read_text()
        self.assertIn("default-src 'none'; style-src 'unsafe-inline'; img-src data:", text)
        self.assertEqual(re.findall(r"(?:src|href)=\"(?!#|data:)", text), [])

    def test_has_bars_in_proportion(self):
        self.open(1400)
        widths = self.script("return [...document.querySelectorAll('#new .fill')].map(e => e.offsetWidth)")
        self.assertGreater(widths[0], 10 * max(1, widths[1]))
        outside = self.script("return [...document.querySelectorAll('.bar')].filter(b => [...b.children].some(c => "
                              "c.getBoundingClientRect().right > b.getBoundingClientRect().right + 1)).length")
        self.assertEqual(outside, 0)

    def test_goes_by_keyboard(self):
        self.open(1400)
        seen = set()
        for _ in range(12):
            self.browser.switch_to.active_element.send_keys(Keys.TAB)
            seen.add(self.script("const e = document.activeElement; return e.tagName + "
                                 "(getComputedStyle(e).outlineStyle === 'none' ? ' unseen' : '')"))
        self.assertLessEqual({"A", "SUMMARY", "DIV"}, seen)
        self.assertFalse([name for name in seen if name.endswith("unseen") and name != "BODY unseen"], seen)


unittest.main(argv=sys.argv[:1])
