"""After each start, while nobody else asks anything: everything that is owed is there."""

import random

from client import PASSWORD
from journal import Wrong
from model import COMPLETED
from reader import Reader, require
from session import Broken

MACHINE = "auditor"
SOME = 20  # completed backups of a user that are read after an ordinary start


class Audit:
    def __init__(self, world, seed):
        self.world, self.model, self.rng = world, world.model, random.Random(seed)

    def run(self, most):
        """Reads `most` of each user's completed instances, the newest and some others; None: all."""
        for user in self.world.users:
            session = self.world.session(user, MACHINE)
            try:
                self._user(session, user, most)
            except Broken as error:
                raise Wrong(f"the connection of the audit broke: {error}") from error
            finally:
                session.close()

    def _user(self, session, user, most):
        require(session.login(PASSWORD), "login")
        self.model.listed(user, require(session.instances(), "ListInstances").json["instances"])
        reader = Reader(self.model, lambda verb, *arguments: getattr(session, verb)(*arguments), self.rng)
        done = sorted((i for i in self.model.all() if i.user == user and i.is_only(COMPLETED)),
                      key=lambda i: i.completion)
        if most and len(done) > most:
            done = self.rng.sample(done[:-most // 2], most // 2) + done[-most // 2:]
        read = set()
        for instance in done:
            reader.listing(instance)
            for path, entry in instance.entries.items():
                # A package that several instances carry is read once in full.
                known = id(entry.package) in read
                blocks = len(entry.package.blocks)
                reader.package(instance, path, [self.rng.randrange(blocks) + 1] if known and blocks else None)
                read.add(id(entry.package))
        restores = sorted(r for r, u in self.model.restores.items() if u == user)
        for restore in self.rng.sample(restores, min(3, len(restores))):
            require(session.history(restore, "audited"), "history of a restore")
