"""The resident agent in a console: commands reach it, and runs live longer than it does."""

import shutil
import unittest

import proxy
import trees
from layout import WINDOWS_BIN
from machine import windows_path
from resident import Resident
from system import BLOCK, PASSWORD, USER, System, SystemTest, World, make_tree, until

FAILED, PAUSED = 1, 4
ZONE_KEY = r"HKLM\System\CurrentControlSet\Control\TimeZoneInformation"


class ResidentTest(SystemTest):
    def log_says(self, machine, text, process):
        log = machine.data / "log"
        until(lambda: log.exists() and text in log.read_text(errors="replace"), process)

    def test_runs_go_on_after_the_resident_has_ended(self):
        def scenario(ending):
            system = System(self, "resident")
            make_tree(system.tree)
            resident = Resident(system.machine)
            fault, run = system.held_backup()
            # The server says nothing all the while.
            getattr(resident, ending)()
            self.assertEqual(run.wait(60), PAUSED, run.out + run.err)
            self.assertIn("starts again", run.out + run.err)
            self.assertEqual((system.machine.data / "control").exists(), ending == "kill")
            fault.abandon()
            job = system.job()
            state = system.machine.listing("show", job)["state"]
            self.assertEqual(state, "paused" if ending == "stop" else "interrupted")

            resident = Resident(system.machine)
            until(lambda: [r for r in system.proxy.requests("endjob") if r.status == 200], resident.process)
            self.assertBackedUp(system)
            self.assertEqual(len({r.instance for r in system.proxy.requests("StartJob")}), 1)
            self.assertEqual(system.proxy.blocks_sent_again(), [])
            resident.stop()

        self.side_by_side(scenario, [("stop",), ("kill",)])

    def test_the_updater_beside_the_agent_is_started(self):
        machine = World(self, "updater").add_machine("machine")
        machine.agent("server", "set", "127.0.0.1:9")
        shutil.copy(WINDOWS_BIN / "test_updater.exe", machine.home / "updater.exe")
        machine.set_option(update_start_at=0)
        resident = Resident(machine)
        until(lambda: (machine.home / "updated").exists(), resident.process)
        resident.stop()

    def test_the_residents_stores_are_what_commands_change(self):
        """It keeps what it has read: all settings have to reach it to count."""
        system = System(self, "stores")
        make_tree(system.tree)
        expected, first = trees.snapshot(system.tree), system.machine
        system.backup()
        file, passphrase = windows_path(system.folder / "recovery file"), "a passphrase\n"
        first.agent("key", "export", file, "--passphrase-stdin", stdin=passphrase)

        machine = World.add_machine(system, "second")
        resident = Resident(machine)
        machine.connect(system.proxy.address, USER, PASSWORD)
        machine.agent("snapshots", "on")
        machine.agent("snapshots", "off")
        machine.agent("key", "import", file, "--passphrase-stdin", stdin=passphrase)
        self.assertIn("Wrong", machine.agent("login", USER, "--password-stdin", stdin="wrong\n", code=FAILED).err)
        shutil.rmtree(system.tree)
        machine.agent("restore", system.instance(), "--machine", "machine")
        self.assertRestored(system, expected, system.tree)
        machine.agent("logout", USER)
        job = machine.listing("jobs")[0]["id"]
        self.assertIn("agent login", machine.agent("start", job, code=FAILED).err)
        # Nobody has run it in a process of its own: that would have needed the data directory.
        self.assertFalse(resident.process.ended)
        resident.stop()

    def test_one_owner_at_a_time(self):
        system = System(self, "owner")
        make_tree(system.tree)
        fault, run = system.held_backup()
        waiting = [Resident(system.machine, wait=False) for _ in range(4)]
        for resident in waiting:
            resident.process.until_said("waiting")
            self.assertIn(" backup ", resident.process.out)
        waiting.pop().stop()
        self.log_says(system.machine, "waits and runs nothing", run)
        fault.release()
        self.assertEqual(run.wait(60), 0, run.out + run.err)
        # One of them runs the jobs, the others end.
        until(lambda: len([r for r in waiting if r.process.ended]) == 2)
        ended = [r for r in waiting if r.process.ended]
        for resident in ended:
            self.assertEqual(resident.process.wait(0), FAILED)
            self.assertIn("running already", resident.process.err)
        [resident] = [r for r in waiting if r not in ended]
        resident.process.until_said("ready")
        self.assertIn("already", system.machine.agent("run", code=FAILED).err)
        system.backup()
        self.assertBackedUp(system)

        # A file that leads nowhere is no resident.
        resident.kill()
        self.assertTrue((system.machine.data / "control").exists())
        system.backup()
        self.assertBackedUp(system)
        Resident(system.machine).stop()
        self.assertFalse((system.machine.data / "control").exists())

    def test_a_run_that_nobody_runs(self):
        """Its process was killed and there is no resident: a command sees through what it asks for."""
        system = System(self, "nobody")
        make_tree(system.tree)
        machine = system.machine
        system.kill_at(system.start_backup, "uploadblock", proxy.HOLD_REQUEST, 5)
        job = system.job()
        machine.agent("pause", job)
        self.assertEqual(machine.listing("show", job)["state"], "paused")
        machine.agent("stop", job)
        self.assertEqual(machine.listing("show", job)["state"], "cancelled")
        self.assertEqual([i["state"] for i in machine.listing("instances")], ["cancelled"])
        for verb in ("stop", "pause", "resume"):
            self.assertIn("cancelled", machine.agent(verb, job, code=FAILED).err)
        machine.agent("start", job)
        self.assertBackedUp(system)

        # What a removed job has begun does not look as if it were still going on.
        (system.tree / "new.bin").write_bytes(bytes(3 * BLOCK))
        system.kill_at(lambda: machine.start("start", job), "uploadfile", proxy.HOLD_REQUEST, 1)
        machine.agent("remove", job)
        self.assertFalse(machine.job_folder(job).exists())
        self.assertEqual(machine.listing("jobs"), [])
        self.assertEqual(sorted(i["state"] for i in machine.listing("instances")),
                         ["cancelled", "cancelled", "completed"])

    def test_a_lost_session_is_renewed_when_the_server_comes(self):
        system = System(self, "logins")
        make_tree(system.tree)
        system.backup()
        machine, job = system.machine, system.job()
        machine.set_option(loginAgainAfter=1, loginRetrytimes=1000)
        logins = lambda: [r.status for r in system.proxy.requests("Login")]

        (machine.data / "cookies").unlink()
        system.server.stop()
        resident = Resident(machine)
        until(lambda: logins()[1:], resident.process)
        system.server.start()
        until(lambda: logins()[-1] == 200, resident.process)
        self.log_says(machine, "is logged in again", resident.process)
        machine.agent("start", job)
        self.assertBackedUp(system)
        resident.stop()

    def test_a_login_without_an_answer_holds_nobody_up(self):
        system = System(self, "silent")
        system.server.add_user("other", "another password")
        machine = system.machine
        resident = Resident(machine)
        fault = system.proxy.add("Login", proxy.HOLD_REQUEST)
        stuck = machine.start("login", USER, "--password-stdin", stdin=PASSWORD + "\n")
        system.await_fault(fault, stuck)
        machine.agent("login", "other", "--password-stdin", stdin="another password\n", seconds=100)
        machine.agent("logout", "other", seconds=100)
        # Nobody waits for it any more, and the resident has no reason to.
        stuck.kill()
        fault.abandon()
        resident.stop()

    def test_a_new_time_zone_is_noticed(self):
        world = World(self, "zone")
        machine = world.add_machine("machine")
        resident = Resident(machine)
        machine.registry("add", ZONE_KEY, "/v", "StandardName", "/d", "of another zone", "/f")
        self.log_says(machine, "The clock may have changed", resident.process)
        resident.stop()


if __name__ == "__main__":
    unittest.main()
