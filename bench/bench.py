# SPDX-License-Identifier: Apache-2.0
# Runs every measurement in turn, prints the table, and writes build/bench.json, docs/performance.svg
# and the table of docs/performance.md.

import argparse
import json
import os
import re
import shutil
import signal
import statistics
import subprocess
import sys
import tempfile
import threading
import time

BIN = "build/bin/"
ZSTD = "zstd -5 --check --single-thread -q"
MIB = 1 << 20

ANSWERS = {True: "yes", False: "**no**", None: "rounds differ"}

median = statistics.median


def run(command, **options):
    result = subprocess.run(command, check=False, text=True, stdout=subprocess.PIPE,
                            stderr=subprocess.PIPE, **options)
    if result.returncode != 0:
        sys.exit(f"bench: {command} failed: {result.stderr.strip() or result.stdout.strip()}")
    return result.stdout


def machine():
    cpu = re.search(r"model name\s*: (.*)|Hardware\s*: (.*)", open("/proc/cpuinfo").read())
    return {
        "cpu": cpu[1] or cpu[2] if cpu else os.uname().machine,
        "cores": os.cpu_count(),
        "kernel": os.uname().release,
        "compiler": run(["c++", "--version"]).splitlines()[0],
        "zstd": run(["zstd", "--version"]).split()[4].rstrip(","),
        "load": os.getloadavg()[0],
    }


def make_log(path, size):
    with open(path, "wb") as out:
        subprocess.run([BIN + "bench-make-log", str(size)], stdout=out, check=True)


def in_turn(commands, rounds, runs=1):
    """Whole commands by hyperfine, one after the other in each round; seconds, a value a round."""
    seen = {name: [] for name in commands}
    with tempfile.NamedTemporaryFile(suffix=".json") as out:
        for _ in range(rounds):
            for name, command in commands.items():
                run(["hyperfine", "-N", "--style", "none", "--warmup", "1", "--runs", str(runs + 1),
                     "--export-json", out.name, command])
                seen[name].append(json.load(open(out.name))["results"][0])
    return {name: {"wall": [r["median"] for r in all],
                   "cpu": [r["user"] + r["system"] for r in all]} for name, all in seen.items()}


class Ratio:
    """Of values taken in turn: the median of the rounds' ratios, with the least and the greatest."""

    def __init__(self, ours, theirs):
        ratios = [one / other for one, other in zip(ours, theirs)]
        self.middle, self.least, self.greatest = median(ratios), min(ratios), max(ratios)

    def __str__(self):
        return f"{self.middle:.2f} ({self.least:.2f} to {self.greatest:.2f})"

    def at_most(self, limit):
        """None where some rounds say yes and others no."""
        return True if self.greatest <= limit else False if self.least > limit else None

    def at_least(self, limit):
        return True if self.least >= limit else False if self.greatest < limit else None


def peak_memory(command, rounds):
    """Peak resident memory in KiB of a whole command, whose standard error is dropped."""
    peaks = []
    with tempfile.NamedTemporaryFile() as out:
        for _ in range(rounds):
            run(["time", "-f", "%M", "-o", out.name] + command)
            peaks.append(int(open(out.name).read()))
    return median(peaks)


class Captures:
    """64 MiB through a file and through a command, beside zstd; then memory over sizes."""

    def __init__(self, folder):
        self.folder = folder

    def commands(self, log):
        capture = BIN + "bench-capture"
        out = self.folder
        return {
            "zstd, file": f"{ZSTD} -f -o {out}/zstd.zs {log}",
            "capture, file": f"{capture} file {log} {out} file.zs",
            "zstd, command": f"sh -c 'cat {log} | {ZSTD} -c >{out}/piped.zs'",
            "capture, command": f"{capture} command 'cat {log}' {out} command.zs",
        }

    def measure(self, log, sizes, rounds):
        whole = in_turn(self.commands(log), rounds)
        run(["sh", "-c", f"{ZSTD} -c <{log} >{self.folder}/stdin.zs"])
        sizes_out = {name: os.path.getsize(f"{self.folder}/{name}.zs")
                     for name in ("stdin", "file", "command")}
        memory = {}
        few = min(rounds, 7)
        for size in sizes:
            part = f"{self.folder}/part"
            make_log(part, size)
            memory[size] = {
                "zstd": peak_memory(["sh", "-c", f"exec {ZSTD} -c <{part} >/dev/null"], few),
                "file": peak_memory([BIN + "bench-capture", "file", part, self.folder, "f.zs"], few),
                "command": peak_memory(
                    [BIN + "bench-capture", "command", "cat " + part, self.folder, "c.zs"], few),
            }
            os.remove(part)
        return {"bytes": os.path.getsize(log), "whole": whole, "output": sizes_out,
                "memory": memory}


