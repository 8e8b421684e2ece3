"""The agent dies at the worst moments; "agent resume" goes on with the same run each time."""

import json
import unittest

import proxy
from system import BLOCK, System, SystemTest, make_tree, noise, until, write
from machine import unix_path, windows_path

SOME_FAILED = 3
FORBIDDEN = 0x20010193  # HTTP status 403

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

    def test_killed_with_failed_items(self):
        """What an earlier part of the run had to leave out stays on its list, once, to its end."""
        system = System(self, "failed")
        make_tree(system.tree)
        system.proxy.add("uploadblock", proxy.ANSWER, nth=2, times=2, status=403)
        system.kill_at(system.start_backup, "uploadblock", proxy.HOLD_REQUEST, 5)
        job = system.job()
        for kill in (("uploadblock", proxy.HOLD_ANSWER, 1), ("AddErrorFiles", proxy.HOLD_ANSWER, 1)):
            system.kill_at(lambda: system.machine.start("resume", job), *kill)
        run = system.machine.agent("resume", job, "--json", code=SOME_FAILED)
        summary = json.loads(run.out.splitlines()[-1])["summary"]
        refused = [r.source for r in system.proxy.requests("uploadblock") if r.status == 403]
        self.assertEqual(len(refused), 2)
        self.assertEqual([(f["path"], f["code"]) for f in summary["failed"]], [(path, FORBIDDEN) for path in refused])
        self.assertBackedUp(system, failed=[unix_path(path) for path in refused])
        system.machine.agent("start", job)
        self.assertBackedUp(system)

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

    def test_a_file_that_changed_meanwhile_is_never_a_mixture(self):
        """Whether its time tells or, as with containers and databases, does not."""
        for seconds in (1, 0):
            with self.subTest(seconds=seconds):
                system = System(self, "mixture")
                file = system.tree / "changing.bin"
                write(file, noise(6 * BLOCK, 1), mtime=1_600_000_000_000_000_000)
                system.kill_at(system.start_backup, "uploadblock", proxy.HOLD_REQUEST, 4)
                write(file, noise(6 * BLOCK, 2), mtime=1_600_000_000_000_000_000 + seconds * 10**9)
                job = system.job()
                system.machine.agent("resume", job)
                # The content is all new; the next run brings the new time too.
                self.assertEqual([d for d in system.differences() if "its time" not in d], [])
                system.machine.agent("start", job)
                self.assertBackedUp(system)

    def test_the_server_dies_and_comes_back(self):
        """Behind the proxy, so that the agent sees resets. What was answered 200 is not sent again."""
        def scenario(endpoint, action, nth):
            system = System(self, "server")
            make_tree(system.tree)
            system.outlive_server(system.start_backup, endpoint, action, nth)
            self.assertBackedUp(system)
            self.assertEqual(system.proxy.blocks_sent_again(), [])

        self.side_by_side(scenario, [("FilesToBackup", proxy.HOLD_REQUEST, 1), ("uploadblock", proxy.HOLD_REQUEST, 9),
                                     ("uploadblock", proxy.HOLD_LOST, 9), ("endjob", proxy.HOLD_LOST, 1)])


if __name__ == "__main__":
    unittest.main()
