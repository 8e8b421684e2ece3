"""A child process of a test: its output by lines, its end, its peak memory."""

import os
import select
import subprocess
import threading
import time


class Process:
    """Starts at once. Every wait has a limit and says what it waited for.

    `echo` is given each piece of output; with `terminal` the child has this program's own streams
    and nothing of its output is kept."""

    def __init__(self, command, env=None, cwd=None, stdin=None, echo=None, terminal=False):
        self._changed = threading.Condition()  # guards all below
        self._said = {"out": [], "err": []}
        # Of the running child so far, or of the whole life of an ended one: all that was resident,
        # and what of it was no file's (programs and libraries are), as seen at moments.
        self.peak_kib = self.peak_own_kib = 0
        self._code = None
        self.seconds = self.cpu_seconds = None  # of an ended child, the processor's with its own children's
        self._started = time.monotonic()
        streams = None if terminal else subprocess.PIPE
        self._child = subprocess.Popen(command, env=env, cwd=cwd, stdin=streams, stdout=streams, stderr=streams)
        self.pid = self._child.pid
        self._readers = [threading.Thread(target=self._read, args=(pipe, name, echo), daemon=True)
                         for pipe, name in ((self._child.stdout, "out"), (self._child.stderr, "err")) if pipe]
        for reader in self._readers:
            reader.start()
        threading.Thread(target=self._wait, daemon=True).start()
        if stdin is not None and not terminal:
            self.write(stdin)
            self.end_input()

    def write(self, text):
        try:
            self._child.stdin.write(text.encode())
            self._child.stdin.flush()
        except BrokenPipeError:
            pass

    def end_input(self):
        try:
            self._child.stdin.close()
        except BrokenPipeError:
            pass

    def signal(self, number):
        with self._changed:
            if self._code is None:
                os.kill(self.pid, number)

    def kill(self):
        """Ends it as a power cut would: nothing of its own runs any more."""
        self.signal(9)
        self.wait(30)

    @property
    def out(self):
        return self._text("out")

    @property
    def err(self):
        return self._text("err")

    def _text(self, name):
        with self._changed:
            self._said[name] = ["".join(self._said[name])]
            return self._said[name][0]

    @property
    def ended(self):
        with self._changed:
            return self._code is not None

    def wait(self, seconds):
        """The exit code; AssertionError with the output so far when it does not end in time."""
        self.until(lambda: self._code is not None, "its end", seconds)
        for reader in self._readers:
            reader.join(10)  # helpers of Wine may hold the pipes longer than the program lives
        return self._code

    def until(self, condition, what, seconds=120):
        """Waits until the condition holds; it is asked again when output comes or the child ends."""
        with self._changed:
            if not self._changed.wait_for(condition, seconds):
                raise AssertionError(f"waited {seconds} s in vain for {what}\n{self.out}\n{self.err}")

    def until_said(self, text, seconds=120):
        self.until(lambda: text in self.out or text in self.err or self._code is not None, repr(text), seconds)
        if self.ended:
            self.wait(0)  # for what it said last
        if text not in self.out + self.err:
            raise AssertionError(f"ended with {self._code} without saying {text!r}\n{self.out}\n{self.err}")

    def _read(self, pipe, name, echo):
        with pipe:
            while data := pipe.read1(65536):
                text = data.decode(errors="replace")
                if echo:
                    echo(text)
                with self._changed:
                    self._said[name].append(text)
                    self._changed.notify_all()

    def _wait(self):
        # The kernel's own figure of the ended child would count its parent's memory before exec.
        end = os.pidfd_open(self.pid)
        while not select.select([end], [], [], 0.05)[0]:
            resident, own = self._memory()
            self.peak_kib, self.peak_own_kib = max(self.peak_kib, resident), max(self.peak_own_kib, own)
        os.close(end)
        _, status, usage = os.wait4(self.pid, 0)
        if self._child.stdin:
            self.end_input()
        with self._changed:
            self._code = self._child.returncode = os.waitstatus_to_exitcode(status)
            self.seconds = time.monotonic() - self._started
            self.cpu_seconds = usage.ru_utime + usage.ru_stime
            self._changed.notify_all()

    def _memory(self):
        try:
            with open(f"/proc/{self.pid}/status") as status:
                values = dict(line.split(":", 1) for line in status)
                return int(values["VmHWM"].split()[0]), int(values["RssAnon"].split()[0])
        except (FileNotFoundError, ProcessLookupError, KeyError):
            return 0, 0
