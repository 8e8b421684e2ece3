#!/usr/bin/env python3
"""The program as those who run it see it: its options, its signals, its log.

usage: process_test.py STORAGE-SERVER
"""

import contextlib
import http.client
import os
import pathlib
import resource
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest

PROGRAM = ""
LOGIN = "/dorvo/WebServer/user/Login.php"


class Process(unittest.TestCase):
    def setUp(self):
        self.data = pathlib.Path(tempfile.mkdtemp(prefix="dorvo-process-"))
        self.addCleanup(shutil.rmtree, self.data)

    def run_program(self, *words):
        return subprocess.run([PROGRAM, *words], capture_output=True, text=True, check=False)

    def start(self, *words):
        """The program, once it serves, and where."""
        process = subprocess.Popen([PROGRAM, "--data", str(self.data / "data"), *words],
                                   stdout=subprocess.PIPE, text=True)
        self.addCleanup(process.stdout.close)
        self.addCleanup(process.kill)
        return process, process.stdout.readline().strip().removeprefix("listening on ")

    def open_files(self, process):
        found = set()
        for number in pathlib.Path(f"/proc/{process.pid}/fd").iterdir():
            with contextlib.suppress(FileNotFoundError):
                found.add(os.readlink(number))
        return found

    def log_in(self, address, body):
        connection = http.client.HTTPConnection(address)
        connection.request("POST", LOGIN, body)
        status = connection.getresponse().status
        connection.close()
        return status

    def test_version(self):
        done = self.run_program("--version")
        self.assertEqual(done.returncode, 0)
        self.assertRegex(done.stdout, r"^storage-server \d+\.\d+\.\d+\n$")

    def test_where_it_cannot_serve_it_says_so(self):
        _, taken = self.start("--listen", "localhost:0", "--log", os.devnull)
        self.assertRegex(taken, r"^127\.0\.0\.1:\d+$")
        for address, said in ((taken, "in use"), ("192.0.2.1:0", "assign")):
            done = self.run_program("--data", str(self.data / "other"), "--listen", address, "--log", os.devnull)
            self.assertEqual((done.returncode, done.stdout), (1, ""))
            self.assertRegex(done.stderr, r"^storage-server: cannot serve at [^\n]*" + said + r"[^\n]*\n$")

    def test_a_start_without_enough_threads_changes_nothing_and_says_so(self):
        process, _ = self.start("--listen", "127.0.0.1:0", "--log", os.devnull)
        process.terminate()
        process.wait()
        said = []
        for threads in range(64):
            # Room for the stacks of so many threads beside all else.
            stack, rest = 512 << 20, 1 << 30

            def bound(room=threads * stack + rest):
                resource.setrlimit(resource.RLIMIT_STACK, (stack, stack))
                resource.setrlimit(resource.RLIMIT_AS, (room, room))

            process = subprocess.Popen([PROGRAM, "--data", str(self.data / "data"), "--listen", "127.0.0.1:0",
                                        "--log", os.devnull], stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                       text=True, preexec_fn=bound)
            if process.stdout.readline():
                process.terminate()
            _, errors = process.communicate(timeout=60)
            if process.returncode == 0:
                break
            self.assertEqual(process.returncode, 1, (threads, errors))
            self.assertRegex(errors, r"^storage-server: [^\n]+\n$")
            said.append(errors)
        self.assertGreater(sum("refuses another thread" in line for line in said), 20, said)

    def test_the_log_tells_what_happened_and_goes_on_after_a_hangup(self):
        log, old = self.data / "log", self.data / "log.old"
        process, address = self.start("--listen", "127.0.0.1:0", "--log", str(log))
        self.assertEqual(self.log_in(address, '{"user":"al\u009bice","password":"x","machine":"pc"}'.encode()), 401)
        log.rename(old)
        process.send_signal(signal.SIGHUP)
        while str(old) in self.open_files(process):
            time.sleep(0)  # until the signal has been taken
        self.assertEqual(self.log_in(address, "x\n"), 400)
        process.terminate()
        self.assertEqual(process.wait(), 0)
        before = old.read_text().splitlines()
        self.assertRegex(before[0], r"Z service: started, version \S+, on " + address + ", data ")
        self.assertRegex(before[1], r"Z service: failed login from 127\.0\.0\.1 as al\\xc2\\x9bice$")
        self.assertRegex(before[2], r"Z 127\.0\.0\.1 POST " + LOGIN + r" 401 \d+ [\d.]+ -$")
        self.assertEqual(len(before), 3)
        after = [line.split("Z ", 1)[1].split(" ")[0] for line in log.read_text().splitlines()]
        self.assertEqual(after, ["127.0.0.1", "service:", "service:"])


if __name__ == "__main__":
    PROGRAM = sys.argv.pop(1)
    unittest.main()
