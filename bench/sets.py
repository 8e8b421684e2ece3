"""The sets of files that are measured, and on which networks."""

import dataclasses
import os
import pathlib
import random
import shutil
from collections.abc import Callable


def _write(path, data):
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_bytes(data)


def _noise(count, mib):
    def make(folder, scale):
        source = random.Random(1)
        for i in range(count):
            _write(folder / f"{i}.bin", source.randbytes(int(mib * 2**20 * scale)))
    return make


def _headers(count):
    """So many files of /usr/include, spread over all of it."""
    def make(folder, scale):
        root = pathlib.Path("/usr/include")
        files = sorted(pathlib.Path(top) / name for top, _, names in os.walk(root) for name in names)
        files = [f for f in files if f.is_file() and not f.is_symlink()]
        wanted = int(count * scale)
        if len(files) < wanted:
            raise SystemExit(f"bench: {root} has {len(files)} files, not {wanted}")
        for i in range(wanted):
            source = files[i * len(files) // wanted]
            target = folder / source.relative_to(root)
            target.parent.mkdir(parents=True, exist_ok=True)
            shutil.copyfile(source, target)
    return make


def _small(count, size):
    """Half of each file is text that deflates well, half is noise."""
    def make(folder, scale):
        source, text = random.Random(2), (b"all work and no play makes a dull file\n" * (size // 40 + 1))[: size // 2]
        for i in range(int(count * scale)):
            _write(folder / f"{i // 500}" / f"file{i}.dat", text + source.randbytes(size - len(text)))
    return make


@dataclasses.dataclass(frozen=True)
class Set:
    text: str
    make: Callable
    unchanged_only: bool = False  # the first run only prepares


SETS = {
    "include500": Set("500 files of /usr/include", _headers(500)),
    "include6000": Set("6000 files of /usr/include", _headers(6000)),
    "small1000": Set("1000 × 4 KiB", _small(1000, 4096)),
    "small3000": Set("3000 × 4 KiB", _small(3000, 4096)),
    "small8000": Set("8000 × 4 KiB", _small(8000, 4096)),
    "small20000": Set("20,000 × 4 KiB", _small(20000, 4096)),
    "noise60": Set("60 MiB of noise in 3 files", _noise(3, 20)),
    "noise500": Set("500 MiB of noise in 5 files", _noise(5, 100)),
    "tiny200000": Set("200,000 × 64 bytes", _small(200_000, 64), unchanged_only=True),
    "tiny1000000": Set("1,000,000 × 64 bytes", _small(1_000_000, 64), unchanged_only=True),
}


@dataclasses.dataclass(frozen=True)
class Case:
    """A set on a network; without a round trip and a rate it is loopback."""

    set: str
    rtt: float = 0
    mbit: float = 0

    @property
    def name(self):
        return self.set + (f"@{self.rtt:g}" if self.rtt else "") + (f"@{self.mbit:g}mbit" if self.mbit not in (0, 400) else "")

    @property
    def relayed(self):
        return bool(self.rtt or self.mbit)


CASES = [
    *(Case(s) for s in ("include6000", "small3000", "small8000", "noise500")),
    *(Case(s, 20, 400) for s in ("include500", "small1000", "small3000", "noise60")),
    *(Case(s, 80, 400) for s in ("include500", "small1000", "noise60")),
]
LARGE = [
    *(Case(s) for s in ("small20000", "tiny200000", "tiny1000000")),
    *(Case(s, 20, 400) for s in ("small20000", "noise500")),
]
