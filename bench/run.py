#!/usr/bin/env python3
"""./dev bench [CASE...]: a backup, an unchanged second run and a restore, with a server on loopback.

Each case is run by three subjects, one after the other, in the same session on the same files:
  agent   agent.exe with job.dll under Wine, with storage-server
  floor   bench/floor.cpp and floor_restore.cpp under the same Wine, with the same server: the same
          work, nothing around it
  restic  native, with `rclone serve restic`
Runs are repeated, medians are shown. Every first run is a new job (a new repository for restic).
The files are in the page cache for all of them. A restore makes its folder anew; removing the
former one is not timed.
"""

import argparse
import os
import pathlib
import random
import shutil
import socket
import statistics
import subprocess
import sys
import tempfile
import uuid

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "tests" / "e2e"))
from layout import BUILD, WINDOWS_BIN  # noqa: E402
from machine import Machine, windows_path  # noqa: E402
from process import Process  # noqa: E402
from server import Server  # noqa: E402

USER, PASSWORD = "bench", "correct horse"
LIMIT = 4 * 3600  # seconds that any one run may take


def write(path, data):
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_bytes(data)


def large_files(folder, scale):
    source = random.Random(1)
    for i in range(5):
        write(folder / f"{i}.bin", source.randbytes(int(100 * 2**20 * scale)))


def source_tree(folder, scale):
    names = ["asio", "beast", "spirit", "fusion", "json", "mpl", "hana", "phoenix", "geometry", "math"]
    for name in names[: max(1, round(len(names) * scale))]:
        shutil.copytree(f"/usr/include/boost/{name}", folder / name)


