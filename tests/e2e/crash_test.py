"""The agent is killed between two requests: while it packs, while it unpacks, and while files change."""

import shutil
import signal
import unittest

import proxy
import trees
from system import BLOCK, System, SystemTest, noise, until, write


class CrashTest(SystemTest):
    def test_killed_while_it_encodes(self):
        system = System(self, "encode")
        write(system.tree / "large.bin", noise(200 * 2**20, 1))
        run = system.start_backup()
        # The only file: its package grows while no information of it was sent.
        until(system.packages, run)
        run.kill()
        self.assertFalse([r for r in system.proxy.requests("uploadfile") if r.source.endswith("large.bin")])
        system.machine.agent("resume", system.job())
        self.assertBackedUp(system)
        self.assertEqual(system.packages(), [])

    def test_a_file_that_changed_meanwhile_is_never_a_mixture(self):
        """Whether its time tells or, as with containers and databases, does not."""
        def scenario(seconds):
            system = System(self, "mixture")
            file = system.tree / "changing.bin"
            write(file, noise(6 * BLOCK, 1), mtime=1_600_000_000_000_000_000)
            system.kill_at(system.start_backup, "uploadblock", proxy.HOLD_REQUEST, 4)
            write(file, noise(6 * BLOCK, 2), mtime=1_600_000_000_000_000_000 + seconds * 10**9)
            system.machine.agent("resume", system.job())
            # The content is all new; the next run brings the new time too.
            self.assertEqual([d for d in system.differences() if "its time" not in d], [])
            system.machine.agent("start", system.job())
            self.assertBackedUp(system)

        self.side_by_side(scenario, [(1,), (0,)])

    def test_killed_while_it_decodes(self):
        system = System(self, "decode")
        large, old = system.tree / "large.bin", b"an older state"
        write(large, noise(150 * 2**20, 1))
        expected = trees.snapshot(system.tree)
        system.backup()
        beside = lambda: [p.name for p in system.tree.iterdir() if p != large]

        def killed(start):
            run = start()
            until(beside, run)
            run.signal(signal.SIGSTOP)
            # What was there stays until the new one is whole.
            self.assertEqual(large.read_bytes(), old)
            self.assertRegex(beside()[0], r"^~[0-9a-f]{12}-\d+\.tmp$")
            run.kill()
            return system.job("restore")

        # The user gives the run up, drops the job, or only looks what there is before he decides.
        for command in ("stop", "remove", "pause"):
            with self.subTest(command):
                write(large, old)
                job = killed(lambda: system.start_restore("--conflict", "overwrite"))
                system.machine.agent(command, job, code=None)
                self.assertEqual((beside(), large.read_bytes()), ([], old))
        # The blocks are all there: the resumed run asks for none again and decodes anew.
        blocks = len(system.proxy.requests("DownloadFileBlock"))
        killed(lambda: system.machine.start("resume", job))
        self.assertEqual(len(system.proxy.requests("DownloadFileBlock")), blocks)
        system.machine.agent("resume", job)
        self.assertEqual(len(system.proxy.requests("DownloadFileBlock")), blocks)
        self.assertRestored(system, expected, system.tree)
        # A job that is no more, of which only the file beside the target tells.
        write(large, old)
        job = killed(lambda: system.start_restore("--conflict", "overwrite"))
        shutil.rmtree(system.machine.job_folder(job))
        system.restore(*system.to(system.folder / "elsewhere"))
        self.assertEqual((beside(), list((system.machine.data / "restoring").iterdir())), ([], []))


if __name__ == "__main__":
    unittest.main()
