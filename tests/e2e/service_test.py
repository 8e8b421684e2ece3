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


if __name__ == "__main__":
    unittest.main()
