"""Backups without any trouble: what is stored, what a later run sends, what the history says."""

import json
import os
import unittest

import trees
import verify
from machine import windows_path
from system import BLOCK, System, SystemTest, make_tree, noise, write


class BackupTest(SystemTest):
    def sent(self, system, since=0):
        """(source, block) of the blocks that were sent from the request of that number on."""
        return [(r.source, r.block) for r in system.proxy.requests("uploadblock") if r.number > since]

    def test_each_run_sends_what_changed(self):
        system = System(self, "increment")
        make_tree(system.tree)
        trees.make_odd_files(system.tree)
        system.backup()
        self.assertBackedUp(system)
        files = sum(len(names) for _, _, names in os.walk(system.tree))
        blocks = self.sent(system)
        self.assertEqual(len({source for source, _ in blocks}), files)
        # The large file is noise: its package has a little more than its own size.
        large = windows_path(system.tree / "z large.bin")
        self.assertEqual([b for s, b in blocks if s == large], [1, 2, 3, 4, 5, 6])
        self.assertEqual([b for s, b in blocks if s.endswith("text.txt")], [1])

        def change(change_tree, expected):
            mark = len(system.proxy.requests())
            change_tree()
            system.machine.agent("start", system.job())
            self.assertEqual({s for s, _ in self.sent(system, mark)}, {windows_path(system.tree / e) for e in expected})
            self.assertBackedUp(system)

        change(lambda: None, [])
        change(lambda: write(system.tree / "text.txt", b"shorter"), ["text.txt"])
        change(lambda: write(system.tree / "a new folder" / "new.bin", noise(BLOCK, 9)), ["a new folder/new.bin"])
        # An older file put in a file's place is a change too; what is gone is no longer held.
        change(lambda: write(system.tree / "text.txt", b"older", mtime=1_400_000_000_000_000_000), ["text.txt"])
        change(lambda: (system.tree / "sizes" / "0.bin").unlink(), [])

        # Every run is in the machine's history and in the server's list.
        summaries = [json.loads(p.read_text()) for p in (system.machine.job_folder(system.job()) / "hist").iterdir()
                     if not p.suffix]
        stored = system.machine.listing("instances")
        self.assertEqual(len(stored), 6)
        self.assertEqual({s["instanceId"] for s in summaries}, {i["jobinstanceid"] for i in stored})
        self.assertEqual({s["state"] for s in summaries + stored}, {"completed"})

    def test_filters_and_exclusions(self):
        system = System(self, "filter")
        make_tree(system.tree)
        write(system.tree / "kept" / "a.txt", b"kept")
        write(system.tree / "left out" / "b.txt", b"excluded by its folder")
        system.machine.agent("exclude", "add", windows_path(system.tree / "left out"))
        system.backup("--skip-ext", "bin,dat")
        found = system.differences(left_out=lambda path: path.endswith((".bin", ".dat")) or "left out" in path)
        self.assertEqual(found, [f"folder {windows_path(system.tree / 'left out')} is missing"])
        write(system.tree / "second" / "отчёт.ТХТ", b"a report")
        system.backup("--name", "only text", "--only-ext", "txt,тхт", "--no-compress")
        found = system.differences(left_out=lambda path: not path.endswith(("txt", "ТХТ")) or "left out" in path)
        self.assertEqual(found, [f"folder {windows_path(system.tree / 'left out')} is missing"])
        entries = verify.Instance(system.server.data, system.instance()).entries
        self.assertEqual({e.compressed for e in entries if e.kind == verify.FILE}, {0})
        said = system.backup("--name", "nothing", "--only-ext", "none").out
        self.assertIn("lets no file through", said)

if __name__ == "__main__":
    unittest.main()
