"""What the service owes: all that it has acknowledged, and what of it may now lawfully be missing.

This is the one place that judges. Clients and the audit tell it what was asked and answered; it
raises Wrong when the service has broken its word:

- A 200 survives the death of the process. An instance whose request lost its answer may be in either
  of two states (`Instance.states`) until the service says in which.
- A power cut, or a strike at the catalog's log, may take what was acknowledged of instances that are
  not completed (`Instance.foggy`); the service may refuse to go on with those, but not complete them
  short or wrong. What was completed stays completed.
- A strike at package files makes the packages that it hit `doubtful`: the service may say that they
  are damaged, never give other bytes. Once it has said so (`reported`), it asks for the file again.
- Everything else is there, byte for byte.
"""

import copy

from content import block_count
from journal import Wrong

PENDING, RUNNING, COMPLETED, CANCELLED, ABSENT = "pending", "running", "completed", "cancelled", "absent"
# What ListInstances calls them.
SHOWN = {PENDING: RUNNING, RUNNING: RUNNING, COMPLETED: COMPLETED, CANCELLED: CANCELLED, ABSENT: ABSENT}
FILE, FOLDER = "file", "folder"


class Package:
    """The stored bytes of a file; instances that carry the file over share it."""

    def __init__(self, size):
        self.size = size
        self.blocks = []  # the names of the acknowledged ones, see content.py
        self.doubtful = self.reported = False

    @property
    def whole(self):
        return len(self.blocks) == block_count(self.size)


class Entry:
    """A path of an instance. It is awaited as long as it has no kind."""

    def __init__(self, mtime, compress):
        self.kind, self.numbers, self.mtime, self.compress = None, (0,) * 9, mtime, compress
        self.package = Package(0)
        self.own = True      # not carried over
        self.unsure = False  # a request about it lost its answer: it is to be sent again

    @property
    def whole(self):
        return self.kind is not None and self.package.whole


class Instance:
    def __init__(self, name, user, machine, job, compress, totals):
        self.name, self.user, self.machine, self.job = name, user, machine, job
        self.compress, self.totals = compress, totals
        self.starttime, self.endtime = "start of " + name[:30], ""
        self.states, self.foggy, self.completion = {ABSENT}, False, 0
        self.base = None
        self.relisting = False  # a new list has been begun, and it is not known how far it came
        self.entries, self.errors, self.unsure_errors = {}, {}, {}

    def is_only(self, state):
        return self.states == {state}

    @property
    def settled(self):
        return self.is_only(COMPLETED) or self.is_only(CANCELLED)

    def incomplete(self):
        return {path for path, entry in self.entries.items() if not entry.whole and path not in self.errors}

    def excused(self, path):
        """Whether the service may say of the path that it is not whole, though it was acknowledged."""
        entry = self.entries.get(path)
        return self.foggy or entry is not None and entry.package.doubtful

    @property
    def harmed(self):
        return self.foggy or any(entry.package.doubtful for entry in self.entries.values())


