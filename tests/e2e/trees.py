"""What a tree of files looks like, and how two trees differ. Nothing here shares code with the project.

Wine keeps write and access times to 100 ns and shows READONLY as missing write permission; it keeps
no creation time, and no READONLY on folders.
"""

import collections
import hashlib
import os
import stat

Entry = collections.namedtuple("Entry", "kind read_only size digest written accessed")
DEEPER_THAN_WINDOWS = 300  # characters of a path; programs without the long form stop at 260


def make_odd_files(root):
    """Names and forms that give trouble: Unicode, the longest name, a long path, read-only, empty."""
    deep = root / "deep"
    while len(str(deep)) < DEEPER_THAN_WINDOWS:
        deep = deep / ("a folder with a long name " + "x" * 30)
    files = {root / "odd" / "Grüße & söhne's 50% [1] {x} #;.txt": b"umlauts",
             root / "odd" / "日本語" / "пример.dat": b"scripts" * 500,
             root / "odd" / ("n" * 251 + ".txt"): b"the longest name",
             root / "odd" / ".hidden": b"a leading dot reads as HIDDEN",
             root / "odd" / "read-only.txt": b"not to be written",
             root / "odd" / "names that only the long form reaches" / "aux.c": b"no device",
             root / "odd" / "names that only the long form reaches" / "nul": b"no device either",
             root / "odd" / "names that only the long form reaches" / "dot." / "name.": b"a dot",
             root / "odd" / "names that only the long form reaches" / "name": b"no dot",
             root / "odd" / "names that only the long form reaches" / "name ": b"a blank",
             deep / "at the bottom.txt": b"found"}
    for number, (path, data) in enumerate(files.items()):
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(data)
        os.utime(path, ns=(1_510_000_000_765_432_100 + number, 1_500_000_000_123_456_700 + number * 10**9))
    (root / "odd" / "read-only.txt").chmod(0o444)
    (root / "odd" / "empty folder" / "in it").mkdir(parents=True)
    for folder in (root / "odd" / "empty folder", root / "odd"):
        os.utime(folder, ns=(1_520_000_000_000_000_100, 1_490_000_000_999_999_900))


def snapshot(root):
    """{path below root: Entry}, the root itself as "". Reading changes no access time."""
    entries = {}

    def look(path, name):
        status = os.lstat(path)
        times = (status.st_mtime_ns // 100, status.st_atime_ns // 100)
        if stat.S_ISDIR(status.st_mode):
            entries[name] = Entry("folder", None, None, None, *times)
            descriptor = os.open(path, os.O_RDONLY | os.O_NOATIME)
            try:
                for leaf in os.listdir(descriptor):
                    look(os.path.join(path, leaf), os.path.join(name, leaf))
            finally:
                os.close(descriptor)
        elif stat.S_ISREG(status.st_mode):
            with open(path, "rb", opener=lambda p, flags: os.open(p, flags | os.O_NOATIME)) as file:
                digest = hashlib.file_digest(file, "sha256").hexdigest()
            entries[name] = Entry("file", not status.st_mode & 0o222, status.st_size, digest, *times)
        else:
            entries[name] = Entry("link" if stat.S_ISLNK(status.st_mode) else "other", *[None] * 5)

    look(os.fspath(root), "")
    return entries


def differences(expected, found, times=True):
    """Lines that say how the second snapshot differs from the first; empty when they are equal.

    The root's own times count only when both have them set by a restore: leave "" out otherwise."""
    lines = [f"{path!r} is missing" for path in sorted(expected.keys() - found.keys())]
    lines += [f"{path!r} is too much" for path in sorted(found.keys() - expected.keys())]
    for path in sorted(expected.keys() & found.keys()):
        for field, was, now in zip(Entry._fields, expected[path], found[path]):
            if was != now and (times or field not in ("written", "accessed")):
                lines.append(f"{path!r}: {field} is {now}, not {was}")
    return lines


def held(first, second):
    """What a second backup holds, of snapshots taken before both: a file that it has not sent again
    comes with the access time that it had before the first."""
    def unchanged(path, entry):
        return entry.kind == "file" and path in first and entry._replace(accessed=None) == first[path]._replace(accessed=None)

    return {p: first[p] if unchanged(p, e) else e for p, e in second.items()}


def below(entries, *names):
    """Those entries that are one of the names or lie below one."""
    return {p: e for p, e in entries.items() if any(p == n or p.startswith(n + "/") for n in names)}
