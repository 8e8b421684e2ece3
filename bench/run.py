#!/usr/bin/env python3
"""./dev bench [CASE...]: backups, unchanged second runs and restores, beside their references.

Each case is run by up to four subjects, one after the other, in the same session on the same files:
  agent   agent.exe with job.dll under Wine, with storage-server
  floor   bench/floor.cpp and floor_restore.cpp under the same Wine, with the same server: the same
          work, nothing around it, one request at a time (on loopback only: elsewhere it is round trips)
  ahead   the same with the next request written before the last is answered
  restic  with `rclone serve restic`
A network lies between client and server where the case names a round trip: CASE is SET or SET@MS.
Runs are repeated, medians are shown. Every first run is a new job (a new repository for restic).
The files are in the page cache for all of them. A restore makes its folder anew; removing the
former one is not timed.

Results are added to build/bench/results.json, case by case. `--keep` copies them to docs/benchmarks.json
and draws docs/benchmarks.md and its picture from them; `--draw` only draws.
"""

import argparse
import datetime
import hashlib
import json
import os
import pathlib
import shutil
import statistics
import subprocess
import sys
import tempfile

import network
import report
from sets import CASES, LARGE, SETS, Case
from subjects import BUILD, NATIVE_BIN, ROOT, SUBJECTS, WINDOWS_BIN, Machine, Process, Restic, windows_path
from usage import Usage

RESULTS = BUILD / "bench" / "results.json"
RUNS = ("backup", "unchanged", "restore")
WIRE = ("up", "down", "connections", "requests")


def carried_out(action, subject, relay):
    """One run's figures."""
    before = relay.passed() if relay else None
    server, helpers = Usage(subject.server), [Usage(pid) for pid in subject.helpers]
    process = action()
    server_cpu, server_peak = server.end()
    figures = {"seconds": process.seconds, "client_cpu": process.cpu_seconds + sum(h.end()[0] for h in helpers),
               "server_cpu": server_cpu, "client_mib": process.peak_kib / 1024, "server_mib": server_peak}
    if relay:
        after = relay.passed()
        figures.update({name: after[name] - before[name] for name in after})
    return figures


def contents(folder):
    """Size and digest of every file, in order: each subject restores to a path of its own kind."""
    found = []
    for top, _, names in os.walk(folder):
        for name in names:
            with open(os.path.join(top, name), "rb") as file:
                found.append((os.fstat(file.fileno()).st_size, hashlib.file_digest(file, "md5").digest()))
    return sorted(found)


class Measurement:
    """One case with one subject: its figures by run."""

    def __init__(self, case, subject, folder, contents):
        self.case, self.subject, self.folder, self.contents = case, subject, folder, contents
        self.unchanged_only = SETS[case.set].unchanged_only
        self.figures = {run: [] for run in RUNS if run == "unchanged" or not self.unchanged_only}

    def repeat(self, times):
        if self.case.relayed:
            with network.Relay(self.subject.port, self.case.rtt, self.case.mbit) as relay:
                self.subject.go_to(relay.address)
                for number in range(times):
                    self._keep(self._round(number, relay))
            return
        for number in range(times):
            self._keep(self._round(number, None))
        # What goes over the wire is counted in one more round, whose time does not count.
        with network.Relay(self.subject.port) as relay:
            self.subject.go_to(relay.address)
            for run, counted in self._round(times, relay).items():
                for figures in self.figures[run]:
                    figures.update({name: counted[name] for name in WIRE})

    def _round(self, number, relay):
        done = {}
        if not self.unchanged_only or number == 0:
            self.subject.begin()
            done["backup"] = carried_out(self.subject.backup, self.subject, relay)
        done["unchanged"] = carried_out(self.subject.again, self.subject, relay)
        if not self.unchanged_only:
            target = self.folder / "restored"
            shutil.rmtree(target, ignore_errors=True)
            done["restore"] = carried_out(lambda: self.subject.restore(target), self.subject, relay)
            if contents(target) != self.contents:
                sys.exit(f"bench: {self.subject.name} has not restored what it was given")
        said = ", ".join(f"{run} {figures['seconds']:.2f} s" for run, figures in done.items())
        print(f"bench: {self.case.name} {self.subject.name} {number + 1}: {said}", file=sys.stderr)
        return {run: figures for run, figures in done.items() if run in self.figures}

    def _keep(self, done):
        for run, figures in done.items():
            self.figures[run].append(figures)


def measure(case, options, folder):
    """The case's record for the results."""
    tree = folder / "tree"
    SETS[case.set].make(tree, options.scale)
    given = contents(tree)
    record = {"text": SETS[case.set].text, "rtt": case.rtt, "mbit": case.mbit, "files": len(given),
              "bytes": sum(size for size, _ in given),
              "scale": options.scale, "when": datetime.date.today().isoformat(), "commit": commit(),
              "load": os.getloadavg()[0], "runs": {}}
    for name in options.subjects or SUBJECTS:
        if name == "floor" and case.relayed and not options.subjects:
            continue
        own = folder / name
        own.mkdir()
        subject = SUBJECTS[name](own, tree)
        try:
            measurement = Measurement(case, subject, own, given)
            measurement.repeat(options.runs)
        finally:
            subject.close()
        for run, figures in measurement.figures.items():
            record["runs"].setdefault(run, {})[name] = figures
        shutil.rmtree(own)
    return record


def said_by(*command):
    return subprocess.check_output(command, text=True, env=dict(os.environ, WINEDEBUG="-all")).splitlines()[0]


def commit():
    return said_by("git", "-C", str(ROOT), "describe", "--always", "--dirty")


