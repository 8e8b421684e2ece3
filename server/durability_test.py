#!/usr/bin/env python3
"""What an answered request is worth to a power cut. What it is worth to a killed process the torture shows.

usage: durability_test.py STORAGE-SERVER

The power cut cannot be had in a test. What stands for it is the order of the system calls: before
the 200 of endjob the package file, its folders and the database's log must have been synced, and
nothing of it may be written after its sync.
"""

import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import unittest

sys.dont_write_bytecode = True
sys.path.append(str(pathlib.Path(__file__).resolve().parents[1] / "tests" / "torture"))

import session as wire  # noqa: E402

PROGRAM = ""
BLOCK = 131072


class Server:
    """storage-server on a free port, run below the words of `wrapper`."""

    def __init__(self, data, wrapper=()):
        self.process = subprocess.Popen([*wrapper, PROGRAM, "--listen", "127.0.0.1:0", "--data", str(data),
                                         "--log", "/dev/null"], stdout=subprocess.PIPE, text=True)
        self.port = int(self.process.stdout.readline().rsplit(":", 1)[1])

    def kill(self, number=signal.SIGKILL):
        self.process.send_signal(number)
        self.process.wait()
        self.process.stdout.close()


class Session(wire.Session):
    """A logged-in client on one connection; every answer but 200 is raised."""

    def __init__(self, port):
        super().__init__(None, "u", "m")
        self.connect(port)
        self.login("p")

    def connect(self, port):
        if self.connection:
            self.close()
        self.connection = wire.Connection(("127.0.0.1", port))

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def post(self, path, body, content_type="application/json"):
        answer = super().post(path, body, content_type)
        if answer.status != 200:
            raise AssertionError(f"{path}: {answer}")
        return answer

    def open(self, instance, paths):
        """Offers and starts it."""
        self.offer(instance, "job", [(path, 1) for path in paths], True, False)
        self.start(instance, "job", (1, 0, 1), "now")

    def file(self, instance, path, size, *blocks):
        self.info(instance, path, "file", (*[0] * 8, 1), size)
        for number, block in enumerate(blocks, 1):
            self.block(instance, path, number, block)


