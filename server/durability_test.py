#!/usr/bin/env python3
"""What an answered request is worth: to a killed process, and to a power cut.

usage: durability_test.py STORAGE-SERVER

The power cut cannot be had in a test. What stands for it is the order of the system calls: before
the 200 of endjob the package file, its folders and the database's log must have been synced, and
nothing of it may be written after its sync.
"""

import hashlib
import http.client
import json
import os
import pathlib
import random
import re
import shutil
import signal
import sqlite3
import subprocess
import sys
import tempfile
import threading
import unittest

PROGRAM = ""
BLOCK = 131072
WEB = "/dorvo/WebServer/"
UPLOAD = "/dorvo/Storage%20Server/backupServer/"
ATTRIBUTES = ("dwFileAttributes nFileSizeHigh nFileSizeLow ftCreationTimedwHighDateTime"
              " ftCreationTimedwLowDateTime ftLastAccessTimedwHighDateTime"
              " ftLastAccessTimedwLowDateTime ftLastWriteTimedwHighDateTime"
              " ftLastWriteTimedwLowDateTime").split()


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


class Session:
    """A logged-in client on one connection."""

    def __init__(self, port):
        self.connection = http.client.HTTPConnection("127.0.0.1", port)
        self.cookie = ""
        self.post(WEB + "user/Login.php", {"user": "u", "password": "p", "machine": "m"})

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.connection.close()

    def post(self, path, body, content_type="application/json"):
        """Raises unless the answer is 200."""
        if isinstance(body, dict):
            body = json.dumps(body)
        self.connection.request("POST", path, body, {"Cookie": self.cookie, "Content-Type": content_type})
        response = self.connection.getresponse()
        answer = response.read()
        if response.status != 200:
            raise AssertionError(f"{path}: {response.status} {answer}")
        self.cookie = response.getheader("Set-Cookie") or self.cookie
        return json.loads(answer)

    def offer(self, instance, paths):
        source = [{"path": path, "mtimeHigh": 0, "mtimeLow": 1} for path in paths]
        return self.post(WEB + "catalog/FilesToBackup.php",
                         {"id": "job", "jobinstanceid": instance, "compress": True, "source": source})

    def start(self, instance):
        self.post(WEB + "jobs/StartJob.php",
                  {"jobdefinitionid": "job", "jobinstanceid": instance, "totalfiles": 1,
                   "totaldirectories": 0, "totalsize": 1, "starttime": "now"})

    def info(self, instance, path, size):
        attributes = dict.fromkeys(ATTRIBUTES, 0) | {ATTRIBUTES[8]: 1}
        self.post(UPLOAD + "uploadfile.php",
                  {"attri": attributes, "type": "file", "jobinstanceid": instance, "sourcename": path,
                   "totalsizeHigh": 0, "totalsizeLow": size, "totalblock": size // BLOCK + 1})

    def block(self, instance, path, number, data):
        fields = {"md5": hashlib.md5(data).hexdigest(), "jobinstanceid": instance, "sourcename": path}
        head = "".join(f'--b\r\nContent-Disposition: form-data; name="{name}"\r\n\r\n{value}\r\n'
                       for name, value in fields.items())
        head += f'--b\r\nContent-Disposition: form-data; name="file"; filename="{number}.jpg"\r\n\r\n'
        self.post(UPLOAD + "uploadblock.php", head.encode() + data + b"\r\n--b--\r\n",
                  "multipart/form-data; boundary=b")

    def end(self, instance):
        self.post(UPLOAD + "endjob.php", {"jobinstanceid": instance, "endtime": "now"})


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
            session.offer("i", ["a"])
            session.start("i")
            session.info("i", "a", BLOCK + 3)
            session.block("i", "a", 1, b"x" * BLOCK)
            session.block("i", "a", 2, b"end")
            session.block("i", "a", 1, b"y" * BLOCK)
            session.info("i", "a", BLOCK + 4)
            session.post(WEB + "jobs/CancelJob.php", {"id": "i"})

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
                session.offer(instance, ["same", instance])
                session.start(instance)
                for path in ("same", "first") if instance == "first" else ("second",):
                    session.info(instance, path, BLOCK + 3)
                    session.block(instance, path, 1, b"x" * BLOCK)
                    session.block(instance, path, 2, b"end")
                session.end(instance)

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
            session.start("i")
            session.info("i", "a", 3)
            session.block("i", "a", 1, b"end")
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

    def test_everything_answered_200_is_there_after_kill_9(self):
        seed = random.randrange(1 << 32)
        print("seed", seed)
        rng = random.Random(seed)
        stored, completed = {}, set()  # (instance, path) -> blocks answered 200
        for round_number in range(6):
            server = Server(self.data)
            answered, enough = threading.Semaphore(0), rng.randrange(1, 120)

            def work(thread, round_number=round_number, port=server.port):
                try:
                    with Session(port) as session:
                        for run in range(1000):
                            instance = f"{round_number}-{thread}-{run}"
                            paths = [f"{instance}-{i}" for i in range(4)]
                            session.offer(instance, paths)
                            session.start(instance)
                            for path in paths:
                                blocks = [random.randbytes(BLOCK), random.randbytes(100)]
                                session.info(instance, path, BLOCK + 100)
                                stored[instance, path] = []
                                for number, block in enumerate(blocks, 1):
                                    session.block(instance, path, number, block)
                                    stored[instance, path].append(block)
                                    answered.release()
                            session.end(instance)
                            completed.add(instance)
                except (OSError, http.client.HTTPException):
                    pass  # the server was killed

            threads = [threading.Thread(target=work, args=(i,)) for i in range(3)]
            for thread in threads:
                thread.start()
            for _ in range(enough):
                answered.acquire()
            server.kill()
            for thread in threads:
                thread.join()
            self.compare(stored, completed)
        self.assertTrue(stored)
        server = Server(self.data)
        with Session(server.port) as session:
            listed = {item["jobinstanceid"] for item in session.post(
                WEB + "catalog/ListInstances.php", {"machine": "", "jobdefinitionid": ""})["instances"]
                if item["state"] == "completed"}
        self.assertLessEqual(completed, listed)
        server.kill(signal.SIGTERM)
        self.compare(stored, completed)

    def compare(self, stored, completed):
        database = sqlite3.connect(self.data / "catalog.db")
        self.assertEqual(database.execute("PRAGMA integrity_check").fetchone(), ("ok",))
        for instance in completed:
            self.assertEqual(database.execute("SELECT state FROM instances WHERE name = ?", (instance,)).fetchone(), (2,))
        for (instance, path), blocks in stored.items():
            row = database.execute(
                "SELECT f.blocks, f.container, f.offset FROM files f JOIN instances i ON i.id = f.instance"
                " WHERE i.name = ? AND f.path = ?", (instance, path.encode())).fetchone()
            self.assertIsNotNone(row, path)
            self.assertGreaterEqual(row[0], len(blocks), path)
            if blocks:
                with open(self.data / "packages" / f"{row[1] & 255:02x}" / f"{row[1]}.pkg", "rb") as package:
                    package.seek(row[2])
                    self.assertEqual(package.read(sum(map(len, blocks))), b"".join(blocks), path)
        database.close()


if __name__ == "__main__":
    PROGRAM = sys.argv.pop(1)
    unittest.main()
