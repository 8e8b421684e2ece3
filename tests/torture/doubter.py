"""Reads from a service whose catalog was spoilt: it may refuse anything, but what it gives is right.

Two things it cannot know of are let pass: a name that was changed in the catalog itself, and numbers
of a file that were.
"""

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
        """A list that comes to its end is not short."""
        count, after = 0, ""
        while True:
            answer = session.files(instance.name, instance.machine, "", after, 1000)
            if answer.status != 200:
                return
            page = answer.json
            count, before, after = count + len(page["source"]), after, page["next"]
            if after <= before:
                break
        if count < len(instance.entries):
            raise Wrong(f"the list of {instance.name} ends after {count} of {len(instance.entries)} items")

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
