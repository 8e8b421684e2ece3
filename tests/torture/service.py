"""The storage-server under torture, over one data folder."""

from journal import Wrong
from process import Process
from server import PROGRAM, Server

LIMIT = 120  # seconds for a start or a stop


class Service(Server):
    """A free port at each start: others may have taken the old one meanwhile."""

    def start(self):
        self.port = 0
        super().start()

    def try_start(self):
        """What it said when it refused to start; None when it serves."""
        self.port = 0
        process = Process([PROGRAM, "--listen", "127.0.0.1:0", "--data", str(self.data)])
        process.until(lambda: process._code is not None or "listening on" in process.out, "a start or its refusal", LIMIT)
        if not process.ended:
            self.process = process
            self.port = int(process.out.rsplit(":", 1)[1].split()[0])
            return None
        if process.wait(LIMIT) != 1 or "storage-server:" not in process.err:
            raise Wrong(f"a start ended with {process.wait(1)} without a reason: {process.err}")
        return process.err