def in_process(log, folder, lines, rounds):
    """Google Benchmark, all of it once a round: what is compared runs one after the other. Seconds,
    a value a round: real ones for captures, of the processor for polls."""
    environment = dict(os.environ, BENCH_LOG=log, BENCH_FOLDER=folder, BENCH_LINES=str(lines))
    times = {}
    for _ in range(rounds):
        out = run([BIN + "bench-process", "--benchmark_min_time=0.05", "--benchmark_format=json"],
                  env=environment)
        for result in json.loads(out)["benchmarks"]:
            if result.get("error_occurred"):
                sys.exit(f"bench: {result['name']}: {result['error_message']}")
            name = result["run_name"].removesuffix("/real_time")
            seconds = result["real_time" if name.startswith("capture") else "cpu_time"] / 1e9
            times.setdefault(name, []).append(seconds)
    return times


def make_device(folder, booted):
    """What a boot of the daemon finds, without a shell: nothing is captured."""
    files = {"proc/bootprof": open("lab/data/profiles/healthy.txt").read(), "dev/bootvigilk": "",
             "proc/cmdline": "", "data/vela_dfr/firstboot": "",
             "dev/__properties__/ro.boot.mode": "normal"}
    if booted:
        for name in ("sys.boot_completed", "service.bootanim.exit", "sys.vela.BOOT_COMPLETED"):
            files["dev/__properties__/" + name] = "1"
    for path in ("velafs/boot_vigil/log", "velafs/SDD"):
        os.makedirs(f"{folder}/{path}")
    for path, text in files.items():
        os.makedirs(os.path.dirname(f"{folder}/{path}"), exist_ok=True)
        open(f"{folder}/{path}", "w").write(text)
    return folder


def healthy_boot(folder, rounds):
    device = make_device(folder + "/healthy", booted=True)
    commands = {"daemon": f"{BIN}bench-daemon virtual {device}",
                "empty": f"{BIN}bench-empty virtual {device}"}
    times = in_turn(commands, rounds, runs=10)
    return {name: {"cpu": times[name]["cpu"], "memory": peak_memory(command.split(), 7)}
            for name, command in commands.items()}


class IdleMinute:
    """The daemon by this machine's clock while a boot makes no progress; runs beside the rest, as
    the daemon would otherwise find a stall in the end."""

    def __init__(self, folder, start, length, due):
        self.start, self.length, self.due = start, length, due
        device = make_device(folder + "/idle", booted=False)
        # One is watched through the kernel's counters, the other by strace, which adds wake-ups.
        self.daemons = [subprocess.Popen([BIN + "bench-daemon", "real", device],
                                         stderr=subprocess.DEVNULL) for _ in range(2)]
        self.began = time.monotonic()
        self.calls_file = folder + "/calls"
        self.result = None
        self.watcher = threading.Thread(target=self.watch)
        self.watcher.start()

    def switches(self):
        tasks = f"/proc/{self.daemons[0].pid}/task"
        return sum(int(re.search(r"^voluntary_ctxt_switches:\s*(\d+)",
                                 open(f"{tasks}/{task}/status").read(), re.M)[1])
                   for task in os.listdir(tasks))

    def calls(self):
        return sum("resumed>" not in line for line in open(self.calls_file))

    def measure(self):
        self.watcher.join()
        if self.result is None:
            sys.exit("bench: the idle minute could not be watched")
        return self.result

    def watch(self):
        time.sleep(max(0, self.began + self.start - time.monotonic()))
        strace = subprocess.Popen(["strace", "-f", "-qq", "-o", self.calls_file, "-p",
                                   str(self.daemons[1].pid)])
        time.sleep(1)  # attached; what it interrupted has started again
        attached = self.calls()
        before = self.switches()
        time.sleep(self.length)
        wakeups = self.switches() - before
        calls = self.calls() - attached
        strace.send_signal(signal.SIGINT)
        strace.wait()
        for daemon in self.daemons:
            daemon.kill()
            daemon.wait()
        self.result = {"seconds": self.length, "due": self.due, "wakeups": wakeups,
                       "calls": calls}


