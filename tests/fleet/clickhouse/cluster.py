# SPDX-License-Identifier: Apache-2.0
"""ClickHouse servers of one's own on loopback, a shard each, that end with their object."""

import os
import pathlib
import shutil
import socket
import subprocess
import time
import urllib.error
import urllib.parse
import urllib.request

SERVER = "/usr/sbin/clickhouse-server"
TREE = pathlib.Path(__file__).parents[3]
SCHEMA = TREE / "fleet/clickhouse/schema.sql"
PASSWORD = "p&ss 'word\\"


def free_ports(count):
    sockets = [socket.create_server(("127.0.0.1", 0)) for _ in range(count)]
    ports = [one.getsockname()[1] for one in sockets]
    for one in sockets:
        one.close()
    return ports


def escaped(text):
    return text.replace("&", "&amp;").replace("<", "&lt;")


USERS = f"""<yandex>
<profiles><default></default><readonly><readonly>1</readonly></readonly></profiles>
<users>
<default><password></password><networks><ip>127.0.0.1</ip></networks><profile>default</profile><quota>default</quota></default>
<reader><password>{escaped(PASSWORD)}</password><networks><ip>127.0.0.1</ip></networks><profile>readonly</profile><quota>default</quota></reader>
</users>
<quotas><default></default></quotas>
</yandex>
"""

CONFIG = """<yandex>
<logger><level>warning</level><log>{folder}/server.log</log><errorlog>{folder}/errors.log</errorlog></logger>
<http_port>{http}</http_port><tcp_port>{tcp}</tcp_port><listen_host>127.0.0.1</listen_host>
<path>{folder}/data/</path><tmp_path>{folder}/tmp/</tmp_path>
<users_config>{folder}/users.xml</users_config>
<default_profile>default</default_profile><default_database>default</default_database>
<mark_cache_size>100000000</mark_cache_size>
<remote_servers><bootvigil>{shards}</bootvigil></remote_servers>
</yandex>
"""


class Server:
    def __init__(self, folder, http, tcp, shards):
        self.http, self.tcp = http, tcp
        self.folder = folder
        folder.mkdir(parents=True)
        shard = "<shard><replica><host>127.0.0.1</host><port>{}</port></replica></shard>"
        (folder / "users.xml").write_text(USERS)
        (folder / "config.xml").write_text(CONFIG.format(
            folder=folder, http=http, tcp=tcp, shards="".join(shard.format(port) for port in shards)))
        self.start()

    def start(self):
        self.process = subprocess.Popen(
            [SERVER, "--config-file", self.folder / "config.xml"], cwd=self.folder,
            stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
            preexec_fn=end_with_parent)

    def wait(self, seconds=60):
        end = time.monotonic() + seconds
        while time.monotonic() < end:
            if self.process.poll() is not None:
                raise RuntimeError(f"the server of {self.folder} ended: " + self.errors())
            try:
                return urllib.request.urlopen(self.url(), timeout=5).read()
            except (urllib.error.URLError, ConnectionError, TimeoutError):
                time.sleep(0.1)
        raise RuntimeError(f"the server of {self.folder} does not answer: " + self.errors())

    def errors(self):
        log = self.folder / "errors.log"
        return log.read_text(errors="replace")[-2000:] if log.exists() else "it says nothing"

    def stop(self):
        self.process.kill()
        self.process.wait()

    def url(self):
        return f"http://127.0.0.1:{self.http}"

    def query(self, sql, data=b"", **settings):
        settings = {"query": sql, **settings}
        request = urllib.request.Request(self.url() + "/?" + urllib.parse.urlencode(settings), data=data)
        try:
            return urllib.request.urlopen(request, timeout=120).read().decode()
        except urllib.error.HTTPError as error:
            raise RuntimeError(f"{sql}: {error.read().decode()}") from None


def end_with_parent():
    """In the child: a test that is killed leaves no server behind."""
    import ctypes
    import signal
    ctypes.CDLL(None).prctl(1, signal.SIGKILL)


class Cluster:
    """Shards with the schema and no rows."""

    def __init__(self, folder, shards=2):
        self.folder = pathlib.Path(folder).absolute()
        shutil.rmtree(self.folder, ignore_errors=True)
        ports = free_ports(2 * shards)
        self.servers = []
        try:
            for i in range(shards):
                self.servers.append(
                    Server(self.folder / f"shard-{i + 1}", ports[i], ports[shards + i], ports[shards:]))
            for server in self.servers:
                server.wait()
                self.client(server, SCHEMA.read_bytes(), "--multiquery")
        except BaseException:
            self.stop()
            raise

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.stop()

    def client(self, server, data, *arguments):
        """clickhouse-client with this on its standard input."""
        done = subprocess.run(
            ["clickhouse-client", "--host", "127.0.0.1", "--port", str(server.tcp), *arguments],
            input=data, capture_output=True, check=False, env={**os.environ, "HOME": str(self.folder)})
        if done.returncode != 0:
            raise RuntimeError(f"clickhouse-client: {done.stderr.decode()}")
        return done.stdout.decode()

    def load(self, lines):
        """The output of `bootvigil-fleet rows`, as docs/fleet.md says."""
        self.client(self.servers[0], lines, "--insert_distributed_sync=1", "--query",
                    "INSERT INTO bootvigil.rows FORMAT JSONEachRow")

    def clear(self):
        for server in self.servers:
            for table in ("device_rows_local", "episode_rows_local"):
                server.query(f"TRUNCATE TABLE bootvigil.{table}")

    def stop(self):
        for server in self.servers:
            server.stop()
