"""Compares what a server holds of a backup with the tree that was backed up.

Nothing here shares code with the project: the server's data folder is read with SQLite, packages
are opened with OpenSSL and zlib.
"""

import ctypes
import ctypes.util
import os
import pathlib
import sqlite3
import struct
import zlib

from machine import unix_path, windows_path

EPOCH_TICKS = 116444736000000000  # 1970 in ticks of 100 ns since 1601
AWAITED, FILE, FOLDER = 0, 1, 2
COMPLETED = 2
PIECE = 1 << 16
CRYPTO = ctypes.CDLL(ctypes.util.find_library("crypto"))
CRYPTO.EVP_CIPHER_CTX_new.restype = CRYPTO.EVP_aes_128_cbc.restype = ctypes.c_void_p


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
        packages.append((entry.compressed, entry.package, entry.offset, entry.package_size, unix_path(path)))
    return found + check_packages(packages, key, iv)


def opened(file, size, key, iv):
    """The next `size` bytes of a file, decrypted (AES-128-CBC), in pieces."""
    cipher = ctypes.c_void_p(CRYPTO.EVP_CIPHER_CTX_new())
    try:
        CRYPTO.EVP_DecryptInit_ex(cipher, ctypes.c_void_p(CRYPTO.EVP_aes_128_cbc()), None, key, iv)
        plain, length = ctypes.create_string_buffer(PIECE + 32), ctypes.c_int()
        while size:
            if not (sealed := file.read(min(size, PIECE))):
                raise ValueError("the package ends early")
            CRYPTO.EVP_DecryptUpdate(cipher, plain, ctypes.byref(length), sealed, len(sealed))
            yield plain.raw[:length.value]
            size -= len(sealed)
        if CRYPTO.EVP_DecryptFinal_ex(cipher, plain, ctypes.byref(length)) != 1:
            raise ValueError("it does not decrypt")
        yield plain.raw[:length.value]
    finally:
        CRYPTO.EVP_CIPHER_CTX_free(cipher)


def inflated(pieces):
    """Demands exactly one whole stream."""
    stream = zlib.decompressobj()
    for piece in pieces:
        yield stream.decompress(piece)
        if stream.unused_data:
            raise ValueError("bytes after the compressed stream")
    yield stream.flush()
    if not stream.eof:
        raise ValueError("no whole zlib stream")


def compare(package, key, iv):
    """Opens a package, (compressed, the file that holds it, offset and size there, source file)."""
    compressed, container, offset, size, source = package
    with open(container, "rb") as file, open(source, "rb") as expected:
        file.seek(offset)
        pieces = opened(file, size, key, iv)
        for piece in inflated(pieces) if compressed else pieces:
            if expected.read(len(piece)) != piece:
                raise ValueError(f"it differs before byte {expected.tell()}")
        if expected.read(1):
            raise ValueError("it is shorter than its source")


def check_packages(packages, key, iv):
    """A line for each that differs from its source."""
    found = []
    for package in packages:
        try:
            compare(package, key, iv)
        except (OSError, ValueError, zlib.error) as error:
            found.append(f"{package[-1]}: {error}")
    return found
