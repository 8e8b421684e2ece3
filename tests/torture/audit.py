"""What is read after a start, while nobody else asks anything."""

import random

from client import PASSWORD
from content import block_size, content
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
        """Everything that is owed is there. Reads `most` of each user's completed instances, the newest
        and some others; None: all."""
        self._each_user(lambda session, user: self._all_owed(session, user, most))

    def doubt(self):
        """Of a service whose catalog was spoilt: it may refuse anything, but what it gives is right."""
        self._each_user(self._nothing_wrong)

    def _each_user(self, read):
        for user in self.world.users:
            session = self.world.session(user, MACHINE)
            try:
                read(session, user)
            except Broken as error:
                raise Wrong(f"the connection of the audit broke: {error}") from error
            finally:
                session.close()

    def _completed(self, user):
        return sorted((i for i in self.model.all() if i.user == user and i.is_only(COMPLETED)),
                      key=lambda i: i.completion)

    def _all_owed(self, session, user, most):
        require(session.login(PASSWORD), "login")
        self.model.listed(user, require(session.instances(), "ListInstances").json["instances"])
        reader = Reader(self.model, lambda verb, *arguments: getattr(session, verb)(*arguments), self.rng)
        done = self._completed(user)
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

    def _nothing_wrong(self, session, user):
        if session.login(PASSWORD).status == 200:
            for instance in self._completed(user):
                self._listing(session, instance)
                self._blocks(session, instance)

    def _listing(self, session, instance):
        """A list that comes to its end has all items as they were, or says how many it has not."""
        found, after = [], ""
        while True:
            answer = session.files(instance.name, instance.machine, "", after, 1000)
            if answer.status != 200:
                return
            page = answer.json
            found += page["source"]
            if page["next"] <= after:
                break
            after = page["next"]
        for item in found:
            entry = instance.entries.get(item["path"])
            if not entry or (item["type"], tuple(item["attri"].values())) != (entry.kind, entry.numbers):
                raise Wrong(f"the list of {instance.name} has {item}, which nobody sent")
        if len(found) + page["missing"] < len(instance.entries):
            raise Wrong(f"the list of {instance.name} ends after {len(found)} of {len(instance.entries)} items")

    def _blocks(self, session, instance):
        for path, entry in instance.entries.items():
            blocks = entry.package.blocks
            if not blocks:
                continue
            number = self.rng.randrange(len(blocks)) + 1
            answer = session.download(instance.name, instance.machine, path, number)
            data = content(blocks[number - 1], block_size(entry.package.size, number))
            if answer.status == 200 and answer.body[32:] != data:
                raise Wrong(f"block {number} of {path} of {instance.name} is not what was stored")
