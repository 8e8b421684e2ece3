"""A day of one resident agent with many jobs: what each is, was told and has said."""

import collections
import contextlib
import datetime
import functools
import json
import os
import random
import sqlite3
import time
import uuid

import proxy
import trees
import verify
from control import Control, Events, Refused
from jobmodel import Command, Crash, Due, Outage, Rules, explain
from layout import WINDOWS_BIN
from machine import windows_path
from process import Process
from resident import Resident
from system import BLOCK, USER, System, write

# What a run may meet while its server is away: resets, ends of stream, refusals.
AWAY = (10024, 10049, 10050, 10051, 10053, 10054, 10057, 10058, 10060, 10061, 10064, 10065, 10067, 10070, 10101)
MACHINE = "machine"  # its host name
AT_REST = ("idle", "paused", "completed", "cancelled", "error", "deleted")
KINDS = {"daily": 2, "weekly": 3, "monthly": 4}
# The definition's filter: which files it takes.
FILTERS = {0: lambda name: True, 1: lambda name: name.endswith(".txt"), 2: lambda name: not name.endswith(".tmp")}


def json_path(path):
    return windows_path(path).replace("\\", "/")


class Job:
    """One job, and all that the model has to know of it."""

    def __init__(self, day, name, rules, definition):
        self.day, self.name, self.rules = day, name, rules
        self.definition = {"id": str(uuid.uuid4()), "name": name, "user": USER, "storage": "web",
                           "location": ""} | definition
        self.inputs, self.outages, self.dues = [], [], []
        self.since = 0  # events before the last command that was accepted
        self.checked = 0  # instances that have been compared with the tree
        self.restores = None

    @property
    def id(self):
        return self.definition["id"]

    # -- what it says ---------------------------------------------------------------------------

    def heard(self, at=None):
        """(moment, event) of all that was heard, or of what came before the `at`th event of the day."""
        found = []
        for moment, event in self.day.events.seen[:at]:
            if event["id"] == self.id:
                code = event.get("error-code")
                found.append((moment, event["state"] if code is None else ("error", event["state"], code)))
        return found

    def until(self, said):
        """Until it has said so since the last command."""
        self.day.events.until(lambda: any(e == said for _, e in self.heard()[self.since:]), f"{self.name} {said}")

    def until_at_rest(self, states=AT_REST, since=None):
        """The state in which it is when something has been heard since the last command."""
        def last():
            heard = self.heard()
            return heard[-1][1] if len(heard) > (self.since if since is None else since) else None
        self.day.events.until(lambda: last() in states, f"the end of {self.name}")
        return last()

    def until_the_end(self):
        """The same, but a run that has paused itself is not at its end."""
        return self.until_at_rest(("completed", "cancelled", "error"))

    # -- commands -------------------------------------------------------------------------------

    def tell(self, verb, refused=False):
        """`refused`: whether it has to be; None for either."""
        self._give(verb, refused, id=self.id)

    def submit(self, refused=False):
        self._give("submit", refused, definition=self.definition)

    def run(self):
        self.submit()
        self.tell("start")

    def _give(self, verb, refused, **arguments):
        self.day.mark()
        low = len(self.heard())
        try:
            self.day.agent.call(verb, **arguments)
            accepted = True
        except Refused as refusal:
            if refused is False:
                raise AssertionError(f"{self.name}: {verb} was refused: {refusal}") from None
            accepted = False
        if refused and accepted:
            raise AssertionError(f"{self.name}: {verb} was not refused")
        if accepted:
            self.since = low
        self.day.mark()
        self.inputs.append(Command(verb, accepted, low, len(self.heard()), time.time()))

    def schedule(self, kind, seconds, submit=None):
        """Submits it to be due soon; again, and later, when the agent took longer than that."""
        while True:
            due = datetime.datetime.now().replace(microsecond=0) + datetime.timedelta(seconds=seconds + 1)
            day = {"daily": 0, "weekly": (due.weekday() + 1) % 7, "monthly": due.day}[kind]
            self.definition["schedule"] = {"kind": KINDS[kind], "start": "0", "day": day, "hour": due.hour,
                                           "minute": due.minute, "second": due.second}
            # One that was in time after all has started meanwhile.
            self.submit(refused=None if self.dues else False)
            if not self.inputs[-1].accepted:
                return
            in_time = datetime.datetime.now() < due
            self.dues.append(Due(due.timestamp(), in_time))
            if in_time:
                return
            seconds *= 2

    def meets(self, codes, since=0):
        """The run that began before now may have met those errors."""
        self.day.mark()
        self.outages.append(Outage(since, len(self.heard()), codes))

    def hold(self, endpoint="uploadblock", action=proxy.HOLD_REQUEST, nth=2):
        """The job's request will wait in the proxy. Of a restore's, the backup's id is in it."""
        about = self.restores.id if self.restores else self.id
        return self.day.proxy.add(endpoint, action, nth=nth, job=about)

    # -- what it has stored ---------------------------------------------------------------------

    @property
    def tree(self):
        return self.day.folder / "trees" / self.name

    @property
    def target(self):
        return self.day.folder / "targets" / self.name

    def takes(self, name):
        return FILTERS[self.definition["filterType"]](name)

    def instances(self):
        """The ids of its completed ones, the oldest first."""
        if self.definition["storage"] == "local":
            found = []
            for path in self.day.vault.glob(f"*/{self.id}/*/instance"):
                document = json.loads(path.read_text())
                if document["state"] == "completed":
                    found.append((document["sequence"], document["jobinstanceid"]))
            return [name for _, name in sorted(found)]
        database = sqlite3.connect(f"file:{self.day.server.data}/catalog.db?mode=ro", uri=True)
        try:
            rows = database.execute("SELECT name FROM instances WHERE definition = ? AND state = ? ORDER BY id",
                                    (self.id, verify.COMPLETED))
            return [row[0] for row in rows]
        finally:
            database.close()

    def differences(self):
        """Between the instances that were not compared yet and the tree."""
        if self.definition["storage"] == "local":
            return []
        new = self.instances()[self.checked:]
        self.checked += len(new)
        return [line for name in new for line in verify.differences(
            self.day.server.data, name, self.tree, *self.day.user_key, left_out=lambda path: not self.takes(path))]

    def restored_differences(self):
        """Between what this restore has brought back and the tree; reading has changed access times."""
        def entries(root, takes):
            return {name: entry._replace(accessed=None) for name, entry in trees.snapshot(root).items()
                    if name and (entry.kind == "folder" or takes(name))}
        return [f"{self.name}: {line}" for line in trees.differences(
            entries(self.restores.tree, self.restores.takes), entries(self.target, lambda name: True))]

    def unheard_ends(self):
        """How many completed runs the model has not heard of; the agent may have died of one."""
        missing = len(self.instances()) - [event for _, event in self.heard()].count("completed")
        return 0 if missing == 1 and any(isinstance(given, Crash) for given in self.inputs) else missing

    def broken_rules(self):
        """What the model has to say against it; None when nothing."""
        outages = self.outages + [Outage(len(self.heard(low)), len(self.heard(high)), AWAY)
                                  for low, high in self.day.outages]
        told = explain(self.rules, self.heard(), self.inputs, tuple(outages), tuple(self.dues))
        return told and f"{self.name}: {told}"


