"""An eight-hour day in minutes: fifty jobs of all kinds on one resident agent and one server.

Schedules fall due, users pause, stop, remove and submit while jobs run, the server dies five times,
the agent once. Then every job has ended as it was told to, every backup is what was on the disk,
nothing is left over, and each job has said what its rules allow, no more and no less. Commands are
placed by requests that the proxy holds, or by chance, which the rules allow for. DORVO_SEED repeats
the choices of a run that failed.
"""

import os
import random
import sys
import time
import unittest

import proxy
from day import Day
from system import SystemTest

# Handles of a kind that differ from day to day: a lock on which two threads have met has an event
# from then on, and a connection may just be closing. What each run, pause, end or removal left
# behind would be more.
BY_CHANCE = 6


class DayTest(SystemTest):
    def test_fifty_jobs(self):
        seed = int(os.environ.get("DORVO_SEED", random.randrange(10**6)))
        print(f"DORVO_SEED={seed}", file=sys.stderr, flush=True)
        day = Day(self, seed)
        try:
            self.live(day)
        except BaseException:
            print(day.story(), file=sys.stderr)
            raise

    def live(self, day):
        temporary = self.temporary_files(day)
        day.start_agent()
        for part in (self.directly, self.in_folders, self.crash, self.by_schedule, self.under_way, self.at_the_end,
                     self.at_rest, self.behind_the_proxy, self.restores, self.in_passing):
            part(day)
        self.evening(day)
        self.assertGreaterEqual(len(day.jobs), 50)
        self.assertEqual(len(day.outages), 5)
        self.night(day)
        day.end_agent()
        self.check(day)
        self.assertEqual([str(p) for p in (day.machine.data / "job").glob("*/tmp/**/*") if p.is_file()], [])
        self.assertEqual([str(p) for p in (day.machine.data / "job").glob("**/*.new")], [])
        self.assertEqual(self.temporary_files(day), temporary)

    # -- the server is restarted before the agent's eyes ------------------------------------------

    def directly(self, day):
        """It hangs and dies, and comes back on the same port: resets and refused connections."""
        day.machine.agent("server", "set", "%s:%d" % day.server.address, "--keep-login")
        stalled = [day.backup(f"stalled {n}", once=True) for n in range(4)]
        refused = day.backup("refused", once=True)
        day.server.process.signal(19)
        for job in stalled:
            job.submit()
            job.until("starting")
        with day.outage():
            for job in stalled:
                job.until("paused")
            refused.submit()
            refused.until("paused")
        day.random.shuffle(stalled)
        # Their own timers may be faster.
        stalled[0].tell("resume", refused=None)
        stalled[1].tell("start")
        # The others go on by themselves; and the server dies where chance will have it.
        running = [day.backup("cut off 1", larger=True), day.backup("cut off 2"), day.backup("cut off 3", files=200)]
        for job in day.random.sample(running, 3):
            job.run()
        running[0].until("running")
        with day.outage():
            pass
        day.machine.agent("server", "set", "%s:%d" % day.proxy.address, "--keep-login")

    def in_folders(self, day):
        for n in range(3):
            day.backup(f"folder {n}", once=True, local=True, files=100 * n).submit()
        interrupted = day.backup("folder interrupted", local=True, larger=True, files=200)
        interrupted.run()
        interrupted.tell("pause", refused=None)
        if interrupted.until_at_rest() == "paused":
            interrupted.tell("resume")
        day.backup("first").run()

    # -- the agent is killed ----------------------------------------------------------------------

    def crash(self, day):
        cut = [day.backup("killed"), day.backup("killed, then stopped"), day.backup("killed while paused")]
        restored = day.restore("killed restore", self.completed(day, "first"))
        missed = [day.backup("missed", due=True), day.backup("left out", due=True, run_missed=False)]
        faults = self.held(day, cut) + self.held(day, [restored], endpoint="DownloadFileBlock")
        for job in [*cut, restored]:
            job.until("running")
        cut[2].tell("pause")
        cut[2].until("paused")
        self.busy(day, "killed while it waits")
        for job in missed:
            job.schedule("daily", 15)
        with day.crashed():
            for fault in faults:
                fault.abandon()
            # The one thing that only time brings about.
            while time.time() <= max(due.time for job in missed for due in job.dues):
                time.sleep(0.1)
        cut[1].tell("stop", refused=None)

    # -- schedules --------------------------------------------------------------------------------

    def by_schedule(self, day):
        for kind in ("daily", "weekly", "monthly"):
            day.backup(kind, due=True).schedule(kind, 5)
        day.backup("folder daily", due=True, local=True).schedule("daily", 5)
        # A due time goes on with the run that its user has paused, if it comes later than the pause.
        paused = day.backup("due while paused", due=True)
        fault = paused.hold()
        paused.schedule("daily", 5)
        paused.tell("start")
        day.reach(fault)
        paused.tell("pause")
        paused.until("paused")
        fault.abandon()

    # -- commands to runs that wait in the proxy ----------------------------------------------------

    def under_way(self, day):
        names = ("paused", "paused twice", "stopped while paused", "removed while paused", "stopped", "removed",
                 "submitted again")
        jobs = {name: day.backup(name) for name in names}
        faults = {name: job.hold() for name, job in jobs.items()}
        for name in day.random.sample(names, len(names)):
            jobs[name].run()
        for name in names:
            day.reach(faults[name])
            jobs[name].until("running")
        for name in names[:4]:
            jobs[name].tell("pause")
            if name == "paused twice":
                jobs[name].tell("pause")
            jobs[name].until("paused")
        jobs["paused"].tell("resume")
        jobs["paused twice"].tell("start")

        for name in ("stopped", "stopped while paused"):
            jobs[name].tell("stop")
            jobs[name].until("cancelled")
            jobs[name].tell("resume", refused=True)
            jobs[name].tell("pause", refused=True)
            jobs[name].tell("start")
        for name in ("removed", "removed while paused"):
            jobs[name].tell("remove")
            jobs[name].until("deleted")
            jobs[name].tell("start", refused=True)
            self.assertFalse(day.machine.job_folder(jobs[name].id).exists())

        again = jobs["submitted again"]
        again.submit(refused=True)
        again.tell("start")  # it runs already
        for fault in faults.values():
            fault.release()
        self.assertEqual(again.until_the_end(), "completed")
        self.assertEqual(again.differences(), [])
        again.definition |= {"filterType": 1, "extensions": ["txt"]}
        again.run()

    def at_the_end(self, day):
        """Pauses and stops that come when only the end is missing."""
        for name, verb in (("paused at the end", "pause"), ("stopped at the end", "stop")):
            job = day.backup(name)
            fault = job.hold("endjob", proxy.HOLD_REQUEST, nth=1)
            job.run()
            day.reach(fault)
            job.until("completing")
            job.tell(verb)
            rest = job.until_at_rest()
            fault.release()
            if rest != "completed":
                job.tell("start")

    def at_rest(self, day):
        """Commands to jobs without a run, and to one that has paused itself."""
        parked = day.backup("parked")
        parked.submit()
        parked.tell("resume", refused=True)
        parked.tell("stop", refused=True)
        parked.tell("pause")
        parked.submit(refused=True)
        parked.tell("stop")
        parked.until("cancelled")
        parked.tell("start")

        # From now on it is the user's pause, and lasts until the evening.
        self.busy(day, "busy server").tell("pause", refused=None)

    def busy(self, day, name):
        """A job that has paused itself."""
        job = day.backup(name)
        day.proxy.add("uploadfile", proxy.ANSWER, status=503, nth=2, job=job.id)
        job.run()
        job.until("paused")
        job.meets([503])
        return job

    # -- the server is restarted behind the proxy -----------------------------------------------------

    def held(self, day, jobs, **where):
        """Starts them, and waits until each is held there."""
        faults = [job.hold(**where) for job in jobs]
        for job in jobs:
            job.submit() if job.restores else job.run()
        for job, fault in zip(jobs, faults):
            day.reach(fault)
        return faults

    def behind_the_proxy(self, day):
        for names, where in ((("reset 1", "reset 2"), {}),
                             (("reset at the end",), {"endpoint": "endjob", "action": proxy.HOLD_LOST, "nth": 1})):
            jobs = [day.backup(name) for name in names]
            faults = self.held(day, jobs, **where)
            with day.outage():
                for fault in faults:
                    fault.release()
                for job in jobs:
                    job.until("paused")
        jobs[0].tell("resume", refused=None)

    # -- restores -------------------------------------------------------------------------------------

    def completed(self, day, name):
        job, = (job for job in day.jobs if job.name == name)
        self.assertEqual(job.until_the_end(), "completed", name)
        return job

    def restores(self, day):
        local = [job for job in day.jobs if job.definition["storage"] == "local"]
        for job in local:
            day.restore("back from " + job.name, self.completed(day, job.name)).submit()
        lost = [day.restore("reset restore", self.completed(day, "submitted again")),
                day.restore("paused restore", self.completed(day, "paused twice"))]
        faults = self.held(day, lost, endpoint="DownloadFileBlock")
        lost[1].tell("pause")
        lost[1].until("paused")
        with day.outage():
            for fault in faults:
                fault.release()
            lost[0].until("paused")
        lost[1].tell("resume")

    def in_passing(self, day):
        """Whatever they are about to do when it comes."""
        jobs = [day.backup(f"removed in passing {n}", files=50) for n in range(8)]
        for job in jobs:
            job.run()
            if day.random.random() < 0.3:
                job.tell("pause", refused=None)
            job.tell("remove")
        for job in jobs:
            job.until("deleted")

    # -- the end of the day -------------------------------------------------------------------------

    def evening(self, day):
        """Every job that was not removed comes to a completed end."""
        for job in self.kept(day):
            last = job.until_at_rest(since=0)
            by_user = job.name in ("busy server", "killed while paused", "due while paused")
            if last in ("idle", "cancelled", "error") or (last == "paused" and by_user):
                job.tell("start")
        for job in self.kept(day):
            self.assertEqual(job.until_the_end(), "completed", job.name)
        self.compare(day)
        states = {job["id"]: job["state"] for job in day.machine.listing("jobs")}
        self.assertEqual({job.id: states[job.id] for job in self.kept(day)},
                         {job.id: "completed" for job in self.kept(day)})

    def kept(self, day):
        return [job for job in day.jobs if not job.name.startswith("removed")]

    def compare(self, day):
        """Every backup with its tree: those of the server as stored, those in the folder as restored."""
        for job in self.kept(day):
            with self.subTest(job=job.name):
                if job.restores:
                    self.assertEqual(job.restored_differences(), [])
                    continue
                self.assertEqual(job.differences(), [])
                self.assertEqual(job.unheard_ends(), 0)

    def night(self, day):
        """All jobs once more: the agent then has as many threads and handles as one that has only just
        been started and has done no more than that."""
        self.once_more(day)
        old = day.counted()
        day.end_agent()
        day.start_agent()
        self.once_more(day)
        new = day.counted()
        self.assertEqual({what: (count, new[what]) for what, count in old.items()
                          if count > new[what] + (0 if what == "threads" else BY_CHANCE)}, {})

    def once_more(self, day):
        """The first that falls due falls due again, the others are started."""
        backups = [job for job in self.kept(day) if not job.restores]
        by_schedule = [job for job in backups if job.rules.scheduled][:1]
        for job in by_schedule:
            job.schedule("daily", 3)
        for job in backups:
            if job not in by_schedule:
                job.tell("start")
        for job in backups:
            self.assertEqual(job.until_the_end(), "completed", job.name)
        restores = [job for job in day.jobs if job.restores]
        for job in restores:
            job.definition["jobinstanceid"] = job.restores.instances()[-1]
            job.submit()
        for job in restores:
            self.assertEqual(job.until_the_end(), "completed", job.name)
        self.compare(day)

    def temporary_files(self, day):
        drive = day.machine.prefix / "drive_c"
        return sorted(str(p) for folder in (*drive.glob("users/*/Temp"), *drive.glob("users/*/AppData/Local/Temp"),
                                            drive / "windows" / "temp") for p in folder.rglob("*"))

    def check(self, day):
        broken = [told for job in day.jobs if (told := job.broken_rules())]
        self.assertEqual(broken, [], "\n".join(broken))


if __name__ == "__main__":
    unittest.main()
