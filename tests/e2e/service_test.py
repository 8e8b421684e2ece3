"""The resident agent as a Windows service. Under Wine everybody is an administrator."""

import unittest

import proxy
from system import System, SystemTest, make_tree, until

FAILED, PAUSED = 1, 4


class ServiceTest(SystemTest):
    def test_from_installation_to_removal(self):
        system = System(self, "service")
        make_tree(system.tree)
        machine = system.machine

        def service(verb, code=0):
            return machine.agent("service", verb, code=code)

        def status():
            return service("status", code=None).out

        self.assertIn("not installed", status())
        self.assertIn("agent service install", service("start", FAILED).err)
        service("install")
        self.assertIn("installed already", service("install", FAILED).err)
        self.assertIn("stopped", status())
        self.assertIn("service manager", service("run", FAILED).err)

        service("start")
        self.assertIn("running", status())
        self.assertIn("already", machine.agent("run", code=FAILED).err)
        system.backup()
        self.assertBackedUp(system)

        (system.tree / "new.bin").write_bytes(bytes(3 * 131072))
        fault = system.proxy.add("uploadblock", proxy.HOLD_REQUEST)
        run = system.start_backup("--no-compress", source=system.tree / "new.bin")
        system.await_fault(fault, run)
        service("stop")
        self.assertEqual(run.wait(60), PAUSED, run.out + run.err)
        self.assertIn("stopped", status())
        fault.abandon()
        ended = len(system.proxy.requests("endjob"))
        service("start")
        watch = machine.start("watch")
        until(lambda: [r for r in system.proxy.requests("endjob")[ended:] if r.status == 200], watch)
        watch.kill()

        service("uninstall")
        self.assertIn("not installed", status())
        self.assertFalse((machine.data / "control").exists())

    def test_one_that_waits_for_the_data_directory_says_so(self):
        system = System(self, "waits")
        make_tree(system.tree)
        machine = system.machine
        fault = system.proxy.add("uploadblock", proxy.HOLD_REQUEST)
        run = system.start_backup()
        system.await_fault(fault, run)
        machine.agent("service", "install")
        for verb in ("start", "status"):
            said = machine.agent("service", verb, code=FAILED).out
            self.assertIn("runs no jobs: it waits until process", said)
            self.assertIn(" backup ", said)
        self.assertIn("waits and runs nothing", (machine.data / "log").read_text(errors="replace"))
        fault.release()
        self.assertEqual(run.wait(60), 0, run.out + run.err)
        watch = machine.start("watch")
        until(lambda: machine.agent("service", "status", code=None).wait(0) == 0, watch)
        watch.kill()
        machine.agent("service", "uninstall")


if __name__ == "__main__":
    unittest.main()