STALL = "  - {profile: {until: AMS:systemReady}}\n"
HEALTHY = "  - {completes: 20}\n"
DEVICE = "about: benchmark\ndevice:\n  files: {/data/vela_dfr/firstboot: \"\"}\nboots:\n"


def partition_bytes(folder, boots):
    """Bytes that the daemon hands to the kernel for files of the partition, seen by strace."""
    run_folder = folder + "/partition"
    scenario, calls = folder + "/boots.yaml", folder + "/writes"
    open(scenario, "w").write(DEVICE + boots)
    run(["strace", "-f", "--seccomp-bpf", "-y", "-qq", "-s", "0", "-o", calls, "-e",
         "trace=write,writev,pwrite64,sendfile,copy_file_range", BIN + "bootvigil-lab", "run",
         "--quiet", "--out", run_folder, scenario])
    written = 0
    pending = {}
    for line in open(calls, errors="replace"):
        pid = line.split(None, 1)[0]
        if "<unfinished" in line:
            pending[pid] = line
            continue
        if "resumed>" in line:
            line = pending.pop(pid, "") + line
        if f"{run_folder}/root/velafs/" in line and (done := re.search(r"= (\d+)$", line.strip())):
            written += int(done[1])
    shutil.rmtree(run_folder)
    return written


def lab_speed(folder, healthy, stalled, rounds):
    """Boots a second of two processes, one a core, and device time to real time."""
    scenarios = {"healthy": (DEVICE + HEALTHY, healthy), "stalled": (DEVICE + STALL, stalled)}
    cores = sorted(os.sched_getaffinity(0))[:2]
    seen = {name: [] for name in scenarios}
    for name, (text, _) in scenarios.items():
        open(f"{folder}/{name}.yaml", "w").write(text)
    for _ in range(rounds):
        for name, (_, boots) in scenarios.items():
            runs = []
            for core in cores:
                command = ["taskset", "-c", str(core), BIN + "bench-boots",
                           f"{folder}/{name}.yaml", str(boots), f"{folder}/boots-{core}"]
                runs.append(subprocess.Popen(command, stdout=subprocess.PIPE))
            results = [json.loads(process.communicate()[0]) for process in runs]
            for core in cores:
                shutil.rmtree(f"{folder}/boots-{core}")
            seen[name].append([sum(r[what] / r["seconds"] for r in results)
                               for what in ("boots", "virtual_seconds")])
    return {name: {"boots_per_second": [r[0] for r in all],
                   "device_to_real": [r[1] for r in all]} for name, all in seen.items()}


