"""A storage-server of a test's own: its data folder, its port, its life and death."""

import re
import socket
import sqlite3

from layout import NATIVE_BIN
from process import Process

PROGRAM = str(NATIVE_BIN / "storage-server")


class Server:
    """start() before anything else; the port stays the same over restarts."""

    def __init__(self, data):
        self.data, self.port, self.process = data, 0, None

    def __enter__(self):
        self.start()
        return self

    def __exit__(self, *_):
        self.stop()

    @property
    def address(self):
        return ("127.0.0.1", self.port)

    def add_user(self, name, password):
        process = Process([PROGRAM, "user", "add", name, "--data", str(self.data)], stdin=password + "\n")
        if process.wait(60) != 0:
            raise AssertionError(f"user add failed: {process.err}")

    def start(self):
        self.process = Process([PROGRAM, "--listen", f"127.0.0.1:{self.port}", "--data", str(self.data)])
        where = re.compile(r"127\.0\.0\.1:(\d+)")
        self.process.until(lambda: self.process._code is not None or where.search(self.process.out + self.process.err),
                           "the server to listen", 60)
        found = where.search(self.process.out + self.process.err)
        if self.process.ended or not found:
            raise AssertionError(f"the server did not start: {self.process.out}{self.process.err}")
        self.port = int(found[1])
        socket.create_connection(self.address, timeout=10).close()

    def log(self):
        """What it has said so far since its last start: a line a request."""
        return self.process.out + self.process.err

    def change_catalog(self, statement, *values):
        """Changes the database behind the server's back; returns how many rows."""
        database = sqlite3.connect(self.data / "catalog.db", timeout=60)
        try:
            with database:
                return database.execute(statement, values).rowcount
        finally:
            database.close()

    def stop(self):
        """In order, by SIGTERM."""
        if self.process and not self.process.ended:
            self.process.signal(15)
            if (code := self.process.wait(60)) != 0:
                raise AssertionError(f"the server ended with {code}: {self.process.err}")

    def kill(self):
        self.process.kill()
