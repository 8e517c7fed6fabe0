# SPDX-License-Identifier: Apache-2.0
# Rows of a made-up fleet, as bootvigil-fleet add takes them: make_fleet.py EPISODES [SEED]. Every
# device has one episode.

import json
import random
import sys

EVENTS = [f"1{pid}-{process}  | {event}" for pid, process, event in [
    (113, "system_server", "AMS:systemReady"), (113, "system_server", "Android:PMS_scan_START"),
    (113, "system_server", "Android:PMS_READY"), (252, "Binder:1113_3", "AP_Init:[service]:[com.example.systemui]"),
    (512, "main", "Zygote:Preload Start"), (408, "vold", "vold:fbeEnable:START")]]
COUNTRIES = ["NG", "KE", "GH", "TZ", "PK", "BD", "ID", "EG"]
CURES = ["reboot", "reset", "user", "itself", "unknown"]


def main():
    draw = random.Random(int(sys.argv[2]) if len(sys.argv) > 2 else 1)
    for number in range(int(sys.argv[1])):
        device = {"device": f"D{number:08}", "software": f"3.{draw.randrange(8)}",
                  "country": draw.choice(COUNTRIES), "model": f"model-{draw.randrange(5)}",
                  "pulled": f"2026-11-{draw.randrange(1, 29):02}T10:00:00", "source": "partition",
                  "path": f"/fleet/D{number:08}"}
        cured = draw.random() < 0.8
        kind = draw.randrange(len(EVENTS))
        # Some hang at what hardly another device hangs at.
        event = EVENTS[kind] if draw.random() < 0.95 else f"77-rare  | {draw.choice('abcdefgh')}{draw.randrange(99)}"
        episode = {"table": "episodes", "begin": f"2026-{draw.randrange(1, 12):02}-{draw.randrange(1, 28):02}T"
                   f"{draw.randrange(24):02}:{draw.randrange(60):02}:{draw.randrange(60):02}",
                   "number": "0x401564" if kind > 3 else "0x502564", "last_event": event, "reason": 100,
                   "failures": 1, "boots": 2, "outcome": "cured" if cured else "open",
                   "cured_by": draw.choice(CURES) if cured else "",
                   "seconds_to_cure": draw.randrange(60, 200000) if cured else -1, "captured": 1}
        print(json.dumps({"table": "devices", "state": "cured" if cured else "failing", "episodes": 1, **device}))
        print(json.dumps({**episode, **device}))


main()
