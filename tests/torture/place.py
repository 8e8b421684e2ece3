"""Where the data folder lies: a plain folder, or a file system of its own that can fill and lose power.

The file system is ext4 in an image file, mounted in a mount namespace of this process alone, so that
nothing of it stays behind however the torture ends. That needs root and a loop device.

A power cut is the kernel's own way to shut a file system off: from one moment on nothing more
reaches the image, what was only in the page cache is gone, and the next mount replays the journal as
after a real cut; the identity of the machine's boot changes. What it cannot show: a disk that
loses or reorders what it had confirmed.
"""

import ctypes
import errno
import fcntl
import os
import pathlib
import shutil
import struct
import subprocess
import uuid

CLONE_NEWNS = 0x20000
EXT4_IOC_SHUTDOWN = 0x8004587D
NO_LOG_FLUSH = 2
BOOT = "/proc/sys/kernel/random/boot_id"


def run(*command):
    done = subprocess.run([str(c) for c in command], capture_output=True, text=True)
    if done.returncode != 0:
        raise OSError(f"{' '.join(map(str, command))}: {done.stderr.strip()}")


class Folder:
    """Of a file system that others use too."""

    own = False
    powered = True
    boots = 0  # of the machine, as the service sees it

    def __init__(self, root):
        self.root = pathlib.Path(root)
        self.data = self.root / "data"
        self.root.mkdir(parents=True)

    def remove(self):
        shutil.rmtree(self.root, ignore_errors=True)


class Image(Folder):
    """A file system of its own, in which there is nothing but the data folder."""

    own = True

    def __init__(self, root, megabytes):
        super().__init__(root)
        self.image, self.mount, self.boot = self.root / "image", self.root / "mount", self.root / "boot"
        self.data, self.filler = self.mount / "data", self.mount / "filler"
        if ctypes.CDLL(None, use_errno=True).unshare(CLONE_NEWNS) != 0:
            raise OSError(f"no mount namespace: {os.strerror(ctypes.get_errno())}")
        self.mount.mkdir()
        run("mount", "--make-rprivate", "/")
        with open(self.image, "wb") as image:
            image.truncate(megabytes << 20)
        run("mkfs.ext4", "-q", "-F", "-m", "0", self.image)
        self._mount()
        self._next_boot()
        run("mount", "--bind", self.boot, BOOT)

    def _mount(self):
        run("mount", "-o", "loop", self.image, self.mount)

    def _next_boot(self):
        self.boots += 1
        self.boot.write_text(f"{uuid.uuid4()}\n")

    def cut_power(self):
        """At once, whoever is writing; restore_power() follows when nobody has files open there."""
        folder = os.open(self.mount, os.O_RDONLY)
        self.powered = False
        try:
            fcntl.ioctl(folder, EXT4_IOC_SHUTDOWN, struct.pack("I", NO_LOG_FLUSH))
        finally:
            os.close(folder)

    def restore_power(self):
        run("umount", self.mount)
        self._mount()
        self._next_boot()
        self.powered = True

    def fill(self, left):
        """Takes all room but so many bytes, of what the server leaves that writes at the same time."""
        with open(self.filler, "wb") as filler:
            while (room := self._room() - left) > 0:
                try:
                    return os.posix_fallocate(filler.fileno(), os.fstat(filler.fileno()).st_size, room)
                except OSError as error:
                    if error.errno != errno.ENOSPC:
                        raise

    def _room(self):
        free = os.statvfs(self.mount)
        return free.f_bavail * free.f_frsize

    def empty(self):
        self.filler.unlink(missing_ok=True)

    def remove(self):
        subprocess.run(["umount", BOOT], capture_output=True)
        subprocess.run(["umount", "-l", str(self.mount)], capture_output=True)
        super().remove()


def make(root, megabytes):
    """A file system of its own where that can be had, and why not."""
    try:
        return Image(root, megabytes), None
    except OSError as error:
        shutil.rmtree(root, ignore_errors=True)
        return Folder(root), str(error)
