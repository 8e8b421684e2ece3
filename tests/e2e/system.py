"""A whole system of a test's own: server, proxy before it, Windows machine, and a tree to back up."""

import concurrent.futures
import os
import pathlib
import random
import shutil
import tempfile
import unittest

import verify
from layout import BUILD
from machine import Machine, windows_path
from proxy import Proxy
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


def work_folder(test, name="x"):
    """Below the build folder, because prefixes are linked from its template; removed at the end."""
    (BUILD / "e2e").mkdir(parents=True, exist_ok=True)
    folder = tempfile.mkdtemp(prefix=f"{name}-", dir=BUILD / "e2e")
    if not os.environ.get("DORVO_KEEP"):
        test.addCleanup(shutil.rmtree, folder, ignore_errors=True)
    return pathlib.Path(folder)


class System:
    """The agent is logged in and talks to the server through the proxy."""

    def __init__(self, test, name="x"):
        self.folder = work_folder(test, name)
        self.tree = self.folder / "source"
        self.tree.mkdir()
        self.server = Server(self.folder / "server")
        self.server.add_user(USER, PASSWORD)
        self.server.start()
        test.addCleanup(self.server.stop)
        self.proxy = Proxy(self.server.address)
        test.addCleanup(self.proxy.close)
        self.machine = Machine(self.folder / "machine")
        test.addCleanup(self.machine.close)
        self.machine.connect(self.proxy.address, USER, PASSWORD)

    def start_backup(self, *options, source=None):
        return self.machine.start("backup", windows_path(source or self.tree), *options)

    def backup(self, *options, source=None, code=0):
        return self.machine.agent("backup", windows_path(source or self.tree), *options, code=code)

    def job(self):
        """The id of the machine's only job."""
        jobs = self.machine.listing("jobs")
        if len(jobs) != 1:
            raise AssertionError(f"not one job: {jobs}")
        return jobs[0]["id"]

    def instance(self):
        """The id of the run that was started last."""
        return self.proxy.requests("StartJob")[-1].instance

    def differences(self, **options):
        """Between the last run's backup and the tree; empty when all is well."""
        return verify.differences(self.server.data, self.instance(), self.tree, *self.machine.user_key(USER), **options)


class SystemTest(unittest.TestCase):
    """assertBackedUp and side by side scenarios for tests of whole systems."""

    def assertBackedUp(self, system, **options):
        self.assertEqual(system.differences(**options), [])

    def side_by_side(self, scenario, rows):
        """scenario(*row) for every row at once: they mostly wait. Each failure is a sub-test's."""
        with concurrent.futures.ThreadPoolExecutor(len(rows)) as pool:
            runs = [(row, pool.submit(scenario, *row)) for row in rows]
            for row, run in runs:
                with self.subTest(row=str(row)):
                    run.result()
