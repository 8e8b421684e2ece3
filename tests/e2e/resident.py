"""The resident agent of a machine, in a console."""

import signal

READY = "The resident agent is ready."


class Resident:
    """Started and ready, or with wait=False only started. A test that leaves it running leaves it to the machine."""

    def __init__(self, machine, wait=True):
        self.machine = machine
        self.process = machine.start("run")
        if wait:
            self.process.until_said(READY)

    def interrupt(self):
        """Ctrl+C."""
        self.process.signal(signal.SIGINT)

    def stop(self, seconds=60):
        """Ends it in order."""
        self.interrupt()
        if (code := self.process.wait(seconds)) != 0:
            raise AssertionError(f"the resident ended with {code}\n{self.process.out}\n{self.process.err}")

    def kill(self):
        self.process.kill()
