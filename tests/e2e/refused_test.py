"""A connection that is refused: a failure as such, a reason to wait when the host asks for it."""

import json
import unittest

import proxy
from system import System, SystemTest, write

REFUSED = 10061


class RefusedTest(SystemTest):
    def prepared(self, wait):
        system = System(self, "refused")
        write(system.tree / "only.txt", b"the only file")
        system.machine.set_option(waitForServer=wait)
        return system

    def refuse_at(self, system, run, fault):
        self.assertTrue(fault.reached.wait(120), f"no request\n{run.out}{run.err}")
        system.proxy.refuse()
        fault.abandon()

    def test_without_the_option_a_start_ends_in_error(self):
        system = self.prepared(wait=False)
        system.proxy.refuse()
        run = system.backup(code=1)
        self.assertIn(str(REFUSED), run.err)
        self.assertEqual(system.machine.listing("show", system.job())["state"], "error")

    def test_without_the_option_an_item_is_recorded_as_failed(self):
        system = self.prepared(wait=False)
        fault = system.proxy.add("uploadblock", proxy.HOLD_REQUEST)
        run = system.start_backup()
        self.refuse_at(system, run, fault)
        # The end fails too, and that drops nothing.
        run.until_said("paused")
        system.proxy.listen()
        self.assertEqual(run.wait(120), 3, run.out + run.err)
        record, = (system.machine.job_folder(system.job()) / "hist").glob("*.errors")
        self.assertEqual([(e["path"][-8:], e["code"]) for e in json.loads(record.read_text())], [("only.txt", REFUSED)])

    def test_with_the_option_the_run_waits_and_completes(self):
        system = self.prepared(wait=True)
        fault = system.proxy.add("uploadblock", proxy.HOLD_REQUEST)
        system.proxy.refuse()
        run = system.start_backup()
        run.until_said("paused")
        system.proxy.listen()
        self.refuse_at(system, run, fault)
        run.until(lambda: run.out.count("paused") > 1, "the second pause")
        system.proxy.listen()
        self.assertEqual(run.wait(300), 0, run.out + run.err)
        self.assertBackedUp(system)

    def test_a_file_that_the_server_lacks_at_the_end_is_a_failed_item(self):
        system = self.prepared(wait=False)
        lost = system.tree / "lost.txt"
        write(lost, b"taken for stored")
        system.proxy.add("uploadblock", proxy.ANSWER, nth=1, status=200)
        run = system.start_backup()
        self.assertEqual(run.wait(120), 3, run.out + run.err)
        missing, = [path for path in (lost, system.tree / "only.txt") if path.name in run.err]
        self.assertBackedUp(system, failed=[missing])
        # The next run sends it.
        system.backup()
        self.assertBackedUp(system)


if __name__ == "__main__":
    unittest.main()
