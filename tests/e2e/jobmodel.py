"""What a job may say, given the commands it got and the faults it met: a small model of its rules.

A job's work thread and those who command it act side by side, so one history of commands allows
several streams of events. `explain` looks for an order of moves that the rules allow and that says
exactly what was heard; there is none when the agent broke a rule. Events are state texts, and
("error", state, code).
"""

import collections

PAUSE, STOP = "pause", "stop"
# A command, with the number of events heard before it was given and after it was answered, and the
# moment of the answer.
Command = collections.namedtuple("Command", "verb accepted low high time")
# The process is killed: nothing is heard of what jobs do after `low` events. Times of the kill and
# of the new process' start.
Crash = collections.namedtuple("Crash", "low killed restarted")
# A fault that any run can meet once which began before `high` events, after `low` events.
Outage = collections.namedtuple("Outage", "low high codes")
# When a schedule is due; and whether a start is certain.
Due = collections.namedtuple("Due", "time certain")

# `phase` is what the work thread is up to, or where it has left the job. `pending` was asked of the
# run and is not seen to yet, `late` if it was so at the last step, which did not look. `says` was
# done and is not said yet. `began`: events before the run. `fired`: what resumes a run that paused
# itself is on its way, although its user has paused it meanwhile.
State = collections.namedtuple("State", "phase pending late manual removing says began fired")
NEW = State("absent", None, False, False, False, None, 0, False)
# At work:   begins -> starting -> running -> completing; lost and unended have met a fault, drops
#            and dropping only cancel a paused run, fails has met a fault that ends a restore's run
# At rest:   absent, idle, parked (paused without a run), paused, completed, cancelled, error, deleted
AFTER = {"begins": "starting", "starting": "running", "running": "completing"}
WORKING = ("begins", "starting", "running", "completing", "lost", "unended", "fails")
DROPPING = ("drops", "dropping")
CANCELLED = 1223
RETRY_SECONDS = 30
ENDED = ("completed", "cancelled", "error")


class Rules:
    """Of one job. `once`: it starts when it is submitted; `scheduled`: it has due times."""

    def __init__(self, once=False, scheduled=False, restore=False, run_missed=True):
        self.once, self.scheduled, self.restore, self.run_missed = once, scheduled, restore, run_missed

    def work(self, s, heard, codes):
        """(event or None, state) for each thing that can happen next without a command. A run that
        begins now has `heard` events before it; `codes` are those of faults that it may meet."""
        def rest(phase, said):
            return None, s._replace(phase=phase, pending=None, says=said)

        def fault(phase, more=()):
            return [(("error", s.phase, code), s._replace(phase=phase)) for code in (*codes, *more)]

        if s.says:
            return [(s.says, s._replace(says=None))]
        if s.phase not in WORKING + DROPPING:
            if s.removing:
                return [("deleted", s._replace(phase="deleted", removing=False))]
            # A run that paused itself goes on by itself.
            return [(None, begun(s))] if s.phase == "paused" and (not s.manual or s.fired) else []
        leave = {PAUSE: [rest("paused", "paused")], STOP: [rest("cancelled", "cancelled")]}.get(s.pending, [])
        if s.phase == "begins":
            return [("starting", s._replace(phase="starting", late=bool(s.pending), began=heard))]
        if s.phase in ("starting", "running"):
            # What is pending may come too late for this step, never for the next.
            step = [] if s.late else [(AFTER[s.phase], s._replace(phase=AFTER[s.phase], late=bool(s.pending)))]
            fails = fault("fails") if self.restore and s.phase == "starting" else []
            return step + leave + fault("lost") + fails
        if s.phase == "completing":
            # Nobody looks at what is pending any more, but it breaks off the request.
            return [rest("completed", "completed")] + fault("unended", [CANCELLED] * bool(s.pending))
        if s.phase == "lost":
            return leave or [("pausing", s._replace(pending=PAUSE))]
        if s.phase == "unended":
            return leave or [rest("paused", "paused")]
        if s.phase == "fails":
            return [rest("error", "error")]
        if s.phase == "drops":
            return [("canceling", s._replace(phase="dropping"))]
        return [rest("cancelled", "cancelled")]

    def command(self, s, verb):
        """(accepted, events, state) for each lawful outcome."""
        refused, nothing = (False, [], s), (True, [], s)
        if s.phase == "deleted" or (s.phase == "absent" and verb != "submit"):
            return [refused]
        stopping = s._replace(pending=STOP)
        cancels = (True, [] if s.pending == STOP else ["canceling"], stopping)
        if verb == "submit":
            if s.phase not in ("absent", "idle") + ENDED:
                return [refused]
            said = ["created" if s.phase == "absent" else "updated"] + ["idle"] * self.scheduled
            at = s._replace(phase="idle") if s.phase == "absent" else s
            return [(True, said, begun(at) if self.once else at)]
        if verb == "remove":
            # A paused run is stopped first.
            return [(True, said, at._replace(removing=True)) for _, said, at in
                    ([cancels] if s.phase in WORKING else
                     self.command(s, "stop") if s.phase in ("parked", "paused") else [nothing])]
        if s.phase in WORKING:
            if verb in ("start", "resume"):
                # It is refused once the work thread has seen what is pending.
                return [nothing] + ([refused] if s.pending else [])
            if verb == "stop":
                return [cancels]
            if s.pending == STOP:
                return [nothing, refused]
            return [(True, [] if s.pending else ["pausing"], s._replace(pending=PAUSE, manual=True))]
        if s.phase in DROPPING:
            return [nothing if verb == "stop" else refused]
        if s.phase in ENDED + ("idle",):
            if verb == "start":
                return [(True, [], begun(s))]
            parked = (True, [], s._replace(phase="parked", manual=True))
            return [parked if (verb, s.phase) == ("pause", "idle") else refused]
        if verb in ("start", "resume"):
            return [(True, [], begun(s))]
        if verb == "pause":
            return [(True, [], s._replace(manual=True))]
        if s.phase == "parked":
            return [(True, ["cancelled"], s._replace(phase="cancelled"))]
        return [(True, [], s._replace(phase="drops", pending=None, manual=False, fired=False))]

    def reloaded(self, s):
        """What the next process finds."""
        s = s._replace(says=None)
        # A stop comes too late for a run that completes: its storage may have all of it.
        late = s.phase in ("completing", "unended")
        if s.phase in DROPPING or (s.phase in WORKING and s.pending == STOP and not late):
            return s._replace(phase="cancelled", pending=None)
        if s.phase in WORKING:
            # A pause that its user has seen begin stays the user's.
            return s._replace(phase="paused", pending=None, manual=s.manual and s.pending == PAUSE)
        return s


