#!/usr/bin/env python3
"""./dev demo [DIR]: real backups of a real tree to a real server, and a proof of every stored byte.

Works on a copy of DIR (default: a few thousand headers and sources that setup installs), so that it
can change a file; everything it makes is gone when it ends.
"""

import argparse
import contextlib
import pathlib
import shutil
import sys
import tempfile
import time

import verify
from layout import BUILD
from machine import Machine, windows_path
from server import Server

USER, PASSWORD = "demo", "a password for demonstrations"
DEFAULT = [f"/usr/include/boost/{name}" for name in ("asio", "beast", "fusion", "json", "spirit")]
DEFAULT += ["/usr/include/openssl", "/usr/src/googletest"]


class Failed(Exception):
    """The demonstration shows something else than it should."""


def say(text):
    print(f"\n\033[1m{text}\033[0m" if sys.stdout.isatty() else f"\n{text}", flush=True)


def copy(sources, target):
    for source in sources:
        # Only what a Windows machine would have: files and folders, no links to follow.
        shutil.copytree(source, target / pathlib.Path(source).name if len(sources) > 1 else target,
                        ignore=lambda folder, names: [n for n in names if pathlib.Path(folder, n).is_symlink()
                                                      or not (pathlib.Path(folder, n).is_dir()
                                                              or pathlib.Path(folder, n).is_file())])


def echo(text):
    print("".join(f"  {line}\n" for line in text.splitlines()), end="", flush=True)


class Demo:
    def __init__(self, folder, sources, ending):
        """What is started is stopped by the exit stack `ending`."""
        self.tree = folder / "source"
        copy(sources, self.tree)
        self.files = [p for p in self.tree.rglob("*") if p.is_file()]
        size = sum(p.stat().st_size for p in self.files)
        print(f"  {len(self.files)} files, {size / 1e6:.1f} MB, copied from {', '.join(map(str, sources))}")
        self.server = Server(folder / "server")
        self.server.add_user(USER, PASSWORD)
        self.server.start()
        ending.callback(self.server.stop)
        print(f"  storage-server listens on 127.0.0.1:{self.server.port}, data in {self.server.data}")
        self.machine = Machine(folder / "machine")
        ending.callback(self.machine.close)
        self.machine.connect(self.server.address, USER, PASSWORD)
        print(f"  agent.exe is logged in as {USER}")

    def back_up(self):
        """Runs the backup and counts what it sent by the server's own log: files and blocks."""
        before = self.server.log()
        started = time.monotonic()
        # On a terminal the agent draws its own live line.
        run = self.machine.start("backup", windows_path(self.tree), echo=echo, terminal=sys.stdout.isatty())
        if (code := run.wait(4 * 3600)) != 0:
            raise Failed(f"the agent ended with {code}")
        lines = self.server.log()[len(before):].splitlines()
        blocks = sum("uploadblock.php" in line for line in lines)
        print(f"  took {time.monotonic() - started:.1f} s, peak memory {run.peak_kib / 1024:.0f} MiB, sent {blocks} blocks")
        return blocks

    def prove(self):
        instances = self.machine.listing("instances")
        instance = max(instances, key=lambda i: i["starttime"])["jobinstanceid"]
        found = verify.differences(self.server.data, instance, self.tree, *self.machine.user_key(USER))
        if found:
            raise Failed("the server does not hold what is on disk:\n" + "\n".join(found[:20]))
        print(f"  {len(self.files)} packages decrypted, inflated and compared: the server holds what is on disk")

    def run(self):
        say("First backup: everything is sent")
        if self.back_up() < len(self.files):
            raise Failed("fewer blocks than files were sent")
        say("Proof")
        self.prove()
        say("Second backup: nothing has changed, no file data is sent")
        if (blocks := self.back_up()) != 0:
            raise Failed(f"{blocks} blocks were sent")
        self.prove()
        changed = self.files[len(self.files) // 2]
        with open(changed, "ab") as file:
            file.write(b"\none line more\n")
        say(f"Third backup: {changed.relative_to(self.tree)} has changed, one file is sent")
        if (blocks := self.back_up()) < 1 or blocks > 1 + changed.stat().st_size // 131072 + 1:
            raise Failed(f"{blocks} blocks were sent")
        self.prove()


def main():
    parser = argparse.ArgumentParser(prog="dev demo", description=__doc__.split("\n\n")[0])
    parser.add_argument("dir", nargs="?", metavar="DIR", type=pathlib.Path, help="the folder to back up")
    options = parser.parse_args()
    if options.dir and not options.dir.is_dir():
        parser.error(f"{options.dir} is not a folder")
    (BUILD / "e2e").mkdir(parents=True, exist_ok=True)
    say("The ground")
    try:
        with tempfile.TemporaryDirectory(prefix="demo-", dir=BUILD / "e2e") as folder, contextlib.ExitStack() as ending:
            Demo(pathlib.Path(folder), [options.dir.resolve()] if options.dir else DEFAULT, ending).run()
    except (Failed, AssertionError) as error:
        print(f"\nDEMO FAILED: {error}", file=sys.stderr)
        return 1
    say("Demo passed: three backups, each proven byte for byte.")
    return 0


if __name__ == "__main__":
    sys.exit(main())
