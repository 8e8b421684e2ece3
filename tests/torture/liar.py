"""A service that lies: what stands between the clients and an honest one in a test of the torture."""

import hashlib
import json

from reader import DAMAGED
from session import Broken, Connection


class Liar(Connection):
    """Tells the lie of that name to everybody at every request that it is about."""

    def __init__(self, address, lie):
        super().__init__(address)
        self.endpoint, self.lie, _ = LIES[lie]

    def exchange(self, path, body, headers):
        forward = lambda: super(Liar, self).exchange(path, body, headers)
        return self.lie(body, forward) if f"/{self.endpoint}.php" in path else forward()


def changed(change):
    """Another body in the place of a 200's."""
    def lie(_, forward):
        status, cookie, answer = forward()
        return status, cookie, change(answer) if status == 200 else answer
    return lie


def changed_list(name, change):
    return changed(lambda answer: json.dumps(json.loads(answer) | {name: change(json.loads(answer)[name])}).encode())


def instead(status, of=lambda body: True):
    """It does nothing, or so it says."""
    return lambda body, forward: (status, None, b"{}") if of(body) else forward()


def forget(state):
    return changed_list("instances", lambda instances: [
        item | {"state": item["state"].replace(state, "running")} for item in instances])


def flip_a_bit(answer):
    """With the digest of what it gives, as from a disk that lies."""
    data = bytes([answer[32] ^ 1]) + answer[33:] if len(answer) > 32 else b""
    return hashlib.md5(data).hexdigest().encode() + data if data else answer


def find_damage(_, forward):
    status, cookie, answer = forward()
    return (DAMAGED, cookie, b"{}") if status == 200 else (status, cookie, answer)


def hang_up(_, forward):
    forward()
    raise Broken("the answer is lost")


# The request that it is about, what is done to it, and what a torture must find wrong.
LIES = {
    "flips a bit": ("DownloadFileBlock", changed(flip_a_bit), "is not what was stored"),
    "hides a file": ("ListFiles", changed_list("source", lambda items: items[:-1]), "the list of .* differs"),
    # Of those that nothing is wrong about.
    "forgets a block": ("uploadblock", instead(200, lambda body: b'"1.jpg"' in body and b"0" * 32 not in body),
                        "block before has not been uploaded|cannot be ended|said to be incomplete"),
    "forgets an end": ("ListInstances", forget("completed"), "it must be completed"),
    "forgets a cancellation": ("ListInstances", forget("cancelled"), "it must be cancelled"),
    "loses a backup": ("ListInstances", changed_list("instances", lambda instances: [
        item for item in instances if item["state"] != "completed"]), "is absent"),
    "carries over what is not there": ("FilesToBackup", changed_list("source", lambda items: items[1:]),
                                       "no earlier backup has it"),
    "is down": ("uploadfile", instead(503), "503"),
    "finds damage": ("DownloadFileBlock", find_damage, "nothing was done to it"),
    "hangs up": ("StartJob", hang_up, "the answer is lost"),
}