class Durability(unittest.TestCase):
    def setUp(self):
        self.data = pathlib.Path(tempfile.mkdtemp(prefix="dorvo-durability-"))
        self.addCleanup(shutil.rmtree, self.data)
        subprocess.run([PROGRAM, "user", "add", "u", "--data", self.data], input="p\n", text=True,
                       check=True, stdout=subprocess.DEVNULL)

    def traced(self, work):
        """What the server calls while it serves work(session), see calls()."""
        trace = self.data / "trace"
        server = Server(self.data, ["strace", "-f", "-y", "-qq", "-s", "60", "-o", str(trace), "-e",
                                    "trace=openat,pread64,pwrite64,fadvise64,fallocate,fsync,fdatasync,sync_file_range,syncfs,unlink,"
                                    "sendmsg"])
        try:
            with Session(server.port) as session:
                work(session)
        finally:
            # The tracer ends with what it traces.
            children = pathlib.Path(f"/proc/{server.process.pid}/task/{server.process.pid}/children")
            os.kill(int(children.read_text().split()[0]), signal.SIGTERM)
            server.process.wait()
            server.process.stdout.close()
        return self.calls(trace.read_text().splitlines())

    def test_what_may_be_synced_is_given_up_on_the_disk_first(self):
        """After a power cut nobody looks at blocks that a sync point covers."""
        def work(session):
            session.open("i", ["a"])
            session.file("i", "a", BLOCK + 3, b"x" * BLOCK, b"end")
            session.block("i", "a", 1, b"y" * BLOCK)
            session.file("i", "a", BLOCK + 4)
            session.cancel("i")

        calls = self.traced(work)
        answers = [i for i, call in enumerate(calls) if call == "answer 200"]
        # Nor would anybody miss information that came a second time, so that it is synced as well.
        for last, changed, syncs in ((6, "write packages/01/1.pkg", 1), (7, "punch packages/01/1.pkg", 2)):
            between = calls[answers[last - 1] + 1:answers[last]]
            self.assertIn(changed, between)
            before = between[:between.index(changed)]
            self.assertEqual([call for call in between if call.startswith("sync ")], ["sync catalog.db-wal"] * syncs)
            self.assertIn("sync catalog.db-wal", before)
        # Nor does a cancel come undone whose bytes have gone, or a file come back that nobody knows.
        cancel = calls[answers[7] + 1:answers[8]]
        cancel = [call for call, last in zip(cancel, [""] + cancel) if call != last]
        self.assertEqual(cancel, ["write catalog.db-wal", "sync catalog.db-wal", "write catalog.db-wal",
                                  "remove packages/01/1.pkg", "sync packages/01", "write catalog.db-wal"])

    def test_endjob_syncs_everything_before_its_answer(self):
        def work(session):
            for instance in ("first", "second"):
                session.open(instance, ["same", instance])
                for path in ("same", "first") if instance == "first" else ("second",):
                    session.file(instance, path, BLOCK + 3, b"x" * BLOCK, b"end")
                session.end(instance, "now")

        calls = self.traced(work)
        answers = [i for i, call in enumerate(calls) if call == "answer 200"]
        self.assertEqual(len(answers), 1 + (2 + 6 + 1) + (2 + 3 + 1))
        ends = {answers[9]: "packages/01", answers[15]: "packages/02"}
        opened = {answers[i] for i in (1, 2, 10, 11)}  # offered for the first time, started
        for begin, end in zip(answers, answers[1:]):
            between = calls[begin + 1:end]
            syncs = [call for call in between if call.startswith("sync ")]
            if end in opened:
                self.assertEqual(syncs, ["sync catalog.db-wal"])
                continue
            if end not in ends:
                self.assertEqual(syncs, [], "a small request waits for the disk")
                continue
            folder = ends[end]
            package = f"{folder}/{int(folder[-2:])}.pkg"
            self.assertEqual(syncs, [f"sync {package}", f"sync {folder}", "sync packages", "sync catalog.db-wal",
                                     "sync packages/marker"])
            self.assertNotIn(f"write {package}", between)
            state = between[between.index("sync packages") + 1:]
            self.assertEqual(set(state[:-3]), {"write catalog.db-wal"}, "the state is not committed after the bytes")
            # A copy of the catalog from before is older than the packages from now on.
            self.assertEqual(state[-3:], ["sync catalog.db-wal", "write packages/marker", "sync packages/marker"])
        # What was found at the start, and what is left at a stop: both disks, should there be two.
        for where in (calls[:answers[0]], calls[answers[-1]:]):
            self.assertEqual([call for call in where if call.startswith("syncfs ")], ["syncfs .", "syncfs packages"])

    def test_what_a_crash_leaves_is_read_from_the_disk(self):
        """Not from what the system remembers, of bytes that the disk may have refused."""
        server = Server(self.data)
        with Session(server.port) as session:
            session.start("i", "job", (1, 0, 1), "now")
            session.file("i", "a", 3, b"end")
        server.kill()
        calls = [call for call in self.traced(lambda session: None) if call.endswith("/1.pkg")]
        self.assertEqual(calls, ["sync packages/01/1.pkg", "forget packages/01/1.pkg", "read packages/01/1.pkg"])

    def calls(self, lines):
        """The trace as "write FILE", "punch FILE", "sync FILE", "remove FILE" and "answer 200"; a call stands where it
        ended, but an answer where it began."""
        calls, begun = [], {}
        for line in lines:
            pid, line = line.split(maxsplit=1)
            if line.startswith("sendmsg(") and "HTTP/1.1 200" in line:
                calls.append("answer 200")
                continue
            found = (re.match(r"(fsync|fdatasync|syncfs|pread64|pwrite64|fadvise64|fallocate)\(\d+<([^>]*)>", line)
                     or re.match(r'(unlink)\("([^"]*)"', line))
            if found and found[2].startswith(str(self.data)) and (
                    found[1] not in ("pread64", "fadvise64") or found[2].endswith(".pkg")):
                what = {"pread64": "read ", "pwrite64": "write ", "fadvise64": "forget ", "fallocate": "punch ", "syncfs": "syncfs ",
                        "unlink": "remove "}.get(found[1], "sync ")
                begun[pid] = what + os.path.relpath(found[2], self.data)
            if pid in begun and "<unfinished" not in line:
                call = begun.pop(pid)
                self.assertRegex(line, r"= [1-9]\d*$" if call.startswith(("read", "write")) else r"= 0$")
                calls.append(call)
        return calls


if __name__ == "__main__":
    PROGRAM = sys.argv.pop(1)
    unittest.main()
