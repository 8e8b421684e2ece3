"""The model tells lawful streams of events from others."""

import unittest

from jobmodel import Command, Crash, Due, Outage, Rules, explain

RUN = ["starting", "running", "completing", "completed"]
LOST = ("error", "running", 10054)


def told(*rows):
    """Commands as (verb, low, high), a leading "!" when it was refused."""
    return [Command(v.lstrip("!"), v[0] != "!", low, high, 5) for v, low, high in rows]


ONCE, MANUAL, SCHEDULED = Rules(once=True), Rules(), Rules(scheduled=True)
SUBMIT = [("submit", 0, 1)]
OUTAGE = [Outage(3, 4, [10054])]
# name, rules, events, inputs, what else happened, whether that is lawful
ROWS = [
    ("a run", ONCE, ["created", *RUN], told(*SUBMIT), {}, True),
    ("a step left out", ONCE, ["created", "starting", *RUN[2:]], told(*SUBMIT), {}, False),
    ("an end without a run", ONCE, ["created", "completed"], told(*SUBMIT), {}, False),
    ("a run that nobody asked for", MANUAL, ["created", *RUN], told(*SUBMIT), {}, False),
    ("it never ends", ONCE, ["created", *RUN[:2]], told(*SUBMIT), {}, False),
    ("paused and resumed", ONCE, ["created", "starting", "running", "pausing", "paused", *RUN],
     told(*SUBMIT, ("pause", 3, 4), ("pause", 3, 4), ("resume", 5, 5)), {}, True),
    ("not resumed, yet it goes on", ONCE, ["created", "starting", "running", "pausing", "paused", *RUN],
     told(*SUBMIT, ("pause", 3, 4)), {}, False),
    ("paused without pausing", ONCE, ["created", "starting", "running", "paused", *RUN],
     told(*SUBMIT, ("pause", 3, 3), ("resume", 4, 4)), {}, False),
    ("a pause too late for the last step", ONCE, ["created", "starting", "running", "pausing", *RUN[2:]],
     told(*SUBMIT, ("pause", 3, 4)), {}, True),
    ("a pause overlooked for two steps", ONCE, ["created", "starting", "pausing", *RUN[1:]],
     told(*SUBMIT, ("pause", 2, 3)), {}, False),
    ("stopped and started", ONCE, ["created", "starting", "running", "canceling", "cancelled", *RUN],
     told(*SUBMIT, ("stop", 3, 4), ("!resume", 5, 5), ("start", 5, 5)), {}, True),
    ("a refusal against the rules", ONCE, ["created", *RUN], told(*SUBMIT, ("!start", 5, 5)), {}, False),
    ("removed while running", ONCE, ["created", "starting", "running", "canceling", "cancelled", "deleted"],
     told(*SUBMIT, ("remove", 3, 4)), {}, True),
    ("removed while paused", ONCE, ["created", "starting", "running", "pausing", "paused", "canceling", "cancelled",
                                    "deleted"], told(*SUBMIT, ("pause", 3, 4), ("remove", 5, 5)), {}, True),
    ("removed and never gone", ONCE, ["created", *RUN], told(*SUBMIT, ("remove", 5, 5)), {}, False),
    ("the network fails", ONCE, ["created", "starting", "running", LOST, "pausing", "paused", *RUN], told(*SUBMIT),
     {"outages": OUTAGE}, True),
    ("it fails without an outage", ONCE, ["created", "starting", "running", LOST, "pausing", "paused", *RUN],
     told(*SUBMIT), {}, False),
    ("it fails a run that began later", ONCE, ["created", *2 * (*RUN[:2], LOST, "pausing", "paused"), *RUN],
     told(*SUBMIT), {"outages": OUTAGE}, False),
    ("due", SCHEDULED, ["created", "idle", *RUN], told(("submit", 0, 2)), {"dues": [Due(0, True)]}, True),
    ("too early", SCHEDULED, ["created", "idle", *RUN], told(("submit", 0, 2)), {"dues": [Due(9, True)]}, False),
    ("forgotten", SCHEDULED, ["created", "idle"], told(("submit", 0, 2)),
     {"dues": [Due(0, True)], "ends": ["idle"]}, False),
    ("killed, unheard", ONCE, ["created", "starting", *RUN], [*told(*SUBMIT), Crash(2, 3, 4)], {}, True),
    ("killed while it completes, stopped too late", ONCE, ["created", *RUN[:3], "canceling", *RUN],
     [*told(*SUBMIT, ("stop", 4, 5)), Crash(5, 6, 7)], {}, True),
    ("killed after a stop in time, yet it goes on", ONCE, ["created", "starting", "canceling", *RUN],
     [*told(*SUBMIT, ("stop", 2, 3)), Crash(3, 4, 5)], {}, False),
    ("killed in the user's pause, yet it goes on", ONCE, ["created", "starting", "running", "pausing", "paused", *RUN],
     [*told(*SUBMIT, ("pause", 3, 4)), Crash(5, 3, 4)], {}, False),
]


class JobModelTest(unittest.TestCase):
    def test_streams(self):
        for name, rules, events, inputs, more, lawful in ROWS:
            with self.subTest(name):
                heard = [(moment, event) for moment, event in enumerate(events)]
                explained = explain(rules, heard, inputs, **more)
                self.assertEqual(explained is None, lawful, explained)


if __name__ == "__main__":
    unittest.main()