def small_files(count, size):
    def make(folder, scale):
        # Half of each file is text that deflates well, half is noise.
        source, text = random.Random(2), (b"all work and no play makes a dull file\n" * (size // 40 + 1))[: size // 2]
        for i in range(int(count * scale)):
            write(folder / f"{i // 500}" / f"file{i}.dat", text + source.randbytes(size - len(text)))
    return make


# name: what it is, the tree's maker, whether the first run and a restore are of interest too
CASES = {
    "a": ("500 MiB of noise in 100 MiB files", large_files, True),
    "b": ("a source tree (Boost headers)", source_tree, True),
    "c": ("20000 files of 4 KiB", small_files(20000, 4096), True),
    "d": ("200000 files of 64 bytes, unchanged", small_files(200000, 64), False),
}


class Agent:
    """agent.exe; each first run is a new job, the second run starts that job again."""

    name = "agent"

    def __init__(self, folder, tree):
        self.tree, self.runs = tree, 0
        self.server = Server(folder / "server")
        self.server.add_user(USER, PASSWORD)
        self.server.start()
        self.machine = Machine(folder / "machine")
        self.machine.connect(self.server.address, USER, PASSWORD)

    def first(self):
        self.runs += 1
        return self.machine.agent("backup", windows_path(self.tree), "--name", f"bench{self.runs}", seconds=LIMIT)

    def second(self):
        job = next(j["id"] for j in self.machine.listing("jobs") if j["name"] == f"bench{self.runs}")
        return self.machine.agent("start", job, seconds=LIMIT)

    def restore(self, target):
        return self.machine.agent("restore", "latest", "--job", f"bench{self.runs}", "--to", windows_path(target),
                                  "--prefix", windows_path(self.tree), seconds=LIMIT)

    def close(self):
        self.machine.close()
        self.server.stop()


class Floor:
    """The floor programs; the job's id decides whether the server knows the files."""

    name = "floor"

    def __init__(self, folder, tree):
        self.tree = tree
        self.server = Server(folder / "server")
        self.server.add_user(USER, PASSWORD)
        self.server.start()
        self.machine = Machine(folder / "machine")

    def first(self):
        self.job = str(uuid.uuid4())
        return self.second()

    def second(self):
        return self._run("floor.exe", self.tree)

    def restore(self, target):
        return self._run("floor_restore.exe", self.tree, target)

    def _run(self, program, *paths):
        host, port = self.server.address
        run = Process(["wine", str(WINDOWS_BIN / program), host, str(port), USER, PASSWORD, self.job,
                       *map(windows_path, paths)], env=self.machine.environment, stdin="")
        if run.wait(LIMIT) != 0:
            sys.exit(f"{program} failed: {run.err}")
        return run

    close = Agent.close


class Restic:
    name = "restic"

    def __init__(self, folder, tree):
        self.tree, self.runs = tree, 0
        with socket.create_server(("127.0.0.1", 0)) as free:
            self.port = free.getsockname()[1]
        self.environment = dict(os.environ, RESTIC_PASSWORD=PASSWORD, RESTIC_CACHE_DIR=str(folder / "cache"),
                                RCLONE_CONFIG=str(folder / "rclone.conf"))
        self.service = Process(["rclone", "serve", "restic", "--addr", f"127.0.0.1:{self.port}", str(folder / "repo")],
                               env=self.environment, stdin="")
        self.service.until_said("Serving restic REST API")

    def first(self):
        self.runs += 1
        self._restic("init")
        return self.second()

    def second(self):
        return self._restic("backup", "--quiet", str(self.tree))

    def restore(self, target):
        return self._restic("restore", "latest", "--quiet", "--target", str(target))

    def _restic(self, *arguments):
        run = Process(["restic", "-r", f"rest:http://127.0.0.1:{self.port}/{self.runs}", *arguments],
                      env=self.environment, stdin="")
        if run.wait(LIMIT) != 0:
            sys.exit(f"restic failed: {run.err}")
        return run

    def close(self):
        self.service.signal(15)
        self.service.wait(60)


def measure(case, options, folder):
    """Rows (run, subject, [seconds], [peak KiB]) of one case, and the tree's files and bytes."""
    _, make, with_first = CASES[case]
    tree = folder / "tree"
    make(tree, options.scale)
    sizes = [p.stat().st_size for p in tree.rglob("*") if p.is_file()]
    rows = []
    for kind in (Agent, Floor, Restic):
        own = folder / kind.name
        own.mkdir()
        subject = kind(own, tree)
        runs = {"backup": [], "unchanged": [], "restore": []}
        try:
            for run in range(options.runs):
                if with_first or run == 0:
                    runs["backup"].append(subject.first())
                runs["unchanged"].append(subject.second())
                if with_first:
                    shutil.rmtree(own / "restored", ignore_errors=True)
                    runs["restore"].append(subject.restore(own / "restored"))
                said = ", ".join(f"{name} {done[-1].seconds:.1f} s" for name, done in runs.items() if done)
                print(f"bench: {case} {kind.name} run {run + 1}: {said}", file=sys.stderr)
            restored = sum(len(names) for _, _, names in os.walk(own / "restored"))
            if with_first and restored != len(sizes):
                sys.exit(f"{kind.name} restored {restored} of {len(sizes)} files")
        finally:
            subject.close()
        rows += [(name, kind.name, done) for name, done in runs.items() if with_first or name == "unchanged"]
        shutil.rmtree(own)
    order = ("backup", "unchanged", "restore")
    return sorted(rows, key=lambda r: order.index(r[0])), len(sizes), sum(sizes)


def table(case, rows, files, size):
    lines = [f"### {case}: {CASES[case][0]} ({files} files, {size / 1e6:.1f} MB)", "",
             "| run | subject | seconds | spread | MB/s | files/s | peak MiB | time ÷ floor | time ÷ restic |",
             "|---|---|---:|---:|---:|---:|---:|---:|---:|"]
    median = {(run, name): statistics.median(r.seconds for r in runs) for run, name, runs in rows}
    for run, name, runs in rows:
        time = median[run, name]
        peak = statistics.median(r.peak_kib for r in runs) / 1024
        lines.append(f"| {run} | {name} | {time:.2f} | {min(r.seconds for r in runs):.2f}–{max(r.seconds for r in runs):.2f} "
                     f"| {size / 1e6 / time:.1f} | {files / time:.0f} | {peak:.0f} "
                     f"| {time / median[run, 'floor']:.2f} | {time / median[run, 'restic']:.2f} |")
    return "\n".join(lines) + "\n"


def main():
    parser = argparse.ArgumentParser(prog="dev bench", description="Measures backups and restores beside two references.")
    parser.add_argument("cases", nargs="*", metavar="CASE", help="; ".join(f"{k}: {v[0]}" for k, v in CASES.items()))
    parser.add_argument("--runs", type=int, default=5, help="runs of each, medians are shown (5)")
    parser.add_argument("--scale", type=float, default=1.0, help="shrinks the trees, for a quick look (1.0)")
    options = parser.parse_args()
    unknown = set(options.cases) - set(CASES)
    if unknown or options.runs < 1 or not 0 < options.scale <= 1:
        parser.error(f"unknown case {', '.join(sorted(unknown))}" if unknown else "runs and scale are out of range")
    (BUILD / "e2e").mkdir(parents=True, exist_ok=True)
    print(f"Medians of {options.runs} runs, sizes × {options.scale:g}, {os.cpu_count()} cores, "
          f"{subprocess.check_output(['wine', '--version'], text=True, env=dict(os.environ, WINEDEBUG='-all')).strip()}.\n")
    for case in options.cases or CASES:
        with tempfile.TemporaryDirectory(dir=BUILD / "e2e", prefix="bench-") as folder:
            print(table(case, *measure(case, options, pathlib.Path(folder))), flush=True)


if __name__ == "__main__":
    main()