def begun(s):
    return s._replace(phase="begins", pending=None, late=False, manual=False, fired=False)


def explain(rules, events, inputs, outages=(), dues=(), ends=ENDED + ("deleted",)):
    """None when the rules allow the events; else what cannot be explained.

    `events` are (moment of arrival, event), `inputs` commands and crashes in their order. At the
    end all has happened, and the job rests in a phase of `ends`."""
    start = (0, 0, tuple(dues), NEW)  # events heard, inputs done, dues left, state
    found, waiting, furthest = {start}, [start], start
    while waiting:
        node = waiting.pop()
        heard, done, left, s = node
        furthest = max(furthest, node, key=lambda n: n[:2])
        if (heard, done) == (len(events), len(inputs)) and not any(due.certain for due in left) \
                and s.phase in ends and not s.removing and not s.says:
            return None
        for following in _moves(rules, events, inputs, outages, node):
            if following not in found:
                found.add(following)
                waiting.append(following)
    heard, done = furthest[:2]
    said = [event for _, event in events]
    states = [n[3] for n in found if n[:2] == (heard, done)]
    return (f"after {said[:heard]}\n  what follows breaks the rules: {said[heard:]}\n  it was one of {states}\n"
            f"  commands: {inputs}, after the {done}th\n  outages: {outages}\n  due: {dues}, not yet {furthest[2]}")


def _moves(rules, events, inputs, outages, node):
    heard, done, left, s = node

    def says(spoken, at=heard):
        return [event for _, event in events[at : at + len(spoken)]] == spoken

    for event, state in rules.work(s, heard, _codes(outages, heard, s)):
        if event is None:
            yield heard, done, left, state
        elif says([event]):
            yield heard + 1, done, left, state
    # A timer puts the start into a queue, where nothing takes it back.
    for index, due in enumerate(left):
        others = left[:index] + left[index + 1 :]
        if not due.certain:
            yield heard, done, others, s
        if s.phase != "absent" and (heard == len(events) or events[heard][0] >= due.time):
            for _, spoken, state in rules.command(s, "start"):
                yield heard, done, others, state
    if done == len(inputs):
        return
    given = inputs[done]
    if isinstance(given, Crash):
        if heard == given.low:
            for state, others in _unheard(rules, outages, heard, s, left, given):
                yield heard, done + 1, others, rules.reloaded(state)
        return
    if given.low <= heard <= given.high:
        for accepted, spoken, state in rules.command(s, given.verb):
            if accepted == given.accepted and says(spoken) and heard + len(spoken) <= given.high:
                yield heard + len(spoken), done + 1, left, state
                # A timer that fired before this pause is in the queue already. Less than its time
                # for an event that may have been heard late.
                if s.phase == "paused" and not s.manual and given.time - events[heard - 1][0] > RETRY_SECONDS - 10:
                    yield heard, done + 1, left, state._replace(fired=state.phase == "paused")


def _codes(outages, heard, s):
    """What the run may meet: it began before the outage was over, and that has begun."""
    return sorted({code for o in outages if o.low <= heard and s.began < o.high for code in o.codes})


def _unheard(rules, outages, heard, s, left, crash):
    """(state, dues left) at the kill: jobs may have gone on, and nobody was told."""
    found, waiting = {(s, left)}, [(s, left)]
    while waiting:
        state, dues = waiting.pop()
        following = [(after, dues) for _, after in rules.work(state, heard, _codes(outages, heard, state))]
        for index, due in enumerate(dues):
            others = dues[:index] + dues[index + 1 :]
            if due.time <= crash.killed:
                following += [(after, others) for _, _, after in rules.command(state, "start")]
        new = [f for f in following if f not in found]
        found.update(new)
        waiting += new
    for state, dues in found:
        # What fell due in between is made up for, or left out.
        yield state, tuple(d for d in dues if rules.run_missed or d.time > crash.restarted)
