"""Backups in a folder: no server, no login, the same outcome whatever happens on the way."""

import base64
import json
import pathlib
import shutil
import signal
import subprocess
import sys
import unittest

import trees
from machine import windows_path
from system import SystemTest, World, make_tree, noise, until, write

PAUSED, SOME_FAILED, FAILED = 4, 3, 1
PIECE = 6 * 2**20


class LocalSystem(World):
    """A machine, a tree to back up and a folder for backups."""

    def __init__(self, test, name):
        super().__init__(test, name)
        self.location = self.folder / "backups"
        self.location.mkdir()
        self.local = ("--local", windows_path(self.location))
        self.machine = self.add_machine("first")

    def stored(self):
        """Bytes of packages in the folder."""
        return sum(p.stat().st_size for p in self.location.rglob("packages*") if p.is_file())


class LocalTest(SystemTest):
    def test_backups_and_a_restore_on_another_machine(self):
        system = LocalSystem(self, "local")
        machine = system.machine
        make_tree(system.tree)
        trees.make_odd_files(system.tree)
        expected = trees.snapshot(system.tree)
        machine.agent("backup", windows_path(system.tree), *system.local)
        first = system.stored()
        self.assertGreater(first, sum(e.size for e in expected.values() if e.size) // 2)
        machine.agent("start", system.job("backup"))
        self.assertEqual(system.stored(), first, "an unchanged run stored data")
        write(system.tree / "text.txt", b"shorter")
        changed = trees.held(expected, trees.snapshot(system.tree))
        machine.agent("start", system.job("backup"))
        self.assertTrue(0 < system.stored() - first < 1000)
        runs = machine.listing("instances", *system.local)
        self.assertEqual([(r["machine"], r["state"]) for r in runs], [("first", "completed")] * 3)

        # Whatever becomes of the first machine, the folder and the recovery file are enough.
        second, file = system.add_machine("second"), system.folder / "recovery file"
        machine.agent("key", "export", windows_path(file), "--passphrase-stdin", stdin="open\n")
        restore = lambda target, instance: (
            "restore", "--machine", "first", *system.local, *system.to(system.folder / target), instance)
        refused = second.agent(*restore("refused", "latest"), code=FAILED)
        self.assertIn("agent key import", refused.err)
        self.assertFalse((system.folder / "refused").exists())
        second.agent("key", "import", windows_path(file), "--passphrase-stdin", stdin="open\n")
        second.agent(*restore("latest", "latest"))
        self.assertRestored(system, changed, system.folder / "latest")
        second.agent(*restore("oldest", runs[0]["jobinstanceid"]))
        self.assertRestored(system, expected, system.folder / "oldest")

    def test_links_are_left_out_below_a_source_and_followed_as_one(self):
        system = LocalSystem(self, "links")
        machine, link = system.machine, system.tree / "link"
        write(system.tree / "a.txt", b"a")
        write(system.folder / "elsewhere" / "sub" / "behind.txt", b"behind the link")
        link.symlink_to(system.folder / "elsewhere")
        write(system.tree / "what:now.txt", b"a name that Windows cannot make")
        held = lambda: {f["path"]: f["size"] for f in machine.listing("files", "latest", "--job", job, *system.local)}

        run = machine.agent("backup", windows_path(system.tree), *system.local)
        self.assertIn("left out: " + windows_path(link) + ": a link to another place", run.out)
        self.assertIn(", 1 left out.", run.out)
        self.assertIn(windows_path(system.tree / "what:now.txt") + ": it is backed up, but no restore can", run.out)
        (system.tree / "what:now.txt").unlink()
        job = system.job()
        self.assertEqual([e["path"] for e in machine.listing("show", job)["runs"][0]["leftOut"]], [windows_path(link)])
        self.assertEqual(set(held()), {windows_path(p) for p in (system.tree, link, system.tree / "a.txt", system.tree / "what:now.txt")})

        # Named beside the folder that it lies in, it is a source of its own.
        run = machine.agent("backup", windows_path(system.tree), windows_path(link), "--name", "both", *system.local)
        self.assertNotIn("left out", run.out)
        job = "both"
        self.assertEqual(held()[windows_path(link / "sub" / "behind.txt")], len(b"behind the link"))
        self.assertEqual(machine.listing("show", job)["source"], [windows_path(system.tree), windows_path(link)])
        target = system.folder / "restored"
        machine.agent("restore", "latest", "--job", job, *system.local, *system.to(target))
        self.assertEqual((target / "link" / "sub" / "behind.txt").read_bytes(), b"behind the link")
        self.assertFalse((target / "link").is_symlink())

    def test_no_link_in_a_jobs_folder_costs_what_it_leads_to(self):
        """Only Windows takes the link itself away."""
        system = LocalSystem(self, "own link")
        machine, kept = system.machine, system.folder / "elsewhere" / "sub" / "kept.txt"
        write(system.tree / "a.txt", b"a")
        write(kept, b"somebody's")
        machine.agent("backup", windows_path(system.tree), *system.local)
        packages = machine.job_folder(system.job()) / "tmp"
        shutil.rmtree(packages, ignore_errors=True)
        packages.symlink_to(kept.parent.parent)
        machine.agent("start", system.job())
        self.assertTrue(kept.exists(), "a run makes room for its packages")
        (packages.parent / "deeper").mkdir()
        (packages.parent / "deeper" / "link").symlink_to(kept.parent)
        machine.start("remove", system.job()).wait(60)
        self.assertTrue(kept.exists(), "the job is removed")
        self.assertFalse((packages.parent / "def").exists())

    def test_the_agents_own_folder_is_backed_up_in_part_and_never_restored_into(self):
        system = LocalSystem(self, "own")
        machine = system.machine
        machine.agent("exclude", "add", r"C:\somewhere")
        # Through another drive, as a volume with two names has it.
        data = windows_path(machine.data)
        run = machine.agent("backup", windows_path(machine.data.parent), *system.local)
        self.assertRegex(run.out, r"left out: C:\\ProgramData\\trevold\\Dorvo: of the agent's own folder")
        held = [f["path"] for f in machine.listing("files", "latest", *system.local)]
        job = data + "\\job\\" + system.job()
        self.assertEqual(sorted(held), sorted([windows_path(machine.data.parent), data, data + r"\exclusions",
                                               data + r"\job", job, job + r"\def"]))
        before = (machine.data / "exclusions").read_bytes()
        machine.agent("exclude", "add", r"C:\elsewhere")
        run = machine.agent("restore", "latest", *system.local, "--conflict", "overwrite", code=SOME_FAILED)
        self.assertIn("nothing is restored into the agent's own folder", run.err)
        self.assertNotEqual((machine.data / "exclusions").read_bytes(), before)
        machine.agent("restore", "latest", *system.local, "--to", windows_path(system.folder / "to"))
        self.assertEqual([p.read_bytes() for p in (system.folder / "to").rglob("exclusions")], [before])

    def test_a_script_reads_it_without_us(self):
        """What docs/read-local.py does is all that the format asks for; it shares no code with the project."""
        system = LocalSystem(self, "script")
        make_tree(system.tree)
        machine, file = system.machine, system.folder / "recovery file"
        machine.agent("backup", windows_path(system.tree), *system.local, "--no-compress")
        write(system.tree / "later.txt", b"compressible " * 1000)
        machine.agent("backup", windows_path(system.tree), *system.local)
        machine.agent("key", "export", windows_path(file), "--passphrase-stdin", stdin="open\n")
        expected = trees.snapshot(system.tree)
        run = machine.listing("instances", *system.local)[-1]
        instance = system.location / run["machine"] / run["jobdefinitionid"] / run["jobinstanceid"]

        def read(target, passphrase):
            script = pathlib.Path(__file__).parents[2] / "docs" / "read-local.py"
            return subprocess.run([sys.executable, "-I", script, instance, file, system.folder / target],
                                  input=passphrase, capture_output=True, text=True, timeout=300)

        self.assertIn("passphrase", read("refused", "shut\n").stderr)
        sealed = json.loads(file.read_text("utf-8"))
        secrets = bytearray(base64.b64decode(sealed["sealed"]))
        secrets[-17] ^= 1  # of the user's name, which opens nothing
        whole = file.read_text("utf-8")
        file.write_text(json.dumps(sealed | {"sealed": base64.b64encode(secrets).decode()}), "utf-8")
        self.assertIn("damaged", read("refused", "open\n").stderr)
        self.assertFalse((system.folder / "refused").exists())
        file.write_text(whole, "utf-8")
        result = read("read", "open\n")
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        restored = system.folder / "read" / windows_path(system.tree).replace(":", "").replace("\\", "/")
        held = lambda tree: {path: (e.kind, e.size, e.digest, e.kind == "folder" or e.written) for path, e in tree.items()}
        self.assertEqual(held(trees.snapshot(restored)), held(expected))
        # What it cannot bring back it names, and goes on.
        packages = instance / "packages"
        packages.write_bytes(bytes([packages.read_bytes()[0] ^ 1]) + packages.read_bytes()[1:])
        result = read("damaged", "open\n")
        self.assertEqual((result.returncode, result.stderr.count("\n")), (1, 1), result.stderr)
        self.assertIn("package is damaged", result.stderr)

    def broken_off(self, name, breaking_off):
        """A backup and its restore; `breaking_off(system, run, kind)` strikes each in its middle."""
        system = LocalSystem(self, name)
        for number in range(8):
            write(system.tree / f"{number}.bin", noise(PIECE, number))
        expected = trees.snapshot(system.tree)
        run = system.machine.start("backup", windows_path(system.tree), *system.local)
        until(lambda: system.stored() > PIECE, run)
        run.signal(signal.SIGSTOP)
        self.assertLess(system.stored(), 8 * PIECE)
        breaking_off(system, run, "backup")
        target = system.folder / "restored"
        run = system.machine.start("restore", "latest", *system.local, *system.to(target))
        until(lambda: (target / "1.bin").exists(), run)
        run.signal(signal.SIGSTOP)
        self.assertFalse((target / "7.bin").exists())
        breaking_off(system, run, "restore")
        self.assertRestored(system, expected, target)

    def test_killed_in_the_middle(self):
        def kill(system, run, kind):
            run.kill()
            system.machine.agent("resume", system.job(kind))

        self.broken_off("killed", kill)

    def test_the_folder_vanishes_and_comes_back(self):
        """A pulled disk, a share that is away: the run goes on by itself, or by hand."""
        def vanish(system, run, kind):
            away = system.folder / "away"
            if kind == "restore":
                run.kill()  # here what is open stays readable
            system.location.rename(away)
            if kind == "restore":
                run = system.machine.start("resume", system.job(kind))
            run.signal(signal.SIGCONT)
            run.until_said("paused")
            away.rename(system.location)
            if kind == "restore":
                run.signal(signal.SIGINT)
                self.assertEqual(run.wait(60), PAUSED, run.out + run.err)
                run = system.machine.start("resume", system.job(kind))
            self.assertEqual(run.wait(300), 0, run.out + run.err)

        self.broken_off("vanished", vanish)

if __name__ == "__main__":
    unittest.main()
