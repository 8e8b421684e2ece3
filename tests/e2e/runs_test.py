"""Runs as commands tell of them: to people, to scripts, from the process that runs the job or from another."""

import json
import signal
import struct
import unittest

import proxy
from resident import Resident
from system import System, SystemTest, make_tree, until, write

FAILED, PAUSED = 1, 4
DAY = 24 * 3600 * 10**7
NEXT_RUN = 24  # where an activity record has the time of the next run


def objects(run):
    """What a command with --json has said: an object a line."""
    return [json.loads(line) for line in run.out.splitlines()]


class RunsTest(SystemTest):
    def leave(self, system, start, endpoint="uploadfile", nth=1):
        """A command that leaves its run to the resident agent, and the fault at which that now stands."""
        fault = system.proxy.add(endpoint, proxy.HOLD_REQUEST, nth=nth)
        command = start("--no-wait")
        self.assertEqual(command.wait(60), 0, command.out + command.err)
        system.await_fault(fault, command)
        return fault, command

    def test_runs_that_the_resident_agent_has(self):
        system = System(self, "runs")
        machine = system.machine
        make_tree(system.tree)
        refused = system.backup("--name", "docs", "--no-wait", code=FAILED)
        self.assertIn("agent service install", refused.err)
        self.assertEqual(machine.listing("jobs"), [])
        resident = Resident(machine)
        everything = machine.start("watch")
        everything.until_said("Watching")

        fault, left = self.leave(system, lambda option: system.start_backup("--name", "docs", "--json", option),
                                 "uploadblock", 3)
        self.assertEqual([o["name"] for o in objects(left)], ["docs"])
        watch = machine.start("watch", "docs", "--json")
        watch.until_said('"running"')
        machine.agent("pause", "docs")
        self.assertEqual(watch.wait(60), PAUSED, watch.out + watch.err)
        self.assertEqual(objects(watch)[-1]["summary"]["state"], "paused")
        fault.abandon()

        watch = machine.start("watch", "docs")
        watch.until_said("Waiting")
        said = objects(machine.agent("resume", "docs", "--json"))
        self.assertEqual(watch.wait(60), 0, watch.out + watch.err)
        self.assertIn("completed", watch.out)
        everything.until_said("docs: Backup completed")
        summary = said[-1]["summary"]
        self.assertEqual((summary["state"], summary["exitCode"], summary["failed"]), ("completed", 0, []))
        self.assertEqual(summary["files"], sum(p.is_file() for p in system.tree.rglob("*")))
        self.assertBackedUp(system)

        write(system.tree / "new.bin", bytes(2 * 131072))
        again = lambda option: machine.start("start", "docs", option)
        fault, _ = self.leave(system, again)
        self.assertIn("cancelled", machine.agent("stop", "docs").out)
        self.assertEqual(machine.listing("show", "docs")["state"], "cancelled")
        fault.abandon()
        fault, _ = self.leave(system, again)
        watch = machine.start("watch", "docs")
        watch.until_said("Backup")
        self.assertIn("stay at the server", machine.agent("remove", "docs").out)
        fault.abandon()
        self.assertEqual(watch.wait(60), PAUSED, watch.out + watch.err)
        self.assertEqual(machine.listing("jobs"), [])
        self.assertEqual([i["state"] for i in machine.listing("instances")].count("completed"), 1)
        everything.signal(signal.SIGINT)
        self.assertEqual(everything.wait(60), 0, everything.err)
        resident.stop()

    def test_schedules_and_their_promise(self):
        system = System(self, "promise")
        machine = system.machine
        write(system.tree / "a.txt", b"a")
        said = objects(system.backup("--name", "docs", "--daily", "02:00", "--json"))[0]
        self.assertEqual(said["schedule"], {"kind": "daily", "time": "02:00"})
        self.assertFalse(said["resident"])
        self.assertEqual(system.proxy.requests("StartJob"), [])
        job = machine.listing("jobs")[0]
        self.assertEqual((job["nextRun"], job["lastCompleted"], job["overdue"]), (said["nextRun"], "", False))
        self.assertIn("no resident agent", machine.agent("jobs").out)

        # A due time that has passed is the resident agent's, whatever else a command asks of the job.
        with (machine.job_folder(job["id"]) / "info").open("r+b") as record:
            record.seek(NEXT_RUN)
            due = struct.unpack("<Q", record.read(8))[0] - 3 * DAY
            record.seek(NEXT_RUN)
            record.write(struct.pack("<Q", due))
        said = objects(system.backup("--name", "docs", "--daily", "03:00", "--json"))[0]
        self.assertLess(said["nextRun"], job["nextRun"])
        self.assertEqual(machine.listing("jobs")[0]["state"], "idle")

        summary = objects(system.backup("--name", "docs", "--json"))[-1]["summary"]
        self.assertEqual((summary["files"], summary["bytes"]), (1, 1))
        job = machine.listing("show", "docs")
        self.assertEqual((job["overdue"], job["schedule"]), (False, said["schedule"]))
        self.assertNotEqual(job["lastCompleted"], "")
        system.backup("--name", "docs", "--no-schedule")
        self.assertEqual(machine.listing("jobs")[0]["nextRun"], "")
        self.assertEqual(len(system.proxy.requests("StartJob")), 1)

    def test_why_a_run_waits_and_until_when(self):
        system = System(self, "waits")
        machine = system.machine
        make_tree(system.tree)
        resident = Resident(machine)
        system.proxy.add("uploadblock", proxy.ANSWER, nth=3, times=1000)
        system.backup("--name", "docs", "--no-wait")
        watch = machine.start("watch", "docs", "--json")
        shown = lambda: machine.listing("show", "docs")
        until(lambda: shown().get("until"), resident.process)
        job = shown()
        self.assertEqual((job["state"], job["location"]), ("paused", "127.0.0.1:%d" % system.proxy.address[1]))
        self.assertIn("a fault of the test (HTTP status 503", job["reason"])
        self.assertLess(job["since"], job["until"])
        self.assertIn(job["reason"], machine.agent("jobs").out)
        self.assertIn(job["reason"], machine.agent("show", "docs").out)
        watch.until_said(job["until"])
        waits = [o for o in objects(watch) if o.get("until")][0]
        self.assertEqual([waits[k] for k in ("reason", "since", "until")], [job[k] for k in ("reason", "since", "until")])
        machine.agent("pause", "docs")
        job = shown()
        self.assertIn("by the user", job["reason"])
        self.assertEqual(job["until"], "")

        # A server that works long on the end of a run.
        system.proxy.clear()
        fault = system.proxy.add("endjob", proxy.HOLD_REQUEST)
        resumed = machine.start("resume", "docs", "--json")
        system.await_fault(fault, resumed)
        self.assertIn("has not answered", shown()["reason"])
        fault.release()
        self.assertEqual(resumed.wait(60), 0, resumed.out + resumed.err)
        self.assertNotIn("reason", shown())
        resident.stop()


if __name__ == "__main__":
    unittest.main()
