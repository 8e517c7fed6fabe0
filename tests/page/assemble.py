#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Puts a report page together from sample data, or from the data that the page's test makes up."""

import argparse
import html
import json
import pathlib

ROOT = pathlib.Path(__file__).resolve().parents[2]
CHART = pathlib.Path("/usr/share/javascript/chart.js/chart.min.js")
MILESTONES = ["INIT:early-init", "INIT:Mount_START", "INIT:Mount_END", "INIT:post-fs-data", "boot_progress_start",
              "Zygote:Preload Start", "Zygote:Preload End", "Android:SysServerInit_START",
              "Android:PackageManagerService_Start", "Android:PMS_scan_START", "Android:PMS_scan_END",
              "AMS:systemReady", "AMS:AMS_READY", "OOBE/Launcher", "BOOT_Animation:END"]


# Nothing in the data may end its block or begin a comment in it, so no block has a "<".
def data_blocks(report, logs):
    data = json.dumps(report).replace("<", "\\u003c")
    blocks = [f'<script type="application/json" id="report">{data}</script>']
    for name, text in logs:
        text = text.replace("<", "\x02")
        blocks.append(f'<script type="text/plain" class="log" data-name="{html.escape(name)}">{text}</script>')
    return "\n".join(blocks)


def page(blocks):
    text = (ROOT / "report/page/page.html").read_text()
    parts = {"STYLE": ("style", ROOT / "report/page/page.css"), "CHART": ("script", CHART),
             "SCRIPT": ("script", ROOT / "report/page/page.js")}
    for marker, (tag, file) in parts.items():
        text = text.replace(f"<!--{marker}-->", f"<{tag}>{file.read_text()}</{tag}>")
    return text.replace("<!--DATA-->", blocks)


# Two boots that hang on the way to the last milestone, and a stamp of the recovery between them.
def sample_report():
    failure = {"time": "Sun Nov 15 11:04:10 2026", "number": "0x502564", "phase": 5, "detail_phase": 2, "type": 5,
               "reason": 100, "stamp": False, "situation": "stalled in the system server", "missing_milestone": None,
               "last_event": "1113-system_server | AMS:systemReady", "country": "NG", "line": 1, "file": "bfRecord.txt"}
    events = [("start", 0, "version 3.365")]
    events += [("poll", t, f"512-main | {MILESTONES[min(10, t // 8)]}") for t in range(10, 250, 10)]
    events += [("timeout", 250, "1113-system_server | AMS:systemReady for the third time"),
               ("verdict", 250, "stalled in the system server (0x502564)"),
               ("record", 250, "TIME:Sun Nov 15 11:04:10 2026;    ERR_NUM:0x502564;    ERR_INFO:1113-system_server"),
               ("capture", 252, "android_main_log 46293 bytes"), ("recovery", 260, "history 11d"),
               ("request", 260, "reboot"), ("exit", 270, "0")]
    events = [{"t": float(t), "clock": f"11-15 11:{t // 60:02}:{t % 60:02}.000", "kind": kind, "text": text}
              for kind, t, text in events]
    good = [{"t": 3.5 + 1.4 * i, "name": name} for i, name in enumerate(MILESTONES)]
    slow = [{"t": round(4.1 + 1.9 * i + (i > 8) * 6, 3), "name": name} for i, name in enumerate(MILESTONES[:12])]
    captures = [("android_main_log", 46293, 3126, 14.8, True, ""), ("sys_kernel_log", 16000, 2651, 6.0, True, ""),
                ("android_crash_log", 0, 13, 0.0, True, ""), ("console-ramoops-0", 0, 0, 0.0, False, "empty file")]
    return {
        "schema": "bootvigil-report/1", "device": "vela-17", "pending": {"phase": "5"},
        "problems": [{"file": "/SDD/bfRecord.txt", "what": "cut off in the last line"}],
        "failures": [failure,
                     {**failure, "time": "Sun Nov 15 11:09:40 2026", "number": "0x408564", "phase": 4,
                      "detail_phase": 8, "situation": "restarts before a milestone", "missing_milestone": "Android:PMS_scan_END"},
                     {**failure, "time": "Sun Nov 15 11:15:30 2026", "number": "0xf00002", "phase": 15,
                      "detail_phase": 0, "type": 0, "reason": 2, "stamp": True, "situation": "recovery stamp", "last_event": None}],
        "recovery": {"history": "22d", "last_mode": "wait", "last_reason": 100, "next": "reset the user's data",
                     "list": ["reboot", "wait", "reset"], "list_source": "default", "disabled": False, "note": ""},
        "uploads": [{"file": "boot_vigil", "text": "BOOTVIGIL|0x502564|Sun Nov 15 11|1113-system_server"}],
        "captures": [dict(zip(("name", "bytes", "compressed", "ratio", "whole", "error"), row)) for row in captures],
        "journal": ["Sun Nov 15 11:04:12 2026  USER capture log", "Sun Nov 15 11:09:42 2026  USER capture log"],
        "boots": [{"title": f"boot {n}", "begin": f"11-15 11:0{4 * n}:00.000", "events": events, "milestones": slow}
                  for n in (0, 1)],
        "compare": {"name": "good.txt", "milestones": good},
    }


# One log with priorities and tags, one without, an empty one; a fourth capture has no log at all.
def sample_logs(megabytes):
    main = (ROOT / "lab/data/logs/logcat_sample.txt").read_text(errors="replace").replace("\0", " ")
    main = "--------- beginning of main\n" + main * max(1, megabytes * 1_000_000 // len(main))
    kernel = "".join(f"<6>[{i / 7:12.6f}] cpu{i % 8}: probe {i} took {i * 37 % 900} us\n" for i in range(400))
    return [("android_main_log", main), ("sys_kernel_log", kernel), ("android_crash_log", "")]


if __name__ == "__main__":
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("page")
    parser.add_argument("--megabytes", type=int, default=0, help="size of the main log, repeated to it")
    options = parser.parse_args()
    blocks = data_blocks(sample_report(), sample_logs(options.megabytes))
    pathlib.Path(options.page).write_text(page(blocks))
