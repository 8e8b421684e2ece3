"""What processes use: processor time and memory, of services that outlive a run."""

import os
import pathlib

TICK = os.sysconf("SC_CLK_TCK")


class Usage:
    """Of a process that runs, from now on until the end() of the same run."""

    def __init__(self, pid):
        self._folder = pathlib.Path(f"/proc/{pid}")
        (self._folder / "clear_refs").write_text("5")  # the peak begins anew
        self._cpu = self._cpu_seconds()

    def _cpu_seconds(self):
        fields = (self._folder / "stat").read_text().rpartition(")")[2].split()
        return (int(fields[11]) + int(fields[12])) / TICK

    def end(self):
        """Seconds of processor time and the peak in MiB."""
        status = dict(line.split(":", 1) for line in (self._folder / "status").read_text().splitlines())
        return self._cpu_seconds() - self._cpu, int(status["VmHWM"].split()[0]) / 1024
