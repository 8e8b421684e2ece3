"""One machine that backs up and restores without end, as agents do: a thread with choices of its own."""

import random
import threading

from content import BLOCK, block_count, block_size, content
from gate import Over, Rewound
from journal import Wrong
from model import ABSENT, CANCELLED, COMPLETED, FILE, FOLDER, PENDING, RUNNING, Instance
from reader import Reader, require
from session import Broken

PASSWORD = "secret"
BATCH = 9  # files of one increment check
HUGE = 40 << 30  # bytes of a package that only is announced: two do not fit into one container


class Left(Exception):
    """The client leaves a run where it is; somebody may come back to it."""


class Client:
    """`world` has the model, the gate, the journal, and the way to the service (connect)."""

    def __init__(self, world, name, user, seed):
        self.world, self.name, self.user, self.seed = world, name, user, f"{seed}/{name}"
        self.gate = world.gate
        self.thread = threading.Thread(target=self.run, name=name, daemon=True)
        self.session, self.session_life = None, 0
        self.era = self.login_era = 0
        self.rng = random.Random(self.seed)
        # What breaks in, so that it does not change what is chosen otherwise.
        self.accidents = random.Random(self.seed + "/accidents")
        self.trees = {f"{name}-job-{job}": {} for job in "ab"}  # job -> path -> mtime, 0 for a folder
        self.runs = self.steps = self.names = 0

    @property
    def model(self):
        return self.world.model

    def run(self):
        failure = None
        try:
            while True:
                self.turn()
        except Over:
            pass
        except Exception as error:  # whatever it is, the one that strikes must not wait for ever
            failure = error
        finally:
            if self.session:
                self.session.close()
            self.gate.ended(failure)

    def turn(self):
        """One thing that a machine does; each is drawn from a seed of its own."""
        self.runs += 1
        self.rng = random.Random(f"{self.seed}/{self.runs}")
        self.steps = self.rng.randrange(40) if self.rng.random() < 0.15 else -1
        self.era = self.gate.era
        doing = self.rng.choices((self.backup, self.resume, self.restore), (6, 3, 2))[0]
        try:
            doing()
        except Rewound:
            self.note("begins anew")
        except Left:
            self.note("leaves")

    def note(self, what):
        self.world.journal.note(self.name, what)

    # One request

    def ask(self, verb, *arguments, before=None, may_leave=False):
        """The answer, however many lives of the service it takes; `before` runs before each try."""
        if may_leave and self.steps == 0:
            raise Left
        self.steps -= 1
        while True:
            self.gate.enter(self.era)
            if before:
                before()
            answer = self.attempt(verb, arguments)
            struck = self.gate.shut
            if answer and (answer.status == 200 or not struck):
                if answer.status < 500:
                    return answer
                if not self.gate.scarce:
                    raise Wrong(f"{verb} {arguments[:2]}: {answer}")
            if may_leave and self.accidents.random() < 0.2:
                raise Left
            if answer and not struck:
                self.gate.await_next_life()

    def attempt(self, verb, arguments):
        """One try; None when there was no whole answer, as a strike explains."""
        shown = " ".join(str(a)[:60] for a in arguments if not isinstance(a, bytes))
        try:
            if not self.session or self.session_life != self.gate.life:
                self.connect()
            answer = getattr(self.session, verb)(*arguments)
            self.note(f"{verb} {shown} -> {answer}")
            return answer
        except Broken as error:
            self.note(f"{verb} {shown} -> {error}")
            if not self.gate.shut:
                raise Wrong(f"the connection broke, though nothing was done to the service: {error}") from error
            return None

    def connect(self):
        """A new connection; the login stays the same as long as the service must know it."""
        cookie = self.session.cookie if self.session and self.login_era == self.era else ""
        if self.session:
            self.session.close()
        self.session = self.world.session(self.user, self.name)
        self.session.cookie, self.session_life = cookie, self.gate.life
        if not cookie:
            answer = self.session.login(PASSWORD)
            if answer.status != 200 and not self.gate.shut:
                raise Wrong(f"login: {answer}")
            self.login_era = self.era

    # A backup

    def backup(self):
        job = self.rng.choice(sorted(self.trees))
        self.change(self.trees[job])
        folders = sum(1 for mtime in self.trees[job].values() if not mtime)
        instance = Instance(f"{self.name}-run-{self.runs}", self.user, self.name, job, self.rng.random() < 0.5,
                            (len(self.trees[job]) - folders, folders, self.rng.randrange(1 << 40)))
        self.fill(instance)

    def change(self, tree):
        """Files come, change and go between two runs."""
        for _ in range(self.rng.choice((0, 1, 3, 12))):
            self.names += 1
            name = self.rng.choice(("file", "f\u00fc\u00df", "a b", "\U0001f4be", "x" * 200)) + str(self.names)
            folder = "C:\\" + self.rng.choice(("", "docs\\", "docs\\deep er\\"))
            tree[folder + name] = self.mtime()
            if folder != "C:\\":
                tree[folder[:-1]] = 0
        for path in [p for p in tree if tree[p]]:
            change = self.rng.random()
            if change < 0.15:
                tree[path] = self.mtime()
            elif change < 0.2:
                del tree[path]

    def mtime(self):
        return self.rng.randrange(1, 1 << 61)

    def fill(self, instance):
        """The whole run from its first request on, whatever the service has of it."""
        tree = self.trees[instance.job]
        files = [(path, mtime) for path, mtime in sorted(tree.items()) if mtime]
        if not files:
            instance.compress = False
        for at in range(0, len(files), BATCH):
            batch = files[at:at + BATCH]

            def before(first=at == 0):
                self.model.open(instance)
                instance.relisting = instance.relisting or first
            answer = self.ask("offer", instance.name, instance.job, batch, instance.compress, at == 0,
                              before=before, may_leave=True)
            if self.refused(instance, answer):
                return
            instance.relisting = False
            if ABSENT in instance.states:
                self.model.became(instance, PENDING)
            self.model.offered(instance, batch, at == 0, [item["path"] for item in answer.json["source"]])
        if self.start(instance):
            self.settle_errors(instance)
            for path in [p for p, mtime in tree.items() if not mtime]:
                self.info(instance, path, FOLDER, self.mtime(), 0)
            self.send_all(instance)
            self.end(instance)

    def start(self, instance):
        def before():
            self.model.open(instance)
            self.model.may_become(instance, RUNNING)
        answer = self.ask("start", instance.name, instance.job, instance.totals, instance.starttime,
                          before=before, may_leave=True)
        if self.refused(instance, answer):
            return False
        self.model.became(instance, RUNNING)
        return True

    def refused(self, instance, answer):
        """Whether the service lawfully won't go on with the instance, which then is cancelled."""
        if answer.status == 409 and instance.harmed:
            self.cancel(instance)
            return True
        require(answer, instance.name)
        return False

    def send_all(self, instance):
        paths = sorted(p for p, e in instance.entries.items()
                       if (not e.whole or e.unsure) and p not in instance.errors)
        self.rng.shuffle(paths)
        for path in paths:
            luck = self.rng.random()
            if luck < 0.05 and not instance.entries[path].unsure:
                continue  # endjob will complain
            if luck < 0.1 and not instance.entries[path].unsure:
                self.fail(instance, [path])
                continue
            self.send(instance, path)
        carried = sorted(p for p, e in instance.entries.items() if not e.own)
        if carried and self.rng.random() < 0.2:
            self.send(instance, self.rng.choice(carried))
        if self.rng.random() < 0.1:
            self.send(instance, f"C:\\not offered {self.rng.randrange(3)}")

    def send(self, instance, path):
        known = instance.entries.get(path)
        mtime = known.mtime if known and self.rng.random() < 0.95 else self.mtime()
        size = known.package.size if known and known.own and known.kind else HUGE
        if size == HUGE:
            size = self.size()
            if self.rng.random() < 0.02:
                self.info(instance, path, FILE, mtime, HUGE)  # has shrunk when it is sent
        self.info(instance, path, FILE, mtime, size)
        if self.rng.random() < 0.05:
            self.info(instance, path, FILE, mtime, size)  # keeps the blocks
        if self.rng.random() < 0.03:
            size = self.size()
            self.info(instance, path, FILE, mtime, size)  # drops them unless the size is the same
        self.send_blocks(instance, path)

    def size(self):
        shape = self.rng.random()
        if shape < 0.1:
            return 0
        if shape < 0.6:
            return self.rng.randrange(1, 5000)
        if shape < 0.8:
            return BLOCK + self.rng.choice((-1, 0, 1))
        return self.rng.randrange(1, BLOCK * self.rng.choice((3, 12)))

    def info(self, instance, path, kind, mtime, size):
        numbers = (16 if kind == FOLDER else self.rng.choice((0, 1, 32)),
                   *(self.rng.getrandbits(32) for _ in range(6)), mtime >> 32, mtime & 0xFFFFFFFF)
        answer = self.ask("info", instance.name, path, kind, numbers, size, may_leave=True,
                          before=lambda: self.model.info_sent(instance, path, kind, numbers, mtime, size))
        self.taken(instance, answer, path)
        self.model.info_stored(instance, path, answer.json["blocks"])

    def send_blocks(self, instance, path):
        package = instance.entries[path].package
        count = block_count(package.size)
        while len(package.blocks) < count:
            done = len(package.blocks)
            luck = self.rng.random()
            if luck < 0.03 and done + 2 <= count:
                self.refuse_block(instance, path, done + 2, 409)
            elif luck < 0.05:
                self.refuse_block(instance, path, done + 1, 400, md5="0" * 32)
            elif luck < 0.09 and done:
                number = self.rng.randrange(1, done + 1)
                self.block(instance, path, number, package.blocks[number - 1])  # comes twice
            elif luck < 0.12 and done:
                self.block(instance, path, self.rng.randrange(1, done + 1), self.block_name())  # another
            else:
                self.block(instance, path, done + 1, self.block_name())

    def block_name(self):
        return f"{self.name}/{self.runs}/{self.rng.getrandbits(64)}"

    def block(self, instance, path, number, name):
        size = instance.entries[path].package.size
        answer = self.ask("block", instance.name, path, number, content(name, block_size(size, number)),
                          before=lambda: self.model.block_sent(instance, path, number, name), may_leave=True)
        if answer.status == 409 and number > 1 and instance.harmed:
            instance.entries[path].package.blocks.clear()  # a strike took the block before
            return
        self.taken(instance, answer, path)
        self.model.block_stored(instance, path, number, name)

    def taken(self, instance, answer, path):
        """A strike may have left an instance that the service won't go on with; any other must go on."""
        if answer.status in (404, 409) and instance.harmed:
            self.cancel(instance)
            raise Left
        require(answer, f"{instance.name}: {path}")

    def refuse_block(self, instance, path, number, status, md5=None):
        data = content("refused", block_size(instance.entries[path].package.size, number))
        require(self.ask("block", instance.name, path, number, data, md5), "a wrong block", status)

    def fail(self, instance, paths):
        errors = {path: (self.rng.randrange(100), "cannot be read") for path in paths}

        def before():
            instance.unsure_errors |= errors
        require(self.ask("errors", instance.name, errors, before=before), f"errors of {instance.name}")
        self.model.errors_stored(instance, errors)

    def settle_errors(self, instance):
        """Those that the service may have or not, it has then."""
        if instance.unsure_errors:
            self.fail(instance, sorted(instance.unsure_errors))

    # Its end

    def end(self, instance):
        if self.rng.random() < 0.1:
            self.cancel(instance)
            return
        while True:
            instance.endtime = f"end {self.rng.randrange(1000)}"
            answer = self.ask("end", instance.name, instance.endtime, may_leave=True,
                              before=lambda: self.model.may_become(instance, COMPLETED))
            if answer.status == 200:
                self.model.became(instance, COMPLETED)
                return
            require(answer, f"end of {instance.name}", 409)
            self.model.became(instance, RUNNING)
            named = answer.json.get("incomplete", [])
            self.model.end_refused(instance, named)
            if not named:
                self.cancel(instance)
                return
            if self.rng.random() < 0.5:
                self.fail(instance, named)
            else:
                for path in named:
                    self.send(instance, path)

    def cancel(self, instance):
        require(self.ask("cancel", instance.name, may_leave=True,
                         before=lambda: self.model.may_become(instance, CANCELLED)), f"cancel {instance.name}")
        self.model.became(instance, CANCELLED)

    def resume(self):
        """Goes on with a run that was left, from what was acknowledged of it or from the beginning."""
        left = sorted(i.name for i in self.model.all() if i.machine == self.name
                      and not i.settled and COMPLETED not in i.states)
        if not left:
            return
        instance = self.model.instances[self.rng.choice(left)]
        self.note(f"goes on with {instance.name}, {instance.states}")
        if CANCELLED in instance.states:
            self.cancel(instance)
        elif PENDING in instance.states or instance.relisting or self.rng.random() < 0.3:
            self.fill(instance)
        elif self.start(instance):
            self.settle_errors(instance)
            self.send_all(instance)
            self.end(instance)

    # Reading

    def restore(self):
        """A completed backup of any machine of the user."""
        done = sorted(i.name for i in self.model.all() if i.user == self.user and i.is_only(COMPLETED))
        if not done:
            return
        instance = self.model.instances[self.rng.choice(done[-20:])]
        reader = Reader(self.model, self.ask, self.rng)
        restore = reader.restore(instance)
        reader.listing(instance)
        for path in self.rng.sample(sorted(instance.entries), min(len(instance.entries), 8)):
            reader.package(instance, path)
        require(self.ask("errors", restore, {"C:\\lost": (5, "access denied")}), "errors of a restore")
        require(self.ask("history", restore, "done"), "history of a restore")
