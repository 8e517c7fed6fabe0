#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""The fleet tool on a cluster of two shards: the same answers as from SQLite, byte by byte, and one
clear line where there is none: cluster_test.py PROGRAM FOLDER."""

import http.server
import json
import os
import pathlib
import platform
import random
import re
import socketserver
import subprocess
import sys
import threading
import unittest

import cluster

FLEETS = 20
KINDS = ["stall", "loop", "system-error", "unknown"]
NAMES = ["system_server", "it's", "back\\slash'", "' OR '1'='1", "\\", "größe", "名前", "a;b--c", ""]


def run(*arguments, **environment):
    kept = {k: v for k, v in os.environ.items() if not k.startswith("BOOTVIGIL_") and k != "NETRC"}
    return subprocess.run([PROGRAM, *map(str, arguments)], capture_output=True, check=False, timeout=60,
                          env={**kept, "HOME": str(FOLDER), "no_proxy": "127.0.0.1", **environment})


class Fleet:
    """Rows of a random fleet: several copies of a device, software that changes, odd names."""

    def __init__(self, seed):
        self.draw = random.Random(seed)
        self.softwares = ["3.9", "3.10", "3.2", "", "b'ta"][:self.draw.randint(2, 5)]
        self.signatures = [f"{self.draw.choice(KINDS)} after {name}{i}" for i, name in
                           enumerate(self.draw.sample(NAMES, self.draw.randint(1, len(NAMES))))]
        self.rows = []
        for i in range(self.draw.randint(0 if seed % 10 == 0 else 30, 120)):
            self.add_device(f"{self.draw.choice(NAMES)}{i}")
        self.draw.shuffle(self.rows)

    def time(self):
        return f"2026-{self.draw.randint(9, 11):02}-{self.draw.randint(1, 28):02}T{self.draw.randint(10, 19)}:00:00"

    def add_device(self, name):
        country, model = self.draw.choice(["NG", "KE", "", "N'G"]), self.draw.choice(["A", "B\\"])
        begins = [self.time() for _ in range(self.draw.choice([0, 0, 1, 1, 2, 5]))]
        for _ in range(self.draw.randint(1, 3)):
            software = self.draw.choice(self.softwares)
            both = {"device": name, "software": software, "country": country, "model": model,
                    "pulled": self.draw.choice(["", self.time()]), "path": f"/pulled/{name}/velafs",
                    "source": self.draw.choice(["partition", "partition", "upload"]),
                    "died": self.draw.choice([0, 0, 1])}
            state = self.draw.choice(["cured", "failing", "unclear", "no-failure"])
            row = {"table": "devices", **both, "state": state, "rule": "x", "episodes": len(begins)}
            self.rows += [row] * self.draw.choice([1, 1, 2])
            for begin in begins:
                if self.draw.random() < 0.8:
                    self.add_episode(both, begin)

    def add_episode(self, both, begin):
        outcome = self.draw.choice(["cured", "cured", "open", "unclear"])
        self.rows.append({
            "table": "episodes", **both, "begin": begin, "kind": "stall", "signature_rules": 1000,
            "signature": self.draw.choice(self.signatures), "process": self.draw.choice(NAMES),
            "captured": self.draw.choice([0, 1]), "outcome": outcome,
            "cured_by": self.draw.choice(["user", "reboot", "unknown"]) if outcome == "cured" else "",
            "seconds_to_cure": self.draw.randint(-1, 20)})

    def filters(self):
        """Of calls of show: none, and two that are drawn."""
        every = [["--country", "NG"], ["--country", "N'G"], ["--since", self.time()],
                 ["--signature", self.draw.choice(self.signatures)],
                 ["--signature", "x') OR 1=1 --\n\x01"], ["--country", "NG", "--since", self.time()]]
        seen = sorted({row["software"] for row in self.rows if row["software"]})
        if len(seen) > 1:
            one, other = self.draw.sample(seen, 2)
            every.append(["--software", one, "--against", other])
        return [[], *self.draw.sample(every, 2)]


class Answers(http.server.BaseHTTPRequestHandler):
    """A server that is no ClickHouse: each path answers in its own way."""

    def do_POST(self):
        self.rfile.read(int(self.headers["Content-Length"]))
        how = re.search(r"database=(\w+)", self.path)[1]
        whole = json.dumps({"meta": [{"name": "version", "type": "Int64"}], "data": [["1"]], "rows": 1})
        texts = {"page": "<html>\n<b>Log in to the network first</b>", "cut": whole[:-8], "empty": "",
                 "shape": json.dumps({"rows": [1]}), "letters": whole.replace('"1"', '"1x"'),
                 "deep": "[" * 100000, "missing": whole.replace('"rows": 1', '"rows": 2'),
                 "lengths": whole}
        if how == "silent":
            END.wait(10)
        self.send_response(200)
        if how == "lengths":
            self.send_header("Content-Length", str(len(whole) + 10))
        self.end_headers()
        try:
            while how == "endless":
                self.wfile.write(b" " * 1000000)
            self.wfile.write(texts.get(how, "").encode())
        except ConnectionError:
            pass

    def log_message(self, *_):
        pass


class ClusterTest(unittest.TestCase):
    maxDiff = 2000

    @classmethod
    def setUpClass(cls):
        cls.cluster = cluster.Cluster(FOLDER / "servers")
        cls.addClassCleanup(cls.cluster.stop)
        cls.url = cls.cluster.servers[0].url()

    def fails(self, said, *arguments, **environment):
        """One line that has this text, and nothing on standard output."""
        done = run("show", *arguments, **environment)
        error = done.stderr.decode()
        self.assertEqual((done.returncode, done.stdout), (1, b""), error)
        self.assertEqual(error.count("\n"), 1, error)
        self.assertIn(said, error)

    def test_0_every_column(self):
        lines = FOLDER / "columns.ndjson"
        lines.write_text('{"table":"devices","device":"x"}\n{"table":"episodes","device":"x"}\n')
        for row in map(json.loads, run("rows", lines).stdout.splitlines()):
            table = row.pop("table")
            types = {str: "String", int: "Int64"}
            expected = "".join(f"{name}\t{types[type(value)]}\n" for name, value in row.items())
            for name in [table, f"{table[:-1]}_rows"]:
                found = self.cluster.servers[0].query(
                    f"SELECT name, type FROM system.columns WHERE database = 'bootvigil' AND table = '{name}'")
                self.assertEqual(found, expected, name)

    def compare(self, name, rows, filters):
        """Gives the answers, which are those of a database with the same rows."""
        database, lines = FOLDER / f"{name}.db", FOLDER / f"{name}.ndjson"
        lines.write_text("".join(json.dumps(row) + "\n" for row in rows))
        added = run("add", database, lines)
        self.assertEqual(added.returncode, 0, added.stderr)
        self.cluster.clear()
        self.cluster.load(run("rows", lines).stdout)
        answers = set()
        for chosen in filters:
            with self.subTest(name, filter=chosen):
                expected = run("show", "--json", database, *chosen)
                found = run("show", "--json", "--clickhouse", self.url, *chosen)
                self.assertEqual(found.returncode, expected.returncode, found.stderr)
                self.assertEqual(found.stdout.decode(), expected.stdout.decode())
                answers.add(found.stdout)
        return answers

    def test_1_same_as_sqlite(self):
        answers = set()
        for seed in range(FLEETS):
            fleet = Fleet(seed)
            answers |= self.compare(seed, fleet.rows, fleet.filters())
        self.assertGreater(len(answers), 2 * FLEETS)  # they are not all empty
        counts = [int(server.query("SELECT count() FROM bootvigil.episode_rows_local"))
                  for server in self.cluster.servers]
        self.assertGreater(min(counts), 0, "one shard has all rows")

    def test_1_a_query_longer_than_servers_take_by_default(self):
        rows = [{"table": "episodes", "device": f"D{i}", "begin": "2026-11-10T10:00:00", "outcome": "open",
                 "signature": f"{i} " + "'" * 500, "signature_rules": 1000} for i in range(520)]
        self.compare("long", rows, [[]])

    def test_2_who_may_ask(self):
        ask = ["--json", "--clickhouse", self.url]
        user = {"BOOTVIGIL_CLICKHOUSE_USER": "reader"}
        good = run("show", *ask, **user, BOOTVIGIL_CLICKHOUSE_PASSWORD=cluster.PASSWORD)
        self.assertEqual(good.returncode, 0, good.stderr)
        self.fails("assword", *ask, **user, BOOTVIGIL_CLICKHOUSE_PASSWORD="wrong")
        password = cluster.PASSWORD.replace("\\", "\\\\")
        (FOLDER / "netrc").write_text(f'machine 127.0.0.1 login reader password "{password}"\n')
        by_file = run("show", *ask, NETRC=str(FOLDER / "netrc"))
        self.assertEqual((by_file.returncode, by_file.stdout), (0, good.stdout), by_file.stderr)
        (FOLDER / "netrc").write_text("machine 127.0.0.1 login reader password wrong\n")
        self.fails("assword", *ask, NETRC=str(FOLDER / "netrc"))
        self.fails("can be seen by others", "--clickhouse", self.url.replace("//", "//reader:x@"))

    def test_3_other_tables(self):
        server = self.cluster.servers[0]
        self.fails("none doesn't exist", "--clickhouse", self.url + "/none")
        server.query("CREATE DATABASE other")
        self.fails("schema_version doesn't exist", "--clickhouse", self.url + "/other")
        server.query("CREATE VIEW other.schema_version AS SELECT 2 AS version")
        self.fails("its tables are of version 2", "--clickhouse", self.url + "/other")

    def test_4_no_clickhouse(self):
        with socketserver.ThreadingTCPServer(("127.0.0.1", 0), Answers) as server:
            server.daemon_threads = True
            threading.Thread(target=server.serve_forever, daemon=True).start()
            url = f"http://127.0.0.1:{server.server_address[1]}/"
            for how in ["empty", "cut", "shape", "letters", "deep", "missing"]:
                with self.subTest(how):
                    self.fails("no whole answer of ClickHouse", "--clickhouse", url + how)
            self.fails("<html>", "--clickhouse", url + "page")
            self.fails("127.0.0.1", "--clickhouse", url + "lengths")
            self.fails("more than 268,435,456 bytes", "--clickhouse", url + "endless")
            self.fails("too slow", "--clickhouse", url + "silent", "--timeout", "1")
            END.set()
            server.shutdown()
        self.fails("onnect", "--clickhouse", url)
        self.fails("not the URL", "--clickhouse", "file:///etc/passwd")

    def test_5_a_shard_is_down(self):
        self.cluster.servers[1].stop()
        self.fails("HTTP status 500", "--json", "--clickhouse", self.url)


if __name__ == "__main__":
    PROGRAM, FOLDER = sys.argv[1], pathlib.Path(sys.argv[2])
    if not os.path.exists(cluster.SERVER) and platform.machine() != "x86_64":
        print("clickhouse-server is not packaged for this architecture: nothing was tested")
        sys.exit(77)
    FOLDER.mkdir(parents=True, exist_ok=True)
    END = threading.Event()
    for old in [*FOLDER.glob("*.db*"), *FOLDER.glob("*.ndjson")]:
        old.unlink()
    unittest.main(argv=sys.argv[:1], verbosity=2)