class Day(System):
    """`outages`: while the server was away, as numbers of events of the day."""

    def __init__(self, test, seed):
        super().__init__(test, "day")
        self.random = random.Random(seed)
        self.events, self.jobs, self.outages = Events(), [], []
        self.agent = self._resident = None
        self.vault = self.folder / "vault"
        self.vault.mkdir()
        self._marker = {"id": str(uuid.uuid4()), "name": "marker", "user": USER, "type": 1, "storage": "web",
                        "source": [json_path(self.tree)]}

    # -- the agent ------------------------------------------------------------------------------

    def start_agent(self):
        self._resident = Resident(self.machine)
        self.agent = Control(self.machine.data)
        self.events.follow(self.agent)
        self.mark()

    def end_agent(self):
        """As Ctrl+C does."""
        self.mark()
        self._resident.stop(300)
        self.events.leave()

    @contextlib.contextmanager
    def crashed(self):
        """The agent is killed, and started again after the block."""
        self._resident.kill()
        killed = time.time()
        self.events.leave()
        heard = [(job, len(job.heard())) for job in self.jobs]
        yield
        restarted = time.time()
        for job, low in heard:
            job.inputs.append(Crash(low, killed, restarted))
        self.start_agent()

    def mark(self):
        """What was said before is heard after it: events come in order, and this makes one."""
        before = len(self.events.seen)
        self.agent.call("submit", definition=self._marker)
        self.events.until(lambda: any(e["id"] == self._marker["id"] for _, e in self.events.seen[before:]), "a mark")

    def story(self):
        """For whoever has to find out what went wrong."""
        return "\n".join(f"{job.name} ({job.id}) said {[event for _, event in job.heard()]}, was told {job.inputs}"
                         for job in self.jobs)

    def counted(self):
        """What the agent's process has at least, of some looks: threads, descriptors, and handles by
        their kind. Others of its threads come and go."""
        return functools.reduce(lambda a, b: a & b, [self._count() for _ in range(3)])

    def _count(self):
        seen = Process(["wine", str(WINDOWS_BIN / "handles.exe"), str(self.agent.call("status")["pid"])],
                       env=self.machine.environment, stdin="")
        if seen.wait(60) != 0:
            raise AssertionError(f"handles.exe: {seen.out}{seen.err}")
        counts = collections.Counter({"handles of kind " + kind: int(number)
                                      for kind, number in (line.split() for line in seen.out.splitlines())})
        for name, folder in (("threads", "task"), ("descriptors", "fd")):
            counts[name] = len(os.listdir(f"/proc/{self._resident.process.pid}/{folder}"))
        return counts

    @functools.cached_property
    def user_key(self):
        return self.machine.user_key(USER)

    # -- the server -----------------------------------------------------------------------------

    @contextlib.contextmanager
    def outage(self):
        """The server dies at once, and comes back after the block."""
        self.mark()
        low = len(self.events.seen)
        self.server.kill()
        yield
        self.server.start()
        self.mark()
        self.outages.append((low, len(self.events.seen)))

    def reach(self, fault):
        if not fault.reached.wait(300):
            raise AssertionError(f"{fault.endpoint} never came")

    # -- jobs -----------------------------------------------------------------------------------

    def backup(self, name, once=False, due=False, local=False, larger=False, files=0, run_missed=True):
        """With a tree of its own, and by chance compressed and filtered. Neither `once` nor `due`: manual."""
        filter_type = self.random.choice(list(FILTERS))
        job = Job(self, name, Rules(once=once, scheduled=due, run_missed=run_missed), {
            "type": 1, "filterType": filter_type, "extensions": [[], ["txt"], ["tmp"]][filter_type],
            "compress": self.random.random() < 0.5, "schedule": {"kind": 1, "start": "1"} if once else {"kind": 5},
            "runMissed": run_missed})
        job.definition["source"] = [json_path(job.tree)]
        if local:
            job.definition |= {"storage": "local", "location": json_path(self.vault)}
        self._plant(job.tree, larger, files)
        self.jobs.append(job)
        return job

    def restore(self, name, backup):
        job = Job(self, name, Rules(once=True, restore=True), {
            "type": 2, "storage": backup.definition["storage"], "location": backup.definition["location"],
            "machine": MACHINE, "jobdefinitionid": backup.id, "jobinstanceid": backup.instances()[-1], "source": [],
            "prefix": json_path(backup.tree), "conflict": 2})
        job.restores = backup
        job.definition["target"] = json_path(job.target)
        self.jobs.append(job)
        return job

    def _plant(self, root, larger, files):
        """Every filter takes two blocks or more of it."""
        old = 1_500_000_000_123_456_700
        write(root / "noise.txt", self.random.randbytes((20 if larger else 2) * BLOCK + 777), mtime=old)
        write(root / "noise.dat", self.random.randbytes(BLOCK + 15), mtime=old)
        write(root / "Grüße & söhne's 50% [1] {x} #;.txt", b"umlauts", mtime=old)
        write(root / "sub" / "text.txt", b"the same line again and again\n" * 5000, mtime=old)
        write(root / "sub" / "empty.dat", b"", mtime=old)
        write(root / "sub" / "rubbish.tmp", b"left out by some", mtime=old)
        (root / "empty folder" / "in it").mkdir(parents=True)
        for number in range(files):
            write(root / f"many {number % 7}" / f"{number}.txt", self.random.randbytes(number), mtime=old + number)