def rows(data):
    """(what, beside, target, measured, answer)"""
    captures, times = data["captures"], data["in_process"]
    whole, memory = captures["whole"], captures["memory"]
    mib = captures["bytes"] / MIB
    table = []

    def row(what, beside, target, measured, answer=""):
        table.append((what, beside, target, measured, ANSWERS.get(answer, answer)))

    rate = lambda seconds: f"{mib / median(seconds):.0f}"
    for kind in ("file", "command"):
        ours, theirs = whole[f"capture, {kind}"]["wall"], whole[f"zstd, {kind}"]["wall"]
        ratio = Ratio(ours, theirs)
        row(f"capture of {mib:.0f} MiB of log through a {kind}, whole process",
            "`zstd -5 --check --single-thread`", "no slower",
            f"{ratio} times its time; {rate(ours)} and {rate(theirs)} MiB/s", ratio.at_most(1))
        streamed, ours = times["capture/streamed"], times[f"capture/{kind}"]
        ratio = Ratio(streamed, ours)
        row(f"the same through a {kind}, in process", "libzstd fed block by block from memory",
            "at least 0.95 of its rate" if kind == "file" else "stated",
            f"{ratio} of {rate(streamed)} MiB/s", ratio.at_least(0.95) if kind == "file" else "")
    ratio = Ratio(times["capture/memory"], times["capture/streamed"])
    row("libzstd fed block by block, the bound of the rows above", "libzstd, one shot in memory",
        "stated", f"{ratio} of {rate(times['capture/memory'])} MiB/s")
    out = captures["output"]
    row("its output", "`zstd` from standard input", "no larger",
        f"{out['file']} and {out['command']} bytes beside {out['stdin']} "
        f"({captures['bytes'] / out['file']:.1f} times smaller than the log)",
        max(out["file"], out["command"]) <= out["stdin"])
    sizes = sorted(memory)
    for kind in ("file", "command"):
        peaks = [memory[size][kind] for size in sizes]
        theirs = [memory[size]["zstd"] for size in sizes]
        row(f"peak memory of a capture through a {kind}, {sizes[0] // MIB} to "
            f"{sizes[-1] // MIB} MiB", "the same `zstd`", "flat, no more than its",
            f"{' / '.join(f'{p / 1024:.1f}' for p in peaks)} MiB beside "
            f"{' / '.join(f'{p / 1024:.1f}' for p in theirs)}",
            # The smallest log does not fill the window; runs of one program differ by 4 %.
            max(peaks[1:]) <= 1.05 * min(peaks[1:]) and
            all(ours <= 1.05 * other for ours, other in zip(peaks, theirs)))
    lines = sorted(int(name[5:]) for name in times if name.startswith("poll/"))
    for n in lines:
        ratio = Ratio(times[f"poll/{n}"], times[f"getline/{n}"])
        row(f"poll of {n} profile lines", "`getline` alone", "at most 2 times", f"{ratio} times",
            ratio.at_most(2))
    costs = [median(times[f"poll/{n}"]) / n * 1e9 for n in lines]
    row("a poll, each line", "one another", "flat within 10 %",
        " / ".join(f"{c:.0f}" for c in costs) + " ns", max(costs) <= 1.1 * min(costs))
    boot = data["healthy_boot"]
    ratio = Ratio(boot["daemon"]["cpu"], boot["empty"]["cpu"])
    row("processor time of a whole healthy boot", "an empty daemon, same messages",
        "at most 1.5 times", f"{ratio} times; {median(boot['daemon']['cpu']) * 1e3:.2f} and "
        f"{median(boot['empty']['cpu']) * 1e3:.2f} ms", ratio.at_most(1.5))
    more = (boot["daemon"]["memory"] - boot["empty"]["memory"]) / 1024
    row("its peak memory", "the empty daemon", "at most 1 MiB more",
        f"{more:+.2f} MiB ({boot['daemon']['memory'] / 1024:.2f} MiB)", more <= 1)
    idle = data["idle"]
    row(f"wake-ups in {idle['seconds']} s of a boot without progress", f"{idle['due']} due messages",
        "equal", f"{idle['wakeups']} wake-ups, {idle['calls']} system calls",
        idle["wakeups"] == idle["due"])
    for what, written in data["partition"].items():
        row(f"bytes written to the partition, {what}", "-",
            "none" if what.startswith("healthy") else "stated", f"{written}",
            written == 0 if what.startswith("healthy") else "")
    for name, target in (("healthy", 1500), ("stalled", 400)):
        seen = data["lab"][name]["boots_per_second"]
        speed = Ratio(seen, [1] * len(seen))
        row(f"lab: {name} boots a second, two cores", "-", str(target),
            f"{speed.middle:.0f} ({speed.least:.0f} to {speed.greatest:.0f})", speed.at_least(target))
    speed = data["lab"]["healthy"]["device_to_real"]
    row("lab: device time to real time, healthy boots", "real time", "100,000 to 1",
        f"{median(speed):,.0f} to 1 (stalled boots "
        f"{median(data['lab']['stalled']['device_to_real']):,.0f})", min(speed) >= 100000)
    return table


def as_markdown(table, data):
    host = data["machine"]
    text = [f"Measured on {host['cores']} cores of {host['cpu']}, Linux {host['kernel']}, "
            f"{host['compiler']}, zstd {host['zstd']}; load at the start {host['load']:.1f}.", "",
            "| what | beside | to reach | measured | reached |", "|---|---|---|---|---|"]
    return "\n".join(text + [f"| {' | '.join(r)} |" for r in table])


