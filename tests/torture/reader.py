"""Reads completed instances as a restore does, and compares everything with the model."""

import hashlib

from content import block_size, content
from journal import Wrong
from model import FILE

DAMAGED = 410  # what the service answers for bytes that are gone or not those that were stored


def require(answer, what, *statuses):
    if answer.status not in (statuses or (200,)):
        raise Wrong(f"{what}: {answer}")
    return answer


class Reader:
    """`ask(verb, *arguments)` sends a request of a session and gives its answer."""

    def __init__(self, model, ask, rng):
        self.model, self.ask, self.rng = model, ask, rng

    def listing(self, instance):
        """The instance's items, all of them and as they were sent."""
        expected = sorted(instance.entries.items(), key=lambda item: item[0].encode())
        found, after = [], ""
        while True:
            limit = self.rng.choice((1, 7, 1000)) if len(expected) < 50 else 1000
            answer = require(self.ask("files", instance.name, instance.machine, "", after, limit),
                             f"the list of {instance.name}").json
            found += answer["source"]
            after = answer["next"]
            if not after:
                if answer["missing"]:
                    raise Wrong(f"the list of {instance.name} is said to miss {answer['missing']}")
                break
            if len(found) > len(expected):
                raise Wrong(f"the list of {instance.name} goes on after all its {len(expected)} items")
        if [item["path"] for item in found] != [path for path, _ in expected]:
            differ = {item["path"] for item in found} ^ {path for path, _ in expected}
            raise Wrong(f"the list of {instance.name} differs: {sorted(differ)[:5]}")
        for item, (path, entry) in zip(found, expected):
            if item["type"] != entry.kind or tuple(item["attri"].values()) != entry.numbers:
                raise Wrong(f"{instance.name}: {path} is listed as {item}, not {entry.numbers}")

    def package(self, instance, path, blocks=None):
        """The path's information and blocks, all or those with these numbers."""
        entry = instance.entries[path]
        what = f"{path} of {instance.name}"
        info = self.ask("file_info", instance.name, instance.machine, path)
        if self._damaged(info, instance, path):
            return
        info = require(info, what).json
        expected = {"type": entry.kind, "compress": entry.compress, "totalblock": len(entry.package.blocks),
                    "totalsizeHigh": entry.package.size >> 32, "totalsizeLow": entry.package.size & 0xFFFFFFFF}
        if any(info[key] != value for key, value in expected.items()):
            raise Wrong(f"{what} is {info}, not {expected}")
        if tuple(info["attri"].values()) != entry.numbers:
            raise Wrong(f"{what} has {info['attri']}, not {entry.numbers}")
        count = len(entry.package.blocks)
        if entry.kind != FILE:
            require(self.ask("download", instance.name, instance.machine, path, 1), what, 404)
            return
        for number in range(1, count + 2) if blocks is None else blocks:
            answer = self.ask("download", instance.name, instance.machine, path, number)
            if self._damaged(answer, instance, path):
                continue
            require(answer, f"block {number} of {what}")
            data = (content(entry.package.blocks[number - 1], block_size(entry.package.size, number))
                    if number <= count else b"")
            if answer.body[32:] != data:
                raise Wrong(f"block {number} of {what} is not what was stored")
            if answer.body[:32].decode() != hashlib.md5(data).hexdigest():
                raise Wrong(f"block {number} of {what} comes with another's digest")

    def _damaged(self, answer, instance, path):
        if answer.status == DAMAGED:
            self.model.damage_reported(instance, path)
            return True
        return False

    def restore(self, instance):
        """Begins a restore; its id, with totals that are those of the backup."""
        answer = require(self.ask("start_restore", instance.name, instance.job), f"a restore of {instance.name}").json
        if (answer["totalfiles"], answer["totaldirectories"], answer["totalsize"]) != instance.totals:
            raise Wrong(f"a restore of {instance.name} has totals {answer}")
        self.model.restores[answer["jobinstanceid"]] = instance.user
        return answer["jobinstanceid"]
