"""Whatever breaks off a backup or a restore, at whichever step: the run ends well all the same, and no
block goes, or comes, twice that the agent knew to be through."""

import json
import shutil
import signal
import unittest

import proxy
import trees
from machine import unix_path
from system import System, SystemTest, make_tree, write

FAILED, SOME_FAILED, PAUSED = 1, 3, 4
FORBIDDEN = 0x20010193  # HTTP status 403
CONNECTION_FAULTS = (proxy.RESET, proxy.CUT_REQUEST, proxy.CUT_ANSWER, proxy.LOSE_ANSWER)


class Backup:
    """A run whose first item the server refuses, so that there is an error to send too."""

    # The steps, each with the number of the request that is struck: an item and a block in the middle.
    STEPS = {"GetMD5ofKeys": 1, "FilesToBackup": 1, "StartJob": 1, "uploadfile": 3, "uploadblock": 20,
             "AddErrorFiles": 1, "endjob": 1}
    kind, block = "backup", "uploadblock"

    def __init__(self, test):
        self.test, self.system = test, System(test, self.kind)
        make_tree(self.system.tree)
        self.system.proxy.add("uploadfile", proxy.ANSWER, status=403)
        self.start = lambda: self.system.start_backup("--json")

    def strike(self, action, times=1, but=()):
        """At every step."""
        return [self.system.proxy.add(step, action, nth=nth, times=times)
                for step, nth in self.STEPS.items() if step not in but]

    def check_block(self):
        """A block of its file has been through when one is struck, or none could go again."""
        before, struck = self.system.proxy.requests(self.block)[self.STEPS[self.block] - 2 :][:2]
        if struck.block:  # unknown where only the head came
            self.test.assertEqual((struck.source, int(struck.block)), (before.source, int(before.block) + 1))
        following = next(r for r in self.system.proxy.requests(self.block)[self.STEPS[self.block] :] if r.block)
        self.test.assertEqual(following.source, before.source, "the file was struck between two blocks of it")

    def resume(self):
        return self.system.machine.start("resume", self.system.job(self.kind), "--json")

    def ends_well(self, run):
        test, system = self.test, self.system
        test.assertEqual(run.wait(300), SOME_FAILED, run.out + run.err)
        [refused] = [r.source for r in system.proxy.requests("uploadfile") if r.status == 403]
        failed = json.loads(run.out.splitlines()[-1])["summary"]["failed"]
        test.assertEqual([(f["path"], f["code"]) for f in failed], [(refused, FORBIDDEN)])
        test.assertBackedUp(system, failed=[unix_path(refused)])
        self.check_block()
        test.assertEqual(system.proxy.blocks_sent_again(), [])
        test.assertEqual(len({r.instance for r in system.proxy.requests("StartJob") if r.status}), 1, "it lost its instance")
        system.machine.agent("start", system.job())
        test.assertBackedUp(system)


class Restore(Backup):
    STEPS = {"ListFiles": 1, "GetMD5ofKeys": 1, "StartRestoreJob": 1, "GetFileInfo": 9, "DownloadFileBlock": 20,
             "RestoreJobHistory": 1}
    kind, block = "restore", "DownloadFileBlock"

    def __init__(self, test):
        super().__init__(test)
        self.system.proxy.clear()
        self.expected = trees.snapshot(self.system.tree)
        self.system.backup()
        shutil.rmtree(self.system.tree)
        self.start = lambda: self.system.start_restore("--json")

    def ends_well(self, run):
        self.test.assertEqual(run.wait(300), 0, run.out + run.err)
        self.test.assertRestored(self.system, self.expected, self.system.tree)
        self.check_block()
        self.test.assertEqual(self.system.proxy.blocks_fetched_again(), [])


