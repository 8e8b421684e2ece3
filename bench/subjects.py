"""Who is measured: the agent and its references, each with a server of its own.

begin() makes a new job, or a new repository; backup() is its first run, again() the next over an unchanged
tree, restore() brings the tree back: each gives the ended Process.
`port` is where its server listens, `address` where the client goes: to the port or to a relay before it.
`server` is the server's process id, `helpers` those of others that do part of the client's work."""

import os
import pathlib
import socket
import sys
import uuid

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "tests" / "e2e"))
from layout import BUILD, NATIVE_BIN, ROOT, WINDOWS_BIN  # noqa: E402, F401
from machine import Machine, windows_path  # noqa: E402
from process import Process  # noqa: E402
from server import Server  # noqa: E402

USER, PASSWORD = "bench", "correct horse"
LIMIT = 4 * 3600  # seconds that any one run may take


class _OnStorageServer:
    """storage-server, and a Windows machine to reach it from."""

    def __init__(self, folder, tree):
        self.tree, self.runs = tree, 0
        self._server = Server(folder / "server")
        self._server.add_user(USER, PASSWORD)
        self._server.start()
        self.machine = Machine(folder / "machine")
        self.port, self.server = self._server.port, self._server.process.pid
        self.helpers = [self.machine.wine_server()]
        self.go_to(self._server.address)

    def go_to(self, address):
        self.address = address

    def close(self):
        self.machine.close()
        self._server.stop()


class Agent(_OnStorageServer):
    """agent.exe."""

    name = "agent"

    def go_to(self, address):
        super().go_to(address)
        self.machine.connect(address, USER, PASSWORD)

    def begin(self):
        self.runs += 1

    def backup(self):
        return self.machine.agent("backup", windows_path(self.tree), "--name", f"bench{self.runs}", seconds=LIMIT)

    def again(self):
        job = next(j["id"] for j in self.machine.listing("jobs") if j["name"] == f"bench{self.runs}")
        return self.machine.agent("start", job, seconds=LIMIT)

    def restore(self, target):
        return self.machine.agent("restore", "latest", "--job", f"bench{self.runs}", "--to", windows_path(target),
                                  "--prefix", windows_path(self.tree), seconds=LIMIT)


class Floor(_OnStorageServer):
    """The floor programs, one request at a time; the job's id decides whether the server knows the files."""

    name, options = "floor", ()

    def begin(self):
        self.job = str(uuid.uuid4())

    def backup(self):
        return self._run("floor.exe", self.tree)

    again = backup

    def restore(self, target):
        return self._run("floor_restore.exe", self.tree, target)

    def _run(self, program, *paths):
        host, port = self.address
        run = Process(["wine", str(WINDOWS_BIN / program), *self.options, host, str(port), USER, PASSWORD, self.job,
                       *map(windows_path, paths)], env=self.machine.environment, stdin="")
        if run.wait(LIMIT) != 0:
            sys.exit(f"{program} failed: {run.err}")
        return run


class FloorAhead(Floor):
    """The floor of the pipelined shape: the next request is written before the last is answered."""

    name, options = "ahead", ("--ahead",)


class Restic:
    """Native, or, with the path of a restic.exe, under Wine; its server is native rclone in both cases."""

    name = "restic"
    program = None  # a restic.exe

    def __init__(self, folder, tree):
        self.tree, self.runs = tree, 0
        with socket.create_server(("127.0.0.1", 0)) as free:
            self.port = free.getsockname()[1]
        self.address, self.helpers, self._machine = ("127.0.0.1", self.port), [], None
        self._command, self._path, environment = ["restic"], str, os.environ
        if self.program:
            self._machine = Machine(folder / "machine")
            self.helpers = [self._machine.wine_server()]
            self._command, self._path, environment = ["wine", self.program], windows_path, self._machine.environment
        self._environment = dict(environment, RESTIC_PASSWORD=PASSWORD, RESTIC_CACHE_DIR=self._path(folder / "cache"))
        self._service = Process(["rclone", "serve", "restic", "--addr", f"127.0.0.1:{self.port}", str(folder / "repo")],
                                env=dict(os.environ, RCLONE_CONFIG=str(folder / "rclone.conf")), stdin="")
        self._service.until_said("Serving restic REST API")
        self.server = self._service.pid

    def go_to(self, address):
        self.address = address

    def begin(self):
        self.runs += 1
        self._restic("init")

    def backup(self):
        return self._restic("backup", "--quiet", self._path(self.tree))

    again = backup

    def restore(self, target):
        return self._restic("restore", "latest", "--quiet", "--target", self._path(target))

    def _restic(self, *arguments):
        host, port = self.address
        run = Process([*self._command, "-r", f"rest:http://{host}:{port}/{self.runs}", *arguments],
                      env=self._environment, stdin="")
        if run.wait(LIMIT) != 0:
            sys.exit(f"restic failed: {run.err}")
        return run

    def close(self):
        if self._machine:
            self._machine.close()
        self._service.signal(15)
        self._service.wait(60)


SUBJECTS = {kind.name: kind for kind in (Agent, Floor, FloorAhead, Restic)}
