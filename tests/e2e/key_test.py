"""The key of a user: without it, or with another one, a machine neither backs up nor restores."""

import unittest

import trees
from machine import windows_path
from system import PASSWORD, USER, System, SystemTest, make_tree

FAILED = 1
PASSPHRASE = "a long passphrase with ümlauts"


class KeyTest(SystemTest):
    def transfer(self, machine, way, file, passphrase=PASSPHRASE, code=0):
        return machine.agent("key", way, windows_path(file), "--passphrase-stdin", stdin=passphrase + "\n", code=code)

    def assertRefused(self, system, machine, *words):
        """No data goes either way."""
        def moved():
            return [r for r in system.proxy.requests() if r.endpoint in ("StartJob", "uploadfile", "GetFileInfo")]

        before, target = len(moved()), machine.folder / "restored"
        for arguments in (("backup", windows_path(system.tree)),
                          ("restore", system.proxy.requests("StartJob")[0].instance, *system.to(target))):
            with self.subTest(arguments[0]):
                run = machine.agent(*arguments, code=FAILED)
                for word in words:
                    self.assertIn(word, run.err)
                self.assertEqual(moved()[before:], [])
                self.assertFalse(target.exists())

    def test_a_second_machine_needs_the_recovery_file(self):
        system = System(self, "recovery")
        make_tree(system.tree)
        expected = trees.snapshot(system.tree)
        system.backup()
        file, key = system.folder / "recovery file", system.machine.user_key(USER)
        self.assertNotIn("short", self.transfer(system.machine, "export", file).out)
        self.assertIn("short", self.transfer(system.machine, "export", system.folder / "short", "zwölf sinde").out)
        whole = file.read_bytes()
        self.assertNotIn(key[0], whole)
        self.transfer(system.machine, "export", file, "another one", code=FAILED)
        self.assertEqual(file.read_bytes(), whole)

        second = system.add_machine("second")
        self.assertRefused(system, second, "key", "agent key import")
        cut = system.folder / "cut"
        cut.write_bytes(whole[:-9])
        for name, passphrase, word in ((file, "wrong", "passphrase"), (cut, PASSPHRASE, "cut"),
                                       (system.folder / "missing", PASSPHRASE, "missing")):
            with self.subTest(name.name):
                run = self.transfer(second, "import", name, passphrase, code=FAILED)
                self.assertIn(word, run.err)
                self.assertEqual(len(run.err.strip().splitlines()), 1, run.err)
        self.assertFalse((second.data / "keys").exists(), "a key was made or taken")

        self.transfer(second, "import", file)
        self.assertEqual(second.user_key(USER), key)
        second.agent("restore", system.instance(), "--machine", "machine", *system.to(second.folder / "restored"))
        self.assertRestored(system, expected, second.folder / "restored")
        second.agent("backup", windows_path(second.folder / "restored" / "sizes"))
        self.assertEqual(sorted(i["machine"] for i in second.listing("instances") if i["state"] == "completed"),
                         ["machine", "second"])

    def test_another_key_is_refused(self):
        system, elsewhere = System(self, "ours"), System(self, "theirs")
        for each in (system, elsewhere):
            make_tree(each.tree)
        expected = trees.snapshot(system.tree)
        for each in (system, elsewhere):
            each.backup()
        stranger = elsewhere.machine
        key = stranger.user_key(USER)
        stranger.connect(system.proxy.address, USER, PASSWORD)
        self.assertRefused(system, stranger, "key")
        file = system.folder / "recovery file"
        self.transfer(system.machine, "export", file)
        run = self.transfer(stranger, "import", file)
        self.assertIn("beside", run.out)
        self.assertEqual(stranger.user_key(USER), key)
        stranger.agent("restore", system.instance(), *system.to(stranger.folder / "restored"))
        self.assertRestored(system, expected, stranger.folder / "restored")
        stranger.agent("backup", windows_path(stranger.folder / "restored" / "sizes"))


if __name__ == "__main__":
    unittest.main()
