"""Reads from a service whose catalog was spoilt: it may refuse anything, but what it gives is right."""

import random

from client import PASSWORD
from content import block_size, content
from journal import Wrong
from model import COMPLETED
from session import Broken

MACHINE = "doubter"


class Doubter:
    def __init__(self, world):
        self.world, self.rng = world, random.Random(world.rng.random())

    def run(self):
        for user in self.world.users:
            session = self.world.session(user, MACHINE)
            try:
                if session.login(PASSWORD).status == 200:
                    for instance in self.world.model.all():
                        if instance.user == user and instance.is_only(COMPLETED):
                            self._listing(session, instance)
                            self._blocks(session, instance)
            except Broken as error:
                raise Wrong(f"the service broke down over a spoilt catalog: {error}") from error
            finally:
                session.close()

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
