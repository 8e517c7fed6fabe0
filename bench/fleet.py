# SPDX-License-Identifier: Apache-2.0
# The benchmarks of fleets: how fast one is simulated, and how long an answer about one takes from
# SQLite and from a cluster of two nodes on this machine.

import pathlib
import re
import shutil
import subprocess
import sys

TREE = pathlib.Path(__file__).parents[1]
sys.path.insert(0, str(TREE / "tests/fleet/clickhouse"))
import cluster  # noqa: E402

BIN = "build/bin/"


def simulated(folder, devices):
    """Devices and boots a second."""
    out = f"{folder}/fleet"
    said = subprocess.run([BIN + "bootvigil-lab", "fleet", "--devices", str(devices), "--out", out],
                          check=True, text=True, stdout=subprocess.PIPE).stdout
    shutil.rmtree(out)
    found = re.search(r"in ([\d.]+) s: (\d+) devices a second; (\d+) boots were run, (\d+) a second", said)
    return {"devices": devices, "seconds": float(found[1]), "devices_per_second": int(found[2]),
            "boots": int(found[3]), "boots_per_second": int(found[4])}


def shown(folder, episodes, in_turn, rounds):
    """Seconds that `show` takes over so many episodes."""
    made, lines, database = (f"{folder}/fleet.{kind}" for kind in ("made", "rows", "db"))
    with open(made, "wb") as out:
        subprocess.run([sys.executable, TREE / "bench/make_fleet.py", str(episodes)], check=True, stdout=out)
    subprocess.run([BIN + "bootvigil-fleet", "add", database, made], check=True,
                   stderr=subprocess.DEVNULL)
    with open(lines, "wb") as out:
        subprocess.run([BIN + "bootvigil-fleet", "rows", made], check=True, stdout=out)
    with cluster.Cluster(f"{folder}/servers") as nodes:
        with open(lines, "rb") as rows:
            nodes.load(rows)
        show = BIN + "bootvigil-fleet show --json "
        times = in_turn({"sqlite": show + database,
                         "cluster": show + "--clickhouse " + nodes.servers[0].url()}, rounds)
    for path in (made, lines, database):
        pathlib.Path(path).unlink()
    shutil.rmtree(f"{folder}/servers")
    return {"episodes": episodes, **{name: all["wall"] for name, all in times.items()}}