def draw(data, path):
    import matplotlib
    matplotlib.use("svg")
    import matplotlib.pyplot as plot
    plot.rcParams.update({"svg.hashsalt": "bootvigil", "svg.fonttype": "none", "font.size": 9,
                          "axes.spines.top": False, "axes.spines.right": False})
    ours, theirs, bound = "#1f6f8b", "#b0b7bd", "#e0a458"
    figure, ((rate, memory), (poll, boot)) = plot.subplots(2, 2, figsize=(10, 6.5))
    captures, times = data["captures"], data["in_process"]
    mib = captures["bytes"] / MIB

    bars = [(name.replace(", ", ",\n"), mib / median(one["wall"]), ours if "capture" in name else theirs)
            for name, one in captures["whole"].items()]
    bars += [("in process,\n" + name, mib / median(times["capture/" + name]), colour) for name, colour in
             (("file", ours), ("command", ours), ("streamed", bound), ("memory", theirs))]
    rate.barh([b[0] for b in bars][::-1], [b[1] for b in bars][::-1], color=[b[2] for b in bars][::-1])
    rate.set(title="Compressing a log", xlabel="MiB/s")

    sizes = sorted(captures["memory"])
    for name, colour in (("zstd", theirs), ("file", ours), ("command", bound)):
        memory.plot([s / MIB for s in sizes], [captures["memory"][s][name] / 1024 for s in sizes],
                    "o-", color=colour, label=name if name == "zstd" else f"capture, {name}")
    memory.set(title="Peak memory", xlabel="MiB of log", ylabel="MiB", xscale="log", ylim=(0, None))
    memory.legend(frameon=False)

    for name, colour in (("poll", ours), ("getline", theirs)):
        counts = sorted(int(k.split("/")[1]) for k in times if k.startswith(name + "/"))
        poll.plot(counts, [median(times[f"{name}/{n}"]) / n * 1e9 for n in counts], "o-", color=colour,
                  label=name)
    poll.set(title="Reading the boot profile", xlabel="lines", ylabel="ns a line", xscale="log",
             ylim=(0, None))
    poll.legend(frameon=False)

    both = ("daemon", "empty")
    boot.bar(both, [median(data["healthy_boot"][name]["cpu"]) * 1e3 for name in both], color=[ours, theirs])
    boot.set(title="A whole healthy boot", ylabel="ms of processor time")
    figure.tight_layout()
    figure.savefig(path, metadata={"Date": None})


def update_page(path, text):
    page = open(path).read()
    begin, end = "<!-- table: written by script/bench -->\n", "<!-- end of table -->"
    if begin not in page or end not in page:
        sys.exit(f"bench: {path} has lost the markers around its table")
    head, rest = page.split(begin)
    open(path, "w").write(head + begin + text + "\n" + end + rest.split(end)[1])


def main():
    parser = argparse.ArgumentParser(prog="script/bench", description="Measures daemon and lab.")
    parser.add_argument("--quick", action="store_true",
                        help="tiny sizes, no figure worth having, docs untouched")
    quick = parser.parse_args().quick
    # A device root needs root, or a user namespace.
    if os.geteuid() != 0:
        os.execvp("unshare", ["unshare", "--user", "--map-root-user", "--mount", sys.executable]
                  + sys.argv)

    rounds = 3 if quick else 9
    memory_files = "/dev/shm" if os.access("/dev/shm", os.W_OK) else None
    with tempfile.TemporaryDirectory(prefix="bootvigil-bench-", dir=memory_files) as folder:
        data = {"quick": quick, "machine": machine()}
        # Both polls of the minute, 70 and 100 s after the start, fall into it.
        idle = IdleMinute(folder, *((2, 3, 0) if quick else (45, 60, 2)))
        log = folder + "/log"
        make_log(log, (1 if quick else 64) * MIB)
        sizes = [MIB, 2 * MIB] if quick else [MIB, 16 * MIB, 64 * MIB, 256 * MIB, 1024 * MIB]
        data["captures"] = Captures(folder).measure(log, sizes, rounds)
        data["in_process"] = in_process(log, folder, 1000 if quick else 100000, rounds)
        data["healthy_boot"] = healthy_boot(folder, rounds)
        days = (31, 1) if quick else (365, 12)
        month = HEALTHY * (days[0] // days[1] - 2) + STALL + HEALTHY
        data["partition"] = {
            "healthy boot without history": partition_bytes(folder, HEALTHY),
            "stalled boot": partition_bytes(folder, STALL),
            f"{days[0]} boots, {days[1]} of them stalled": partition_bytes(
                folder, month * days[1] + HEALTHY * (days[0] - days[0] // days[1] * days[1])),
        }
        data["lab"] = lab_speed(folder, *((20, 5) if quick else (500, 80)), rounds)
        data["idle"] = idle.measure()

    table = rows(data)
    for what, beside, target, measured, answer in table:
        print(f"{what}\n    beside {beside}; to reach: {target}\n    {measured}  {answer}")
    results = "build/bench-quick.json" if quick else "build/bench.json"
    data["table"] = table
    json.dump(data, open(results, "w"), indent=2)
    if not quick:
        draw(data, "docs/performance.svg")
        update_page("docs/performance.md", as_markdown(table, data))
    print(f"every figure: {results}")


if __name__ == "__main__":
    main()
