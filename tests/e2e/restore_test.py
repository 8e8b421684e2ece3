"""Restores without network trouble: what comes back and where, what stays, what never gets out."""

import json
import os
import shutil
import unittest

import trees
from machine import windows_path
from system import System, SystemTest, make_tree, noise, write

SOME_FAILED = 3


class RestoreTest(SystemTest):
    def backed_up(self, name):
        """A system with a backup of a tree, and what the tree looks like."""
        system = System(self, name)
        make_tree(system.tree)
        trees.make_odd_files(system.tree)
        expected = trees.snapshot(system.tree)
        system.backup()
        return system, expected

    def test_everything_comes_back(self):
        system, expected = self.backed_up("whole")
        shutil.rmtree(system.tree)
        system.restore()
        self.assertRestored(system, expected, system.tree)

        target = system.folder / "elsewhere"
        system.restore("--to", windows_path(target).replace("\\", "/"))
        self.assertRestored(system, expected, target / "Z" / str(system.tree).lstrip("/"))
        # A second time over what is there, with the same outcome.
        for _ in range(2):
            system.restore(*system.to(system.folder / "third", "--conflict", "overwrite"))
            self.assertRestored(system, expected, system.folder / "third")

    def test_parts_come_back(self):
        system, expected = self.backed_up("parts")
        names = ("text.txt", "odd/empty folder", "sizes", "odd names/日本語/пример.dat")
        target = system.folder / "parts"
        # Windows knows no case: a path that was typed in another one is found on the disk.
        system.restore(*(windows_path(system.tree / n) for n in names[1:]), windows_path(system.tree / "TEXT.txt"),
                       *system.to(target))
        found = trees.snapshot(target)
        # Folders that were only needed on the way have times of their own.
        self.assertEqual(trees.differences(trees.below(expected, *names), trees.below(found, *names)), [])
        self.assertEqual({p for p in found if p not in trees.below(found, *names)}, {"", "odd", "odd names", "odd names/日本語"})

        other = system.folder / "nothing"
        run = system.restore(windows_path(system.tree / "no such file"), windows_path(system.tree / "text.tx"),
                             *system.to(other), code=None)
        self.assertNotEqual(run.wait(0), 0)
        self.assertIn("no such file", run.err)
        self.assertFalse(other.exists() and any(other.iterdir()))

    def test_conflict_rules(self):
        system = System(self, "conflict")
        write(system.tree / "a.txt", b"backed up")
        write(system.tree / "new.txt", b"new")
        write(system.tree / "folder" / "b.txt", b"b")
        system.backup()
        there = {"a.txt": b"was there", "a.txt.0": b"was there too", "folder/b.txt": b"was there"}
        # rule, what it makes of what was there
        table = [("keep", {"new.txt": b"new"}),
                 ("rename", {"new.txt": b"new", "a.txt.0.1": b"backed up", "folder/b.txt.0": b"b"}),
                 ("overwrite", {"new.txt": b"new", "a.txt": b"backed up", "folder/b.txt": b"b"})]
        for rule, made in table:
            with self.subTest(rule):
                target = system.folder / rule
                for name, data in there.items():
                    write(target / name, data)
                # READONLY does not save a file that is to be replaced.
                (target / "a.txt").chmod(0o444)
                # Nor may it become readable to everybody; more than that Wine does not keep.
                (target / "folder" / "b.txt").chmod(0o600)
                run = system.restore(*system.to(target, "--conflict", rule), "--json")
                summary = json.loads(run.out.splitlines()[-1])["summary"]
                kept = 2 if rule == "keep" else 0
                self.assertEqual((summary["files"], summary["keptFiles"]), (3 - kept, kept))
                self.assertEqual((summary["bytes"], summary["keptBytes"]), (3, 10) if kept else (13, 0))
                self.assertEqual((target / "folder" / "b.txt").stat().st_mode & 0o007, 0)
                found = {str(p.relative_to(target)): p.read_bytes() for p in target.rglob("*") if p.is_file()}
                self.assertEqual(found, there | made)

    def test_a_spoiled_file_in_its_place_is_not_called_restored(self):
        system = System(self, "spoiled")
        spoiled = system.tree / "a.txt"
        write(spoiled, b"backed up")
        system.backup()
        write(spoiled, b"spoiled")
        run = system.restore()
        self.assertIn("Warning: What is there is kept as it is: --conflict overwrite replaces it", run.out)
        self.assertIn(": 0 files restored (0 B,", run.out)
        self.assertIn("1 file (9 B) kept as it was: --conflict overwrite replaces it.", run.out)
        self.assertEqual(spoiled.read_bytes(), b"spoiled")
        system.restore("--conflict", "overwrite")
        self.assertEqual(spoiled.read_bytes(), b"backed up")

    def test_links_above_a_source_are_the_users_own_way(self):
        system = System(self, "own way")
        outside, real = system.folder / "outside", system.folder / "real"
        outside.mkdir()
        names = ("docs/a.txt", "docs/sub/b.txt")
        for name in names:
            write(real / name, name.encode())
        (system.folder / "link").symlink_to(real)
        source = system.folder / "link" / "docs"
        system.backup(source=source)
        # All of it, or a part that is named.
        for paths in ([], [windows_path(source)]):
            shutil.rmtree(real / "docs")
            system.restore(*paths)
            self.assertEqual([(real / name).read_bytes() for name in names], [name.encode() for name in names])
        # Below the source somebody else may have put them.
        shutil.rmtree(real / "docs" / "sub")
        (real / "docs" / "sub").symlink_to(outside)
        run = system.restore("--conflict", "overwrite", code=SOME_FAILED)
        self.assertIn("b.txt", run.err)
        self.assertEqual(os.listdir(outside), [])

    def test_a_folder_in_a_files_place_and_the_reverse(self):
        system = System(self, "places")
        for name in ("file.txt", "folder/in it.txt", "other.txt"):
            write(system.tree / name, name.encode())
        system.backup()
        target = system.folder / "target"
        write(target / "file.txt" / "kept", b"kept")
        write(target / "folder", b"a file")
        run = system.restore(*system.to(target, "--conflict", "overwrite"), code=SOME_FAILED)
        self.assertIn("file.txt", run.err)
        self.assertIn("in it.txt", run.err)
        found = {str(p.relative_to(target)): p.read_bytes() for p in target.rglob("*") if p.is_file()}
        self.assertEqual(found, {"file.txt/kept": b"kept", "folder": b"a file", "other.txt": b"other.txt"})

    def test_no_path_leaves_the_target(self):
        system = System(self, "escape")
        tree, marker = windows_path(system.tree), b"this must stay where it belongs"
        # name of a file, and what the server is made to call it
        lies = {"up": tree + r"\..\escaped", "up 2": tree + r"\sub\..\..\escaped", "up 3": r"C:\..\..\escaped",
                "slash": tree + r"\sub/../../escaped", "slash 2": tree + "/../escaped",
                "stream": tree + r"\good:stream", "pipe": r"\\localhost\pipe\escaped",
                "drive": "Z:escaped", "drive 2": "C:escaped", "bare": "escaped", "root": r"\escaped",
                "share": r"\\localhost\c$\escaped", "raw": "\\\\?\\" + tree + r"\escaped",
                "link": tree + r"\link\escaped", "link 2": tree + r"\sub\link\deep\escaped",
                "dots": tree + r"\.. \escaped", "dots 2": tree + r"\...", "empty": tree + r"\sub\\escaped"}
        for name in lies:
            write(system.tree / name, marker)
        write(system.tree / "good", b"good")
        system.backup()
        for name, lie in lies.items():
            changed = system.server.change_catalog("UPDATE files SET path = ?, seal = NULL WHERE path = ?", lie.encode(),
                                                   windows_path(system.tree / name).encode())
            self.assertEqual(changed, 1)
        outside = system.folder / "outside"
        (outside / "deep").mkdir(parents=True)
        before = self.marked(system, marker)

        def refused(target, listed, *options):
            """Links lie on the way below `target`; every lie among the listed is refused."""
            for link in (target / "link", target / "sub" / "link"):
                link.parent.mkdir(parents=True, exist_ok=True)
                link.symlink_to(outside)
            run = system.restore("--conflict", "overwrite", *options, code=SOME_FAILED)
            job, = (j for j in system.machine.listing("jobs") if j["type"] == "restore" and j["id"] not in known)
            known.add(job["id"])
            failed = system.machine.listing("show", job["id"])["runs"][0]["failed"]
            # Lists show paths with backslashes, whatever was in them.
            self.assertEqual(sorted(f["path"] for f in failed), sorted(lie.replace("/", "\\") for lie in listed))
            for failure in failed:
                self.assertIn(failure["path"], run.err)
                self.assertTrue(failure["code"] and failure["reason"], failure)
            self.assertEqual(self.marked(system, marker), before)
            self.assertEqual(sorted(os.listdir(target)), ["good", "link", "sub"])
            self.assertEqual((os.listdir(outside), os.listdir(outside / "deep")), (["deep"], []))

        known = set()
        below = [lie for lie in lies.values() if lie.startswith(tree + "\\")]
        refused(system.folder / "target", below, *system.to(system.folder / "target"))
        whole = system.folder / "whole"
        refused(whole / "Z" / str(system.tree).lstrip("/"), lies.values(), "--to", windows_path(whole))

    def marked(self, system, marker):
        """Files with that content, in the test's folder and on the machine's drive."""
        found = set()
        for folder, names, leaves in os.walk(system.folder):
            if folder.endswith("drive_c"):
                names.remove("windows")
            for path in (system.folder / folder / leaf for leaf in leaves):
                if not path.is_symlink() and path.stat().st_size == len(marker) and path.read_bytes() == marker:
                    found.add(path)
        return found


if __name__ == "__main__":
    unittest.main()