def machine():
    """What the figures were measured on and with."""
    with open("/proc/cpuinfo") as info:
        model = next((line.split(":")[1].strip() for line in info if line.startswith("model name")), "unknown")
    return {"processor": model, "cores": os.cpu_count(), "wine": said_by("wine", "--version"),
            "restic": said_by("restic", "version"), "rclone": said_by("rclone", "version"),
            "restic_in_wine": bool(Restic.program)}


def wine_factor(folder):
    """How many times as long Wine takes than this system, at walking, reading and writing 3000 small files."""
    SETS["small3000"].make(folder / "tree", 1)
    machine, taken = Machine(folder / "machine"), {}
    try:
        for turn in range(6):
            target, wine = folder / f"target{turn}", turn % 2
            command = ["wine", str(WINDOWS_BIN / "files_speed.exe"), *map(windows_path, (folder / "tree", target))] \
                if wine else [str(NATIVE_BIN / "files_speed"), str(folder / "tree"), str(target)]
            run = Process(command, env=machine.environment, stdin="")
            if run.wait(600) != 0:
                sys.exit(f"bench: files_speed failed: {run.err}")
            for what, seconds in json.loads(run.out).items():
                taken.setdefault(what, ([], []))[wine].append(seconds)
    finally:
        machine.close()
    return {what: statistics.median(wine) / statistics.median(native) for what, (native, wine) in taken.items()}


def in_work_folder(work):
    (BUILD / "e2e").mkdir(parents=True, exist_ok=True)
    with tempfile.TemporaryDirectory(dir=BUILD / "e2e", prefix="bench-") as folder:
        return work(pathlib.Path(folder))


def chosen(options, parser):
    """The cases that are to be measured."""
    network_given = options.rtt is not None or options.mbit is not None
    rtt, mbit = options.rtt or 0, options.mbit if options.mbit is not None else 400 if options.rtt else 0
    known = {case.name: case for case in CASES + LARGE}
    cases = []
    for name in options.cases:
        if network_given and name in SETS:
            cases.append(Case(name, rtt, mbit))
        elif not network_given and name in known:
            cases.append(known[name])
        else:
            parser.error(f"unknown {'set' if network_given else 'case'} {name}")
    if options.cases:
        return cases
    if network_given:
        parser.error("a network of your own wants sets to be named")
    return CASES + LARGE * options.large


def check_networks(cases):
    for rtt, mbit in sorted({(case.rtt, case.mbit) for case in cases if case.relayed}):
        if faults := network.faults(rtt, mbit):
            sys.exit(f"bench: this machine cannot play the network now: {'; '.join(faults)}")
        print(f"bench: the relay keeps {rtt:g} ms and {mbit:g} Mbit/s", file=sys.stderr)


def save(results):
    order = [case.name for case in CASES + LARGE]
    cases = results["cases"]
    results["cases"] = {name: cases[name] for name in sorted(
        cases, key=lambda name: (order.index(name) if name in order else len(order), name))}
    RESULTS.parent.mkdir(parents=True, exist_ok=True)
    new = RESULTS.with_suffix(".new")
    new.write_text(json.dumps(results, indent=1) + "\n")
    new.replace(RESULTS)


def measure_all(cases, options):
    check_networks(cases)
    results = json.loads(RESULTS.read_text()) if RESULTS.exists() else {"cases": {}}
    results["machine"] = machine()
    results["wine_factor"] = in_work_folder(wine_factor)
    for case in cases:
        results["cases"][case.name] = in_work_folder(lambda folder, case=case: measure(case, options, folder))
        save(results)
        print(report.details({case.name: results["cases"][case.name]}), flush=True)


def arguments():
    parser = argparse.ArgumentParser(prog="dev bench", description="Measures backups and restores beside references.",
                                     epilog="cases: " + " ".join(c.name for c in CASES) + "; large: "
                                            + " ".join(c.name for c in LARGE) + "; sets: " + " ".join(SETS))
    parser.add_argument("cases", nargs="*", metavar="CASE", help="a case, or a set for a network of your own")
    parser.add_argument("--rtt", type=float, metavar="MS", help="a network with this round trip")
    parser.add_argument("--mbit", type=float, metavar="N", help="and this rate (400; without --rtt: none)")
    parser.add_argument("--large", action="store_true", help="the cases that take hours, too")
    parser.add_argument("--runs", type=int, default=3, help="runs of each, medians are shown (3)")
    parser.add_argument("--scale", type=float, default=1.0, help="shrinks the sets, for a quick look (1.0)")
    parser.add_argument("--subjects", type=lambda names: names.split(","), help="some of " + ",".join(SUBJECTS))
    parser.add_argument("--restic", metavar="EXE", help="a restic.exe, to run under Wine instead of the native one")
    parser.add_argument("--keep", action="store_true", help="then make docs/benchmarks.json and its page from the results")
    parser.add_argument("--draw", action="store_true", help="measure nothing, draw the page from docs/benchmarks.json")
    options = parser.parse_args()
    if options.runs < 1 or not 0 < options.scale <= 1 or min(options.rtt or 0, options.mbit or 0) < 0:
        parser.error("runs, scale, round trip or rate out of range")
    if set(options.subjects or ()) - set(SUBJECTS):
        parser.error("unknown subject")
    Restic.program = options.restic
    return options, chosen(options, parser)


def main():
    options, cases = arguments()
    if options.draw:
        report.draw()
        return
    measure_all(cases, options)
    if options.keep:
        shutil.copyfile(RESULTS, report.KEPT)
        report.draw()


if __name__ == "__main__":
    main()
