"""Ctrl+C while the server stalls: the agent pauses at once, and the run can be resumed."""

import signal
import unittest

import proxy
from system import System, SystemTest, make_tree


class PauseTest(SystemTest):
    def test_a_stalling_server_holds_up_no_pause(self):
        def scenario(endpoint, action, nth):
            system = System(self, "stall")
            make_tree(system.tree)
            stall = system.proxy.add(endpoint, action, nth=nth)
            run = system.start_backup()
            system.await_fault(stall, run)
            run.signal(signal.SIGINT)  # Ctrl+C to a program in Wine
            # The server still says nothing.
            self.assertEqual(run.wait(60), 4, run.out + run.err)
            self.assertFalse(stall.released.is_set())
            job = system.job()
            self.assertEqual(system.machine.listing("show", job)["state"], "paused")
            stall.abandon()
            system.machine.agent("resume", job)
            self.assertBackedUp(system)
            self.assertEqual(system.proxy.blocks_sent_again(), [])

        self.side_by_side(scenario, [("FilesToBackup", proxy.HOLD_REQUEST, 1), ("uploadfile", proxy.HOLD_ANSWER, 3),
                                     ("uploadblock", proxy.HOLD_REQUEST, 9)])


if __name__ == "__main__":
    unittest.main()
