#!/usr/bin/env python3
"""./dev demo [DIR]: real backups of a real tree to a real server, and the way back.

Proves every stored byte, wipes the tree, restores it, and does so once more on a second, empty
machine with the key from a recovery file. Works on a copy of DIR (default: a few thousand headers
and sources that setup installs) and on files with odd names; all is gone when it ends.
"""

import argparse
import contextlib
import pathlib
import shutil
import sys

import trees
import verify
from machine import windows_path
from server import Server
from system import World

USER, PASSWORD = "demo", "a password for demonstrations"
PASSPHRASE = "a passphrase for demonstrations"
DEFAULT = [f"/usr/include/boost/{name}" for name in ("asio", "beast", "fusion", "json", "spirit")]
DEFAULT += ["/usr/include/openssl", "/usr/src/googletest"]


class Failed(Exception):
    """The demonstration shows something else than it should."""


def say(text):
    print(f"\n\033[1m{text}\033[0m" if sys.stdout.isatty() else f"\n{text}", flush=True)


def copy(sources, target):
    for source in sources:
        # Only what a Windows machine would have: files and folders, no links to follow.
        shutil.copytree(source, target / pathlib.Path(source).name if len(sources) > 1 else target, dirs_exist_ok=True,
                        ignore=lambda folder, names: [n for n in names if pathlib.Path(folder, n).is_symlink()
                                                      or not (pathlib.Path(folder, n).is_dir()
                                                              or pathlib.Path(folder, n).is_file())])


def echo(text):
    print("".join(f"  {line}\n" for line in text.splitlines()), end="", flush=True)


class Ending(contextlib.ExitStack):
    """Ends what was started, as a test does."""

    addCleanup = contextlib.ExitStack.callback


class Demo(World):
    def __init__(self, ending, sources):
        super().__init__(ending, "demo")
        copy(sources, self.tree)
        trees.make_odd_files(self.tree)
        self.files = [p for p in self.tree.rglob("*") if p.is_file()]
        size = sum(p.stat().st_size for p in self.files)
        print(f"  {len(self.files)} files, {size / 1e6:.1f} MB, copied from {', '.join(map(str, sources))}")
        self.server = Server(self.folder / "server")
        self.server.add_user(USER, PASSWORD)
        self.server.start()
        ending.callback(self.server.stop)
        print(f"  storage-server listens on 127.0.0.1:{self.server.port}, data in {self.server.data}")
        self.machine = self.add_machine("first")

    def add_machine(self, name):
        machine = super().add_machine(name)
        machine.connect(self.server.address, USER, PASSWORD)
        print(f"  agent.exe is logged in as {USER} on the machine '{name}'")
        return machine

    def transfer(self, machine, endpoint, *arguments):
        """Runs a job and counts the blocks that it sent or fetched by the server's own log."""
        before = self.server.log()
        # On a terminal the agent draws its own live line.
        run = machine.start(*arguments, echo=echo, terminal=sys.stdout.isatty())
        if (code := run.wait(4 * 3600)) != 0:
            raise Failed(f"the agent ended with {code}")
        lines = self.server.log()[len(before):].splitlines()
        blocks = sum(endpoint in line for line in lines)
        print(f"  took {run.seconds:.1f} s, peak memory {run.peak_kib / 1024:.0f} MiB, {blocks} blocks")
        return blocks

    def back_up(self):
        return self.transfer(self.machine, "uploadblock.php", "backup", windows_path(self.tree))

    def restore(self, machine, target, expected, *options):
        self.transfer(machine, "DownloadFileBlock.php", "restore", self.instance(), *options)
        found = trees.differences(expected, trees.snapshot(target))
        if found:
            raise Failed(f"{target} is not what was backed up:\n" + "\n".join(found[:20]))
        print(f"  {len(expected)} files and folders compared: names, bytes, read-only marks and times are as they were")

    def instance(self):
        return self.machine.listing("instances")[-1]["jobinstanceid"]

    def prove(self):
        found = verify.differences(self.server.data, self.instance(), self.tree, *self.machine.user_key(USER))
        if found:
            raise Failed("the server does not hold what is on disk:\n" + "\n".join(found[:20]))
        print(f"  {len(self.files)} packages decrypted, inflated and compared: the server holds what is on disk")

    def run(self):
        before = trees.snapshot(self.tree)
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
        expected = trees.held(before, trees.snapshot(self.tree))
        say(f"Third backup: only {changed.relative_to(self.tree)} has changed, one file is sent")
        if (blocks := self.back_up()) < 1 or blocks > 1 + changed.stat().st_size // 131072 + 1:
            raise Failed(f"{blocks} blocks were sent")
        self.prove()

        say("The tree is wiped, and comes back to its place")
        shutil.rmtree(self.tree)
        self.restore(self.machine, self.tree, expected)

        say("A new machine, with nothing but the account and the recovery file")
        recovery, copied = self.folder / "recovery file", self.folder / "copied"
        options = ("key", "export", windows_path(recovery), "--passphrase-stdin")
        self.machine.agent(*options, stdin=PASSPHRASE + "\n")
        second = self.add_machine("second")
        second.agent("key", "import", windows_path(recovery), "--passphrase-stdin", stdin=PASSPHRASE + "\n")
        self.restore(second, copied, expected, "--machine", "first", *self.to(copied))


def main():
    parser = argparse.ArgumentParser(prog="dev demo", description=__doc__.split("\n\n")[0])
    parser.add_argument("dir", nargs="?", metavar="DIR", type=pathlib.Path, help="the folder to back up")
    options = parser.parse_args()
    if options.dir and not options.dir.is_dir():
        parser.error(f"{options.dir} is not a folder")
    say("The ground")
    try:
        with Ending() as ending:
            Demo(ending, [options.dir.resolve()] if options.dir else DEFAULT).run()
    except (Failed, AssertionError) as error:
        print(f"\nDEMO FAILED: {error}", file=sys.stderr)
        return 1
    say("Demo passed: three backups, proven byte for byte, and two restores of what was backed up.")
    return 0


if __name__ == "__main__":
    sys.exit(main())
