"""Restores that the network, the server or the agent's own death break off, at every step: the tree
comes back all the same, and no block comes twice that the agent had recorded."""

import shutil
import signal
import unittest

import proxy
import trees
from system import BLOCK, System, SystemTest, make_tree, noise, until, write

DONE, PAUSED = 0, 4
# A restore's steps, each with the number of the request that is struck: an item and a block in the middle.
STEPS = {"ListFiles": 1, "GetMD5ofKeys": 1, "StartRestoreJob": 1, "GetFileInfo": 9, "DownloadFileBlock": 9,
         "RestoreJobHistory": 1}
CONNECTION_FAULTS = (proxy.RESET, proxy.CUT_REQUEST, proxy.CUT_ANSWER, proxy.LOSE_ANSWER)


class RestoreFaultsTest(SystemTest):
    def backed_up(self, name, fill=make_tree):
        system = System(self, name)
        fill(system.tree)
        system.expected = trees.snapshot(system.tree)
        system.backup()
        shutil.rmtree(system.tree)
        return system

    def assertEnded(self, system, since=0):
        self.assertRestored(system, system.expected, system.tree)
        self.assertEqual(system.proxy.blocks_fetched_again(since), [])

    def test_a_failed_try_is_repeated_at_once(self):
        system = self.backed_up("retry")
        for action in CONNECTION_FAULTS:
            with self.subTest(action):
                since = len(system.proxy.requests("DownloadFileBlock"))
                faults = [system.proxy.add(step, action, nth=nth) for step, nth in STEPS.items()]
                run = system.restore()
                self.assertNotIn("paused", run.out)
                self.assertEqual([f.struck for f in faults], [1] * len(faults))
                self.assertEnded(system, since)
                system.proxy.clear()
                shutil.rmtree(system.tree)

    def test_failed_retries_pause_and_the_run_goes_on(self):
        """Ctrl+C and a resume by hand spare the 30 s after which it would go on by itself."""
        def scenario(action, times, status):
            system = self.backed_up("pause")
            faults = [system.proxy.add(step, action, nth=nth, times=times, status=status)
                      for step, nth in STEPS.items()]
            run = system.start_restore()
            for _ in STEPS:
                run.until_said("paused")
                run.signal(signal.SIGINT)
                self.assertEqual(run.wait(60), PAUSED, run.out + run.err)
                run = system.machine.start("resume", system.job("restore"))
            self.assertEqual(run.wait(120), DONE, run.out + run.err)
            self.assertEqual([f.struck for f in faults], [times] * len(faults))
            self.assertEnded(system)

        self.side_by_side(scenario, [(action, 2, 0) for action in CONNECTION_FAULTS] + [(proxy.ANSWER, 1, 503)])

    def test_without_the_option_to_wait_a_list_that_cannot_be_had_ends_the_run_in_error(self):
        system = self.backed_up("list")
        system.machine.set_option(waitForServer=False)
        for action, times in ((proxy.RESET, 2), (proxy.ANSWER, 1)):
            with self.subTest(action):
                fault = system.proxy.add("ListFiles", action, times=times)
                run = system.restore(code=1)
                self.assertEqual(fault.struck, times, run.err)
                self.assertFalse(system.tree.exists())

    def test_the_server_dies_and_comes_back(self):
        def scenario(endpoint, action, nth):
            system = self.backed_up("server")
            system.outlive_server(system.start_restore, endpoint, action, nth)
            self.assertEnded(system)

        self.side_by_side(scenario, [("DownloadFileBlock", proxy.HOLD_REQUEST, 9), ("GetFileInfo", proxy.HOLD_LOST, 9),
                                     ("RestoreJobHistory", proxy.HOLD_LOST, 1)])

    def test_a_stalling_server_holds_up_no_pause(self):
        system = self.backed_up("stall")
        run = system.start_restore
        for endpoint, action, nth in (("ListFiles", proxy.HOLD_REQUEST, 1), ("GetFileInfo", proxy.HOLD_ANSWER, 9),
                                      ("DownloadFileBlock", proxy.HOLD_REQUEST, 9)):
            stall = system.proxy.add(endpoint, action, nth=nth)
            child = run()
            system.await_fault(stall, child)
            child.signal(signal.SIGINT)
            self.assertEqual(child.wait(60), PAUSED, child.out + child.err)
            stall.abandon()
            run = lambda: system.machine.start("resume", system.job("restore"))
        self.assertEqual(run().wait(120), DONE)
        self.assertEnded(system)

    def test_killed_at_every_stage_of_one_run(self):
        system = self.backed_up("kill")
        run = system.start_restore
        for kill in (("ListFiles", proxy.HOLD_REQUEST, 1), ("ListFiles", proxy.HOLD_ANSWER, 1),
                     ("GetMD5ofKeys", proxy.HOLD_REQUEST, 1), ("StartRestoreJob", proxy.HOLD_ANSWER, 1),
                     ("GetFileInfo", proxy.HOLD_REQUEST, 3), ("GetFileInfo", proxy.HOLD_ANSWER, 5),
                     ("DownloadFileBlock", proxy.HOLD_REQUEST, 5), ("DownloadFileBlock", proxy.HOLD_ANSWER, 8),
                     ("RestoreJobHistory", proxy.HOLD_REQUEST, 1), ("RestoreJobHistory", proxy.HOLD_ANSWER, 1)):
            with self.subTest(kill):
                system.kill_at(run, *kill)
                run = lambda: system.machine.start("resume", system.job("restore"))
        child = run()
        self.assertEqual(child.wait(120), DONE, child.out + child.err)
        self.assertEnded(system)

    def test_killed_while_it_decodes(self):
        """The blocks are all there: the resumed run asks for none again and decodes anew."""
        system = self.backed_up("decode", lambda tree: write(tree / "large.bin", noise(150 * 2**20, 1)))
        large = system.tree / "large.bin"
        write(large, b"an older state")
        run = system.start_restore("--conflict", "overwrite")
        until(lambda: len(list(system.tree.iterdir())) > 1, run)
        run.signal(signal.SIGSTOP)
        # What was there stays until the new one is whole.
        self.assertEqual(large.read_bytes(), b"an older state")
        run.kill()
        blocks = len(system.proxy.requests("DownloadFileBlock"))
        self.assertGreater(blocks, 150 * 2**20 // BLOCK)
        system.machine.agent("resume", system.job("restore"))
        self.assertEqual(len(system.proxy.requests("DownloadFileBlock")), blocks)
        self.assertEnded(system)


    def test_a_run_killed_while_it_decodes_leaves_nothing_to_read(self):
        system = self.backed_up("left", lambda tree: write(tree / "large.bin", noise(100 * 2**20, 1)))
        large = system.tree / "large.bin"
        beside = lambda: [p.name for p in system.tree.iterdir() if p != large]
        # The user gives the run up, drops the job, or only looks what there is before he decides.
        for command in (["stop"], ["remove"], ["pause"]):
            with self.subTest(command):
                write(large, b"an older state")
                run = system.start_restore("--conflict", "overwrite")
                until(beside, run)
                run.kill()
                self.assertRegex(beside()[0], r"^~[0-9a-f]{12}-\d+\.tmp$")
                system.machine.agent(*command, system.job("restore"), code=None)
                self.assertEqual(beside(), [])
                self.assertEqual(large.read_bytes(), b"an older state")
        # A job that is no more, of which only the file beside the target tells.
        job = system.job("restore")
        run = system.machine.start("resume", job)
        until(beside, run)
        run.kill()
        shutil.rmtree(system.machine.job_folder(job))
        system.restore(*system.to(system.folder / "elsewhere"))
        self.assertEqual(beside(), [])
        self.assertEqual(list((system.machine.data / "restoring").iterdir()), [])


if __name__ == "__main__":
    unittest.main()
