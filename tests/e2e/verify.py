"""Compares what a server holds of a backup with the tree that was backed up.

Nothing here shares code with the project: the server's data folder is read with SQLite, packages
are opened by package_check (OpenSSL and zlib).
"""

import os
import pathlib
import sqlite3
import struct
import subprocess

from layout import NATIVE_BIN
from machine import unix_path, windows_path

EPOCH_TICKS = 116444736000000000  # 1970 in ticks of 100 ns since 1601
AWAITED, FILE, FOLDER = 0, 1, 2
COMPLETED = 2


class Stored:
    """One file or folder of a stored backup."""

    def __init__(self, data, row):
        path, self.kind, attributes, self.compressed, self.package_size, container, self.offset = row
        self.path = path.decode()
        numbers = struct.unpack("<9I", attributes) if attributes else (0,) * 9
        self.size = numbers[1] << 32 | numbers[2]
        self.mtime = numbers[7] << 32 | numbers[8]
        self.package = pathlib.Path(data) / "packages" / f"{container & 255:02x}" / f"{container}.pkg"


class Instance:
    def __init__(self, data, name):
        """Reads a backup of a running or stopped server; KeyError when there is none of the name."""
        database = sqlite3.connect(f"file:{data}/catalog.db?mode=ro", uri=True)
        try:
            row = database.execute("SELECT id, state FROM instances WHERE name = ?", (name,)).fetchone()
            if not row:
                raise KeyError(name)
            self.state = row[1]
            rows = database.execute("SELECT path, kind, attributes, compress, size, container, offset"
                                    " FROM files WHERE instance = ? ORDER BY path", (row[0],))
            self.entries = [Stored(data, r) for r in rows]
            self.errors = [r[0].decode() for r in
                           database.execute("SELECT path FROM errors WHERE instance = ?", (row[0],))]
        finally:
            database.close()


def ticks(status):
    return status.st_mtime_ns // 100 + EPOCH_TICKS


def tree(root):
    """(folders, files) below a folder, as Windows paths with their status."""
    folders, files = {}, {}
    for folder, names, leaves in os.walk(root):
        for name in names:
            path = os.path.join(folder, name)
            folders[windows_path(path)] = os.stat(path)
        for name in leaves:
            path = os.path.join(folder, name)
            files[windows_path(path)] = os.stat(path)
    return folders, files


def differences(data, instance_name, root, key, iv, failed=(), left_out=lambda path: False):
    """What differs between a completed backup and the tree below `root`, one line each.

    `failed` are files (of this machine) that the backup must hold an error for instead of content;
    `left_out` says which files of the tree the backup must not hold."""
    instance, found = Instance(data, instance_name), []
    if instance.state != COMPLETED:
        found.append(f"the backup's state is {instance.state}")
    folders, files = tree(root)
    failed = {windows_path(p) for p in failed}
    files = {p: s for p, s in files.items() if p not in failed and not left_out(p)}
    stored_folders = {e.path for e in instance.entries if e.kind == FOLDER} - {windows_path(root)}
    stored = {e.path: e for e in instance.entries if e.kind == FILE}
    found += [f"{e.path} never came" for e in instance.entries if e.kind == AWAITED and e.path not in failed]
    found += [f"{p} is on the error list" for p in instance.errors if p not in failed]
    found += [f"{p} is not on the error list" for p in failed if p not in instance.errors]
    for what, there, held in (("folder", folders.keys(), stored_folders), ("file", files.keys(), stored.keys())):
        found += [f"{what} {p} is missing" for p in sorted(there - held)]
        found += [f"{what} {p} is too much" for p in sorted(held - there)]

    packages = []
    for path in files.keys() & stored.keys():
        entry, status = stored[path], files[path]
        if entry.size != status.st_size:
            found.append(f"{path}: its size is {entry.size}, not {status.st_size}")
        if entry.mtime != ticks(status):
            found.append(f"{path}: its time is {entry.mtime}, not {ticks(status)}")
        packages.append(f"{entry.compressed}\t{entry.package}\t{entry.offset}\t{entry.package_size}\t{unix_path(path)}")
    return found + check_packages(packages, key, iv)


def check_packages(lines, key, iv):
    """Opens and compares packages; a line for each that differs from its source."""
    check = subprocess.run([NATIVE_BIN / "package_check", key.hex(), iv.hex()], input="\n".join(lines),
                           capture_output=True, text=True, check=False)
    if check.returncode not in (0, 1) or check.stderr:
        raise AssertionError(f"package_check failed: {check.stderr}")
    return check.stdout.splitlines()
