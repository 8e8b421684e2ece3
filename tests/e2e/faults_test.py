"""The network fails at every endpoint in every way: the run ends well all the same."""

import time
import unittest

import proxy
from system import System, SystemTest, make_tree, write

# The request to each endpoint at which the fault strikes: a file and a block in the middle.
STRIKES = {"FilesToBackup": 1, "StartJob": 1, "uploadfile": 3, "uploadblock": 9, "AddErrorFiles": 1, "endjob": 1}
CONNECTION_FAULTS = (proxy.RESET, proxy.CUT_REQUEST, proxy.CUT_ANSWER, proxy.LOSE_ANSWER)


class FaultsTest(SystemTest):
    def run_with_faults(self, name, action, times, status=0, meanwhile=lambda faults: None):
        """A whole backup in which the fault strikes each endpoint; returns the ended command.

        One file goes while the run begins, so that there is an error to send too."""
        system = System(self, name)
        make_tree(system.tree)
        vanishing = system.tree / "vanishing.txt"
        write(vanishing, b"here until the list is made")
        faults = [system.proxy.add(endpoint, action, nth=nth, times=times, status=status)
                  for endpoint, nth in STRIKES.items()]
        first_file = system.proxy.add("uploadfile", proxy.HOLD_REQUEST)
        run = system.start_backup()
        early = faults[: list(STRIKES).index("uploadfile")]
        meanwhile(early)
        self.assertTrue(first_file.reached.wait(300), f"no file was ever sent\n{run.out}{run.err}")
        vanishing.unlink()
        first_file.release()
        meanwhile(faults[len(early):])
        self.assertEqual(run.wait(600), 3, run.out + run.err)
        self.assertIn("vanishing.txt", run.err)
        self.assertEqual([f.struck for f in faults], [times] * len(faults))
        self.assertEqual(system.proxy.blocks_sent_again(), [])
        self.assertBackedUp(system, failed=[vanishing])
        return run

    def test_a_failed_try_is_repeated_at_once(self):
        def scenario(action):
            run = self.run_with_faults("retry", action, times=1)
            self.assertNotIn("paused", run.out)

        self.side_by_side(scenario, [(action,) for action in CONNECTION_FAULTS])

    def test_failed_retries_pause_and_the_resumed_run_completes(self):
        def scenario(action, times, status):
            self.run_with_faults("pause", action, times, status)

        # An answer is an answer: only what failed in the connection is tried twice.
        self.side_by_side(scenario, [(action, 2, 0) for action in CONNECTION_FAULTS]
                          + [(proxy.ANSWER, 1, 503), (proxy.ANSWER, 1, 401)])

    def test_a_late_answer_is_an_answer(self):
        def stall(faults):
            for fault in faults:
                self.assertTrue(fault.reached.wait(300), fault.endpoint)
                # Longer than the slices in which the agent waits; nothing marks their end outside.
                time.sleep(3)
                fault.release()

        run = self.run_with_faults("late", proxy.HOLD_REQUEST, times=1, meanwhile=stall)
        self.assertNotIn("paused", run.out)


if __name__ == "__main__":
    unittest.main()
