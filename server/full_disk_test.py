#!/usr/bin/env python3
"""A storage server on a disk that is full to the last byte, its own doing and others'.

usage: unshare --map-root-user --mount full_disk_test.py STORAGE-SERVER

The disk is a small one in memory, in a mount namespace of the test's own.
"""

import os
import pathlib
import shutil
import signal
import sqlite3
import subprocess
import sys
import tempfile
import unittest

import durability_test
from durability_test import BLOCK, Server, Session


class FullDisk(unittest.TestCase):
    def setUp(self):
        self.data = pathlib.Path(tempfile.mkdtemp(prefix="dorvo-full-"))
        self.addCleanup(shutil.rmtree, self.data)
        subprocess.run(["mount", "-t", "tmpfs", "-o", "size=64m", "none", self.data], check=True)
        self.addCleanup(subprocess.run, ["umount", "--lazy", self.data], check=True)
        subprocess.run([durability_test.PROGRAM, "user", "add", "u", "--data", self.data], input="p\n", text=True,
                       check=True, stdout=subprocess.DEVNULL)

    def serve(self):
        server = Server(self.data)
        self.addCleanup(lambda: server.process.returncode is None and server.kill())
        return server

    def free(self):
        status = os.statvfs(self.data)
        return status.f_bavail * status.f_frsize

    def fill(self):
        """By somebody else, to the last byte."""
        with open(self.data / "somebody's", "ab", buffering=0) as file:
            try:
                while True:
                    file.write(bytes(4096))
            except OSError:
                pass
        self.assertLess(self.free(), 4096)

    def ended_in_order(self):
        catalog = sqlite3.connect(f"file:{self.data}/catalog.db?immutable=1", uri=True)
        try:
            return catalog.execute("SELECT boot FROM service").fetchone() == ("",)
        finally:
            catalog.close()

    def upload(self, session, instance):
        session.open(instance, [instance])
        session.file(instance, instance, 100 * BLOCK)

    def refusal(self, call, *arguments):
        with self.assertRaises(AssertionError) as caught:
            call(*arguments)
        return str(caught.exception)

    def read(self, session):
        self.assertEqual(session.file_info("done", "m", "done").json["totalblock"], 100)

    def recover(self, session):
        """What must be possible on a full disk."""
        self.read(session)
        session.start_restore("done", "r")

    def test_can_be_left(self):
        server = self.serve()
        with Session(server.port) as session, Session(server.port) as old:
            self.upload(session, "done")
            for number in range(1, 101):
                session.block("done", "done", number, bytes(BLOCK))
            session.end("done", "now")
            session.open("run", ["run"])
            session.file("run", "run", 1000 * BLOCK)
            blocks = 0
            while blocks < 1000:
                try:
                    session.block("run", "run", blocks + 1, bytes(BLOCK))
                except AssertionError as refused:
                    self.assertIn("503", str(refused))
                    self.assertIn("disk is full", str(refused))
                    break
                blocks += 1
            self.assertGreater(self.free(), 5 << 20)
            self.assertIn("disk is full", self.refusal(self.upload, session, "more"))
            with sqlite3.connect(self.data / "catalog.db") as catalog:
                catalog.execute("UPDATE sessions SET used = used - 20 * 24 * 3600")
            catalog.close()

            for how in (signal.SIGTERM, signal.SIGKILL):
                self.fill()
                if how == signal.SIGKILL:
                    self.recover(session)
                    with Session(server.port) as other:
                        self.recover(other)
                server.kill(how)
                self.assertEqual(server.process.returncode, 0 if how == signal.SIGTERM else -how)
                if how == signal.SIGTERM:
                    self.assertTrue(self.ended_in_order())
                    self.fill()
                server = self.serve()
                for client in (session, old):
                    client.connect(server.port)
            session.cancel("run")
            self.upload(session, "more")
            for number in range(1, 101):
                session.block("more", "more", number, bytes(BLOCK))
            session.end("more", "now")

            # When the room that was held is gone too.
            self.fill()
            self.recover(session)
            self.fill()
            self.read(old)
            server.kill(signal.SIGTERM)
            self.assertEqual(server.process.returncode, 0)
            (self.data / "somebody's").unlink()
            server = self.serve()
            old.connect(server.port)
            self.read(old)

    def test_can_be_left_where_no_file_can_be_made(self):
        server = self.serve()
        with Session(server.port) as session:
            session.start("done", "job", (1, 0, 1), "now")
        server.kill()
        stranger = self.data / "packages" / "77" / "119.pkg"
        stranger.parent.mkdir()
        stranger.write_bytes(b"stranger")
        subprocess.run(["mount", "-o", "remount,nr_inodes=200", self.data], check=True)
        with self.assertRaises(OSError):
            for number in range(200):
                (self.data / f"somebody's {number}").touch()
        self.serve().kill(signal.SIGTERM)
        self.assertEqual((self.data / "orphans" / "119.pkg").read_bytes(), b"stranger")


if __name__ == "__main__":
    durability_test.PROGRAM = sys.argv.pop(1)
    unittest.main()
