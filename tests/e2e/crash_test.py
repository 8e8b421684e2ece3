"""The agent dies or is paused at the worst moments; "agent resume" goes on with the same run each time."""

import unittest

import proxy
from system import System, SystemTest, make_tree, noise, until, write
from machine import windows_path

# Where the agent is killed: the endpoint, before or after the server has seen the request, and the
# number of the request since the agent was started.
KILLS = (("FilesToBackup", proxy.HOLD_REQUEST, 1), ("FilesToBackup", proxy.HOLD_ANSWER, 1),
         ("StartJob", proxy.HOLD_REQUEST, 1), ("StartJob", proxy.HOLD_ANSWER, 1),
         ("uploadfile", proxy.HOLD_REQUEST, 4), ("uploadfile", proxy.HOLD_ANSWER, 2),
         ("uploadblock", proxy.HOLD_REQUEST, 5), ("uploadblock", proxy.HOLD_ANSWER, 4),
         ("endjob", proxy.HOLD_REQUEST, 1), ("endjob", proxy.HOLD_ANSWER, 1))


class CrashTest(SystemTest):
    def test_killed_at_every_stage_of_one_run(self):
        system = System(self, "crash")
        make_tree(system.tree)
        job, instances = None, set()
        for kill in KILLS:
            system.kill_at((lambda: system.machine.start("resume", job)) if job else system.start_backup, *kill)
            job = job or system.job()
            instances |= {r.instance for r in system.proxy.requests("StartJob")}
        system.machine.agent("resume", job)
        self.assertEqual(len(instances | {system.instance()}), 1, "the run lost its instance")
        self.assertBackedUp(system)
        self.assertEqual(system.proxy.blocks_sent_again(), [])

    def test_a_stalling_server_holds_up_no_pause(self):
        system = System(self, "stall")
        make_tree(system.tree)
        run = system.start_backup
        for stall in (("FilesToBackup", proxy.HOLD_REQUEST, 1), ("uploadfile", proxy.HOLD_ANSWER, 3),
                      ("uploadblock", proxy.HOLD_REQUEST, 4)):
            system.pause_at(run, *stall)
            job = system.job()
            self.assertEqual(system.machine.listing("show", job)["state"], "paused")
            run = lambda: system.machine.start("resume", job)
        system.machine.agent("resume", job)
        self.assertBackedUp(system)
        self.assertEqual(system.proxy.blocks_sent_again(), [])

    def test_killed_while_it_encodes(self):
        system = System(self, "encode")
        large = system.tree / "large.bin"
        write(large, noise(200 * 2**20, 1))
        run = system.start_backup()
        # The only file: its package grows while no information of it was sent.
        until(system.packages, run)
        run.kill()
        self.assertEqual([r.source for r in system.proxy.requests("uploadfile") if r.source == windows_path(large)], [])
        job = system.job()
        system.machine.agent("resume", job)
        self.assertBackedUp(system)
        self.assertEqual(system.packages(), [])


if __name__ == "__main__":
    unittest.main()
