"""What the server's disk has lost or spoilt: restores name it and bring back all the rest, the next
backup heals it, and a power cut costs a run no more than what was not on the disk."""

import json
import sqlite3
import unittest

import proxy
from machine import windows_path
from system import BLOCK, System, SystemTest, noise, write

LOST = 0x2001019A


def contents(folder):
    return {p.name: p.read_bytes() for p in folder.iterdir()}


class DamageTest(SystemTest):
    def flip(self, system, name, block):
        """Changes a bit in that block of the file's package."""
        database = sqlite3.connect(system.server.data / "catalog.db")
        container, offset = database.execute(
            "SELECT container, offset FROM files WHERE CAST(path AS TEXT) LIKE ? ORDER BY instance DESC",
            ("%" + name,)).fetchone()
        database.close()
        package = system.server.data / "packages" / f"{container & 255:02x}" / f"{container}.pkg"
        with open(package, "r+b") as file:
            file.seek(offset + (block - 1) * BLOCK + 100)
            byte = file.read(1)
            file.seek(-1, 1)
            file.write(bytes([byte[0] ^ 16]))

    def failed(self, system, kind):
        folder = system.machine.job_folder(system.job(kind)) / "hist"
        return [(e["path"].rsplit("\\", 1)[1], e["code"], e["reason"])
                for record in folder.glob("*.errors") for e in json.loads(record.read_text())]

    def test_damage_is_named_and_healed_by_the_next_backup(self):
        system = System(self)
        for seed, name in enumerate(("first.bin", "second.bin", "third.bin")):
            write(system.tree / name, noise(2 * BLOCK + 9, seed))
        system.backup()
        self.flip(system, "second.bin", 2)
        self.flip(system, "third.bin", 1)
        target, lost = system.folder / "damaged", "the storage has lost bytes of it, or they are damaged there"
        write(target / "second.bin", b"an older state")
        run = system.restore(*system.to(target, "--conflict", "overwrite", "--json"), code=3)
        self.assertEqual(self.failed(system, "restore"), [(name, LOST, lost) for name in ("second.bin", "third.bin")])
        self.assertEqual(contents(target), {"first.bin": contents(system.tree)["first.bin"],
                                            "second.bin": b"an older state"})
        # Sums are of what was done, and the completed backup has not been touched by the restore's errors.
        summary = json.loads(run.out.splitlines()[-1])["summary"]
        self.assertEqual((summary["files"], summary["bytes"]), (1, 2 * BLOCK + 9))
        self.assertEqual(system.machine.listing("instances")[0]["errors"], 0)

        since = len(system.proxy.requests("uploadfile"))
        system.machine.agent("start", system.job())
        sent = [r.source.rsplit("\\", 1)[1] for r in system.proxy.requests("uploadfile")[since:]]
        self.assertEqual([name for name in sent if name.endswith(".bin")], ["second.bin", "third.bin"])
        self.assertBackedUp(system)
        target = system.folder / "healed"
        system.restore(*system.to(target))
        self.assertEqual(contents(target), contents(system.tree))

    def test_a_list_that_has_lost_items_does_not_pass_for_whole(self):
        system = System(self)
        for name in ("here.txt", "lost.txt"):
            write(system.tree / name, name.encode())
        system.backup()
        self.assertEqual(system.server.change_catalog(
            "DELETE FROM files WHERE CAST(path AS TEXT) LIKE '%lost.txt'"), 1)
        target = system.folder / "restored"
        system.restore(*system.to(target), code=3)
        self.assertEqual([p.name for p in target.iterdir()], ["here.txt"])
        self.assertEqual(self.failed(system, "restore"),
                         [("", LOST, "the storage has lost items of the backup's list")])

        lost = "1 item of its list is lost at the storage"
        for options in ([], ["--json"]):
            listed = system.machine.agent("files", system.instance(), *options, code=3)
            self.assertIn("here.txt", listed.out)
            self.assertIn(lost, listed.err)
        for command in ("files", "restore"):
            gone = system.machine.agent(command, system.instance(), windows_path(system.tree / "lost.txt"), code=1)
            self.assertIn(lost, gone.err)

    def test_a_power_cut_of_the_server_takes_the_last_blocks_only(self):
        system = System(self)
        write(system.tree / "large.bin", noise(40 * BLOCK, 1))
        fault = system.proxy.add("uploadblock", proxy.HOLD_REQUEST, nth=30)
        run = system.start_backup()
        system.await_fault(fault, run)
        system.server.kill()
        self.flip(system, "large.bin", 11)
        system.server.change_catalog("UPDATE service SET boot = 'another'")
        since = len(system.proxy.requests("uploadblock"))
        fault.release()
        run.until_said("paused")
        system.server.start()
        self.assertEqual(run.wait(300), 0, run.out + run.err)
        again = [r for r in system.proxy.requests("uploadblock")[since:] if r.status == 200]
        self.assertEqual(len(again), 41 - 10)
        self.assertBackedUp(system)


if __name__ == "__main__":
    unittest.main()