class Model:
    """Of one data folder. An instance is changed by its own client alone, or while all are at rest."""

    def __init__(self):
        self.instances = {}
        self.restores = {}  # id -> user
        self.completions = 0

    def all(self):
        return list(self.instances.values())  # at once, as others may be adding to it

    def copy(self):
        """For a copy of the data folder that is taken at this moment."""
        return copy.deepcopy(self)

    # Requests that change an instance's state: `may_become` before they are sent, `became` after 200.

    def open(self, instance):
        """Before a request that makes the instance, if it isn't there."""
        if ABSENT in instance.states:
            instance.base = self.base(instance)
        self.instances[instance.name] = instance
        instance.states.add(PENDING)

    def base(self, instance):
        done = [i for i in self.all()
                if i.completion and (i.user, i.machine, i.job) == (instance.user, instance.machine, instance.job)]
        return max(done, key=lambda i: i.completion, default=None)

    @staticmethod
    def may_become(instance, state):
        instance.states.add(state)

    def became(self, instance, state):
        instance.states = {state}
        if state == COMPLETED and not instance.completion:
            instance.errors |= instance.unsure_errors  # all had been answered before it was ended
            short = instance.incomplete()
            if short:
                raise Wrong(f"{instance.name} was completed without {sorted(short)[:5]}")
            self.completions += 1
            instance.completion = self.completions
            instance.foggy = False
            instance.entries = {path: entry for path, entry in instance.entries.items() if entry.whole}

    def offered(self, instance, files, first, asked):
        """FilesToBackup was answered with the paths `asked` for."""
        if first:
            instance.entries.clear()
        wanted = set(asked)
        if [path for path, _ in files if path in wanted] != asked:
            raise Wrong(f"{instance.name}: asked for {asked}, which were not offered so")
        for path, mtime in files:
            known = instance.base and instance.base.entries.get(path)
            same = (known is not None and known.kind == FILE and known.mtime == mtime
                    and path not in instance.base.errors)
            entry = Entry(mtime, instance.compress)
            if path not in wanted:
                if not same:
                    raise Wrong(f"{instance.name}: {path} is not asked for, but no earlier backup has it")
                if known.package.reported:
                    raise Wrong(f"{instance.name}: {path} is not asked for, although its package was reported damaged")
                entry.kind, entry.numbers, entry.compress = FILE, known.numbers, known.compress
                entry.package, entry.own = known.package, False
            elif same and not known.package.doubtful and not instance.foggy:
                raise Wrong(f"{instance.name}: {path} is asked for, although {instance.base.name} has it")
            instance.entries[path] = entry

    # uploadfile and uploadblock: `..._sent` before, `..._stored` after 200.

    def info_sent(self, instance, path, kind, numbers, mtime, size):
        entry = instance.entries.setdefault(path, Entry(mtime, instance.compress))
        same = entry.mtime == mtime and entry.package.size == size
        if not (entry.own and entry.kind == FILE == kind and same):
            entry.package, entry.own = Package(size), True
        entry.kind, entry.numbers, entry.mtime, entry.unsure = kind, numbers, mtime, True

    @staticmethod
    def info_stored(instance, path, blocks):
        """uploadfile was answered with how many blocks of the file are stored."""
        entry = instance.entries[path]
        known = entry.package.blocks
        if blocks < len(known) and not instance.excused(path):
            raise Wrong(f"{instance.name}: {blocks} blocks of {path} are stored, not {len(known)}")
        # More than known are those whose answers were lost; they are sent again.
        del known[blocks:]
        entry.unsure = False

    @staticmethod
    def block_sent(instance, path, number, name):
        """A block that is there already and comes again changes nothing."""
        blocks = instance.entries[path].package.blocks
        if number > len(blocks) or blocks[number - 1] != name:
            del blocks[number - 1:]
            instance.entries[path].unsure = True

    @staticmethod
    def block_stored(instance, path, number, name):
        entry = instance.entries[path]
        if number > len(entry.package.blocks):
            entry.package.blocks.append(name)
        entry.unsure = False

    @staticmethod
    def errors_stored(instance, errors):
        instance.errors |= errors
        instance.unsure_errors = {}

    def end_refused(self, instance, named):
        """endjob was answered 409 with these incomplete paths, or none."""
        short = instance.incomplete()
        for path in named:
            if path not in short and not instance.excused(path):
                raise Wrong(f"{instance.name}: {path} is said to be incomplete, but all of it was acknowledged")
            if path in instance.entries:
                instance.entries[path].package = Package(0)
                instance.entries[path].kind = None
        if not named and not instance.harmed:
            raise Wrong(f"{instance.name} cannot be ended, for no reason")
        if named and short - set(named):
            raise Wrong(f"{instance.name}: {sorted(short - set(named))[:5]} are not said to be incomplete")

    # What the service says of itself.

    def listed(self, user, items):
        """ListInstances was answered so, and nothing is under way."""
        owned = {i.name: i for i in self.all() if i.user == user}
        seen = {}
        for item in items:
            name = item["jobinstanceid"]
            if name not in owned or name in seen:
                raise Wrong(f"{name} is listed, but it was never made, or twice")
            seen[name] = item
        for name, instance in owned.items():
            self._settle(instance, seen.get(name))
        for name in [n for n, i in owned.items() if i.is_only(ABSENT)]:
            del self.instances[name]

    def _settle(self, instance, item):
        shown = item["state"] if item else ABSENT
        states = {state for state in instance.states if SHOWN[state] == shown}
        if not states:
            raise Wrong(f"{instance.name} is {shown}; it must be {' or '.join(sorted(instance.states))}")
        if states == {COMPLETED}:
            self.became(instance, COMPLETED)
            self._compare(instance, item)
        instance.states = states

    @staticmethod
    def _compare(instance, item):
        expected = {"machine": instance.machine, "jobdefinitionid": instance.job, "starttime": instance.starttime,
                    "endtime": instance.endtime, "totalfiles": instance.totals[0],
                    "totaldirectories": instance.totals[1], "totalsize": instance.totals[2],
                    "errors": len(instance.errors)}
        for key, value in expected.items():
            if item[key] != value:
                raise Wrong(f"{instance.name}: {key} is {item[key]!r}, not {value!r}")

    def damage_reported(self, instance, path):
        package = instance.entries[path].package
        if not package.doubtful:
            raise Wrong(f"{instance.name}: {path} is said to be damaged, but nothing was done to it")
        package.reported = True

    # What strikes do.

    def power_cut(self):
        """Whatever was not completed may have lost uploads. That it was opened, started and cancelled, and
        what had failed of it, was not to be lost."""
        self.restores.clear()
        for instance in self.all():
            if not instance.is_only(COMPLETED):
                instance.foggy = True

    def catalog_rewound(self):
        """The catalog is that of this model, the packages are of later: what was not completed then may
        have been overwritten since, and may be given up by the service."""
        for instance in self.all():
            if not instance.is_only(COMPLETED):
                instance.foggy = True
                instance.states.add(CANCELLED)
                self.spoil((instance.name, path) for path, entry in instance.entries.items() if entry.own)

    def spoil(self, packages):
        """The bytes of these (instance, path) pairs have been struck."""
        for name, path in packages:
            instance = self.instances.get(name)
            if instance and path in instance.entries:
                instance.entries[path].package.doubtful = True
