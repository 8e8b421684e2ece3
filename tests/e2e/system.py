"""A whole system of a test's own: server, proxy before it, Windows machine, and a tree to back up."""

import concurrent.futures
import os
import pathlib
import random
import shutil
import tempfile
import time
import unittest

import proxy
import trees
import verify
from layout import BUILD
from machine import Machine, windows_path
from server import Server

USER, PASSWORD = "maria", "correct horse battery staple"
BLOCK = 131072


def noise(size, seed):
    """Bytes that no compression makes smaller."""
    return random.Random(seed).randbytes(size)


def write(path, data, mtime=None):
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_bytes(data)
    if mtime is not None:
        os.utime(path, ns=(mtime, mtime))


def make_tree(root):
    """Sizes around the borders of cipher blocks and upload blocks, odd names, an empty folder."""
    for size in (0, 1, 15, 16, 17, 8191, 8192, BLOCK - 1, BLOCK, BLOCK + 1):
        write(root / "sizes" / f"{size}.bin", noise(size, size), mtime=1_500_000_000_123_456_700 + size * 1000)
    write(root / "text.txt", b"the same line again and again\n" * 20000)
    write(root / "odd names" / "Grüße & söhne's 50% [1] {x} #;.txt", b"umlauts")
    write(root / "odd names" / "日本語" / "пример.dat", noise(3000, 3))
    write(root / "z large.bin", noise(5 * BLOCK + 777, 5))
    (root / "empty folder" / "in it").mkdir(parents=True)


def work_folder(cleanup, name="x"):
    """Below the build folder, because prefixes are linked from its template; removed at the end."""
    (BUILD / "e2e").mkdir(parents=True, exist_ok=True)
    folder = tempfile.mkdtemp(prefix=f"{name}-", dir=BUILD / "e2e")
    if not os.environ.get("DORVO_KEEP"):
        cleanup(shutil.rmtree, folder, ignore_errors=True)
    return pathlib.Path(folder)


def until(condition, run=None):
    """Looks again and again, for what only the disk shows of a command that runs."""
    deadline = time.monotonic() + 300
    while not condition():
        if run is not None and run.ended or time.monotonic() > deadline:
            raise AssertionError("waited in vain" + (f"\n{run.out}\n{run.err}" if run else ""))
        time.sleep(0.002)


class World:
    """A folder with a tree to back up, and machines."""

    def __init__(self, test, name):
        self.test, self.folder = test, work_folder(test.addCleanup, name)
        self.tree = self.folder / "source"
        self.tree.mkdir()

    def add_machine(self, name, **options):
        machine = Machine(self.folder / name, name, **options)
        self.test.addCleanup(machine.close)
        return machine

    def to(self, target, *options):
        """The options of a restore after which `target` looks like the tree."""
        return ("--to", windows_path(target), "--prefix", windows_path(self.tree), *options)

    def job(self, kind="backup"):
        """The id of the machine's only job of the kind."""
        jobs = [j for j in self.machine.listing("jobs") if j["type"] == kind]
        if len(jobs) != 1:
            raise AssertionError(f"not one {kind} job: {jobs}")
        return jobs[0]["id"]

    def packages(self):
        """Packages that jobs of the machine have begun to encode or to receive, and not let go."""
        return [p for p in (self.machine.data / "job").glob("*/tmp/*") if p.is_file() and p.stat().st_size]


class System(World):
    """The agent is logged in and talks to the server through the proxy."""

    def __init__(self, test, name="x", **options):
        super().__init__(test, name)
        self.server = Server(self.folder / "server")
        self.server.add_user(USER, PASSWORD)
        self.server.start()
        test.addCleanup(self.server.stop)
        self.proxy = proxy.Proxy(self.server.address)
        test.addCleanup(self.proxy.close)
        self.machine = self.add_machine("machine", **options)

    def add_machine(self, name, **options):
        """One more machine of the same user."""
        machine = super().add_machine(name, **options)
        machine.connect(self.proxy.address, USER, PASSWORD)
        return machine

    def start_backup(self, *options, source=None):
        return self.machine.start("backup", windows_path(source or self.tree), *options)

    def held_backup(self, *options, endpoint="uploadblock", nth=9):
        """What holds a backup at that request, and the backup."""
        fault = self.proxy.add(endpoint, proxy.HOLD_REQUEST, nth=nth)
        run = self.start_backup(*options)
        self.await_fault(fault, run)
        return fault, run

    def backup(self, *options, source=None, code=0):
        return self.machine.agent("backup", windows_path(source or self.tree), *options, code=code)

    def start_restore(self, *options):
        return self.machine.start("restore", self.instance(), *options)

    def restore(self, *options, **expected):
        """Of all that the last backup holds, or of the paths among the options."""
        return self.machine.agent("restore", self.instance(), *options, **expected)

    def kill_at(self, run, endpoint, action, nth):
        """`run` starts a command, which is killed at the nth request that it makes to the endpoint."""
        fault = self.proxy.add(endpoint, action, nth=nth)
        child = run()
        self.await_fault(fault, child)
        if child.ended:
            raise AssertionError(f"ended by itself\n{child.out}{child.err}")
        child.kill()
        fault.abandon()
        self.proxy.clear()

    def await_fault(self, fault, run):
        if not fault.reached.wait(120):
            raise AssertionError(f"{fault.endpoint} {fault.nth} never came\n{run.out}{run.err}")

    def instance(self):
        """The id of the backup that was started last."""
        return self.proxy.requests("StartJob")[-1].instance

    def differences(self, **options):
        """Between the last run's backup and the tree; empty when all is well."""
        return verify.differences(self.server.data, self.instance(), self.tree, *self.machine.user_key(USER), **options)


class SystemTest(unittest.TestCase):
    """Comparisons and side by side scenarios for tests of whole systems."""

    def assertBackedUp(self, system, **options):
        self.assertEqual(system.differences(**options), [])

    def assertRestored(self, system, expected, target):
        """`target` is what the snapshot says, and nothing of the run is left behind."""
        self.assertEqual(trees.differences(expected, trees.snapshot(target)), [])
        self.assertEqual(system.packages(), [])

    def side_by_side(self, scenario, rows):
        """scenario(*row) for many rows at once: they mostly wait. Each failure is a sub-test's."""
        with concurrent.futures.ThreadPoolExecutor(min(len(rows), 8)) as pool:
            runs = [(row, pool.submit(scenario, *row)) for row in rows]
            for row, run in runs:
                with self.subTest(row=str(row)):
                    run.result()
