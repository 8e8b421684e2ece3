"""What one more file and one more folder cost: requests, temporary files, system calls of the server.

Counts do not depend on how busy the machine is, so a change that makes every file dearer shows here
and not only in a measurement. Three trees that differ in one thing are backed up, run again unchanged
and restored; the difference of two counts is what their difference costs. A run that costs less than
its limit has earned a lower one."""

import re
import signal
import unittest

from machine import windows_path
from process import Process
from system import SystemTest, System, noise, write

MORE = 50  # files or folders
# Of each run, for one more file and for one more folder, at most: requests, temporary files, and system
# calls of the server, a seventh more than were counted.
LIMITS = {
    ("backup", "file"): (2, 0, 70),
    ("backup", "folder"): (1, 0, 35),
    ("unchanged", "file"): (0, 0, 2),
    ("unchanged", "folder"): (1, 0, 35),
    ("restore", "file"): (2, 1, 44),
    ("restore", "folder"): (1, 0, 19),
}
CONNECTIONS = 1  # of any run
# How often threads wait for and wake each other is a matter of luck.
CHANCE = ("futex(", "epoll_wait(", "clock_nanosleep(", "restart_syscall(", "sched_yield(")
# Packages on their way, and restored files before they get their names.
TEMPORARY = re.compile(r"/job/[^/]+/tmp/|/counts-[^/]+/to/")


class Trace:
    """The system calls of a process from now on until end()."""

    def __init__(self, pid, file, *options):
        self._file = file
        self._strace = Process(["strace", "-f", "-o", str(file), *options, "-p", str(pid)])
        self._strace.until(lambda: self._strace.ended or "attached" in self._strace.err, "strace to attach")
        if "not permitted" in self._strace.err:
            raise unittest.SkipTest("the system does not let this user trace a process")

    def end(self):
        """Their lines."""
        self._strace.signal(signal.SIGINT)
        self._strace.wait(60)
        lines = (re.sub(r"^\d+ +", "", line) for line in self._file.read_text(errors="replace").splitlines())
        return [line for line in lines if not line.startswith(("<... ", "+++", "---"))]


class CountsTest(SystemTest):
    def counts(self, run):
        """Connections; and requests, temporary files and system calls of what the function does."""
        proxy = self.system.proxy
        before = proxy.connections(), len(proxy.requests())
        server = Trace(self.system.server.process.pid, self.system.folder / "server.trace")
        files = Trace(self.system.machine.wine_server(), self.system.folder / "files.trace", "-e", "trace=%file")
        run()
        opened, calls = files.end(), server.end()
        return proxy.connections() - before[0], (
            len(proxy.requests()) - before[1],
            sum("O_CREAT" in line and bool(TEMPORARY.search(line)) for line in opened),
            sum(not line.startswith(CHANCE) for line in calls))

    def runs(self, name, files, folders):
        """The counts of the three runs over a tree."""
        tree, target = self.system.folder / name, self.system.folder / "to" / name
        for number in range(files):
            write(tree / "files" / f"{number}.dat", noise(1000, number))
        for number in range(folders):
            (tree / "folders" / f"{number}").mkdir(parents=True)
        machine, source = self.system.machine, windows_path(tree)
        backup = self.counts(lambda: machine.agent("backup", source, "--name", name))
        job = next(j["id"] for j in machine.listing("jobs") if j["name"] == name)
        return {"backup": backup,
                "unchanged": self.counts(lambda: machine.agent("start", job)),
                "restore": self.counts(lambda: machine.agent("restore", "latest", "--job", name, "--prefix", source,
                                                             "--to", windows_path(target)))}

    def test_one_more_file_and_one_more_folder_cost_no_more_than_they_did(self):
        self.system = System(self, "counts")
        self.system.backup()  # the first run of a machine also agrees on the key
        few = self.runs("few", 10, 10)
        more = {"file": self.runs("files", 10 + MORE, 10), "folder": self.runs("folders", 10, 10 + MORE)}
        for (run, what), limits in LIMITS.items():
            connections, counts = more[what][run]
            cost = [(n - before) / MORE for n, before in zip(counts, few[run][1])]
            print(f"{run}, one more {what}: {cost} requests, temporary files and calls; {connections} connections")
            with self.subTest(run=run, of=what):
                self.assertLessEqual(connections, CONNECTIONS)
                for name, n, most in zip(("requests", "temporary files", "calls of the server"), cost, limits):
                    self.assertLessEqual(n, most, name)


if __name__ == "__main__":
    unittest.main()
