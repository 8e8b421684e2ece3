"""A service that lies: what stands between the clients and an honest one in a test of the torture."""

import hashlib
import json

from reader import DAMAGED
from session import Broken, Connection

OK = (200, None, b"{}")


class Liar(Connection):
    """Tells `lie`, one of the functions below, to everybody at every request that it is about."""

    def __init__(self, address, lie):
        super().__init__(address)
        self.lie = lie

    def exchange(self, path, body, headers):
        endpoint = path.rsplit("/", 1)[1].removesuffix(".php")
        return self.lie(endpoint, body, lambda: super(Liar, self).exchange(path, body, headers))


def flip_a_bit(endpoint, body, forward):
    """With the digest of what it gives, as from a disk that lies."""
    status, cookie, answer = forward()
    if endpoint == "DownloadFileBlock" and status == 200 and len(answer) > 32:
        data = bytes([answer[32] ^ 1]) + answer[33:]
        answer = hashlib.md5(data).hexdigest().encode() + data
    return status, cookie, answer


def hide_a_file(endpoint, body, forward):
    status, cookie, answer = forward()
    if endpoint == "ListFiles" and status == 200:
        page = json.loads(answer)
        answer = json.dumps(page | {"source": page["source"][:-1]}).encode()
    return status, cookie, answer


def forget_a_block(endpoint, body, forward):
    """Of those that nothing is wrong about."""
    return OK if endpoint == "uploadblock" and b'"1.jpg"' in body and b"0" * 32 not in body else forward()


def change_instances(change):
    """A lie about what ListInstances answers."""
    def lie(endpoint, body, forward):
        status, cookie, answer = forward()
        if endpoint == "ListInstances" and status == 200:
            answer = json.dumps({"instances": change(json.loads(answer)["instances"])}).encode()
        return status, cookie, answer
    lie.__name__ = change.__name__
    return lie


@change_instances
def forget_an_end(instances):
    return [item | {"state": item["state"].replace("completed", "running")} for item in instances]


@change_instances
def forget_a_cancellation(instances):
    return [item | {"state": item["state"].replace("cancelled", "running")} for item in instances]


@change_instances
def lose_a_backup(instances):
    return [item for item in instances if item["state"] != "completed"]


def carry_over_what_is_not_there(endpoint, body, forward):
    status, cookie, answer = forward()
    if endpoint == "FilesToBackup" and status == 200:
        answer = json.dumps({"source": json.loads(answer)["source"][1:]}).encode()
    return status, cookie, answer


def be_down(endpoint, body, forward):
    return (503, None, b"{}") if endpoint == "uploadfile" else forward()


def find_damage(endpoint, body, forward):
    status, cookie, answer = forward()
    if endpoint == "DownloadFileBlock" and status == 200:
        status, answer = DAMAGED, b"{}"
    return status, cookie, answer


def hang_up(endpoint, body, forward):
    answer = forward()
    if endpoint == "StartJob":
        raise Broken("the answer is lost")
    return answer


# What a torture must find wrong about each.
LIES = {
    flip_a_bit: "is not what was stored",
    hide_a_file: "the list of .* differs",
    forget_a_block: "block before has not been uploaded|cannot be ended|said to be incomplete",
    forget_an_end: "it must be completed",
    forget_a_cancellation: "it must be cancelled",
    lose_a_backup: "is absent",
    carry_over_what_is_not_there: "no earlier backup has it",
    be_down: "503",
    find_damage: "nothing was done to it",
    hang_up: "the answer is lost",
}
