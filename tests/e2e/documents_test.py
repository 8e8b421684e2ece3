"""What the documents say can be done without the agent can be done."""

import re
import subprocess
import sys
import unittest

from layout import ROOT
from machine import windows_path
from system import SystemTest, World, make_tree, write


class DocumentsTest(SystemTest):
    def test_the_script_that_reads_a_folder_of_backups(self):
        world = World(self, "documents")
        make_tree(world.tree)
        machine, location = world.add_machine("machine"), world.folder / "backups"
        location.mkdir()
        command = ["backup", windows_path(world.tree), "--user", "alice", "--local", windows_path(location)]
        machine.agent(*command)
        write(world.tree / "later.bin", bytes(300_000))
        machine.agent(*command)  # most of it is carried over
        [run] = [r["jobinstanceid"] for r in machine.listing("instances", "--local", windows_path(location))
                 if any(location.rglob(r["jobinstanceid"])) and r["totalfiles"] == sum(
                     p.is_file() for p in world.tree.rglob("*"))]
        [folder] = location.rglob(run)

        page = (ROOT / "docs" / "formats" / "local-storage.md").read_text()
        script = re.search(r"```python\n(.*?)```", page, re.DOTALL)[1]
        key, iv = machine.user_key("alice")
        out = world.folder / "out"
        subprocess.run([sys.executable, "-c", script, str(folder), (key + iv).hex(), str(out)], check=True)
        restored = out / "Z" / str(world.tree).lstrip("/")
        for path in sorted(world.tree.rglob("*")):
            copy = restored / path.relative_to(world.tree)
            self.assertEqual(copy.is_dir(), path.is_dir(), copy)
            if path.is_file():
                self.assertEqual(copy.read_bytes(), path.read_bytes(), path)


if __name__ == "__main__":
    unittest.main()