class FaultsTest(SystemTest):
    def test_a_failed_try_is_repeated_at_once(self):
        def scenario(way, action):
            way = way(self)
            faults = way.strike(action)
            run = way.start()
            way.ends_well(run)
            self.assertNotIn("paused", run.out)
            self.assertEqual([f.struck for f in faults], [1] * len(faults))

        self.side_by_side(scenario, [(way, action) for way in (Backup, Restore) for action in CONNECTION_FAULTS])

    def test_a_run_that_is_broken_off_at_every_step_goes_on_each_time(self):
        """It pauses itself, or the user pauses it while the server stalls, or its process is killed."""
        def scenario(way, action, times, end):
            way = way(self)
            # An end is given a minute, so that a pause keeps no run from it.
            stalls = action == proxy.HOLD_REQUEST and end == signal.SIGINT
            faults = way.strike(action, times, but=("AddErrorFiles", "endjob", "RestoreJobHistory") if stalls else ())
            run = way.start()
            for fault in faults:
                if action in (proxy.HOLD_REQUEST, proxy.HOLD_ANSWER):
                    way.system.await_fault(fault, run)
                else:
                    run.until_said("paused")
                run.signal(end)
                code = run.wait(60)  # while the server still says nothing
                self.assertEqual(code == PAUSED, end == signal.SIGINT, run.out + run.err)
                fault.abandon()
                run = way.resume()
            way.ends_well(run)
            self.assertEqual([f.struck for f in faults], [times] * len(faults))

        # An answer is an answer: only what failed in the connection is tried twice.
        self.side_by_side(scenario, [(way, *row) for way in (Backup, Restore) for row in (
            *((action, 2, signal.SIGINT) for action in CONNECTION_FAULTS), (proxy.ANSWER, 1, signal.SIGINT),
            (proxy.HOLD_REQUEST, 1, signal.SIGINT), (proxy.HOLD_REQUEST, 1, signal.SIGKILL),
            (proxy.HOLD_ANSWER, 1, signal.SIGKILL))])

    def test_the_server_dies_and_comes_back(self):
        """Behind the proxy, so that the agent sees resets; the run goes on by itself."""
        def scenario(way, endpoint, action):
            way = way(self)
            fault = way.system.proxy.add(endpoint, action, nth=way.STEPS[endpoint])
            run = way.start()
            way.system.await_fault(fault, run)
            way.system.server.kill()
            fault.release()
            run.until_said("paused")
            way.system.server.start()
            way.ends_well(run)

        self.side_by_side(scenario, [
            (Backup, "FilesToBackup", proxy.HOLD_REQUEST), (Backup, "uploadblock", proxy.HOLD_REQUEST),
            (Backup, "uploadblock", proxy.HOLD_LOST), (Backup, "endjob", proxy.HOLD_LOST),
            (Restore, "DownloadFileBlock", proxy.HOLD_REQUEST), (Restore, "GetFileInfo", proxy.HOLD_LOST),
            (Restore, "RestoreJobHistory", proxy.HOLD_LOST)])

    def test_a_host_that_asks_for_it_waits_for_a_server_that_is_not_there(self):
        system = System(self, "waits")
        write(system.tree / "only.txt", b"the only file")
        fault = system.proxy.add("uploadblock", proxy.HOLD_REQUEST)
        system.proxy.refuse()
        run = system.start_backup()
        run.until_said("paused")
        system.proxy.listen()
        system.await_fault(fault, run)
        system.proxy.refuse()
        fault.abandon()
        run.until(lambda: run.out.count("paused") > 1, "the second pause")
        system.proxy.listen()
        self.assertEqual(run.wait(300), 0, run.out + run.err)
        self.assertBackedUp(system)

    def test_without_the_option_to_wait_a_run_that_cannot_begin_ends_in_error(self):
        restore = Restore(self)
        system = restore.system
        system.machine.set_option(waitForServer=False)
        for action, times in ((proxy.RESET, 2), (proxy.ANSWER, 1)):
            fault = system.proxy.add("ListFiles", action, times=times)
            system.restore(code=FAILED)
            self.assertEqual(fault.struck, times)
            self.assertFalse(system.tree.exists())
        system.tree.mkdir()
        system.proxy.refuse()
        self.assertIn("10061", system.backup("--name", "refused", code=FAILED).err)
        self.assertEqual(system.machine.listing("show", "refused")["state"], "error")

    def test_a_file_that_the_server_lacks_at_the_end_is_a_failed_item(self):
        system = System(self, "lacks")
        for name in ("lost.txt", "stored.txt"):
            write(system.tree / name, b"taken for stored")
        system.proxy.add("uploadblock", proxy.ANSWER, status=200)
        run = system.backup(code=SOME_FAILED)
        self.assertBackedUp(system, failed=[path for path in system.tree.iterdir() if path.name in run.err])
        # The next run sends it.
        system.backup()
        self.assertBackedUp(system)


if __name__ == "__main__":
    unittest.main()
