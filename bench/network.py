"""The network of a measurement: the relay with a round trip and a rate, and the check that it has them."""

import json
import pathlib
import re
import socket
import sys
import threading
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "tests" / "e2e"))
from layout import NATIVE_BIN  # noqa: E402
from process import Process  # noqa: E402


class Relay:
    """bench/relay.cpp before a port of this machine; `address` is where clients go instead."""

    def __init__(self, port, rtt=0, mbit=0):
        self._process = Process([str(NATIVE_BIN / "relay"), str(port), str(rtt), str(mbit)])
        self._process.until_said("listening on")
        self.address = ("127.0.0.1", int(re.search(r":(\d+)", self._process.out)[1]))
        self._asked = 0

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def passed(self):
        """What has passed so far: bytes up and down, connections, requests."""
        self._asked += 1
        self._process.write("\n")
        self._process.until(lambda: self._process.out.count("\n") > self._asked, "the relay's totals")
        return json.loads(self._process.out.splitlines()[self._asked])

    def close(self):
        self._process.end_input()
        self._process.wait(60)


class _Listener:
    """Takes one connection and reads it to its end; `arrivals` is when which bytes came."""

    def __init__(self, answer):
        self._socket, self._answer, self.arrivals = socket.create_server(("127.0.0.1", 0)), answer, []
        self.port = self._socket.getsockname()[1]
        self._thread = threading.Thread(target=self._take, daemon=True)
        self._thread.start()

    def _take(self):
        peer, _ = self._socket.accept()
        with peer:
            peer.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
            while data := peer.recv(1 << 20):
                self.arrivals.append((time.monotonic(), len(data)))
                if self._answer:
                    peer.sendall(data)

    def close(self):
        self._thread.join(60)
        self._socket.close()


def _single_bytes(rtt, mbit, count=9):
    """Milliseconds there and for the whole way, of the quickest of some bytes sent one by one."""
    listener = _Listener(answer=True)
    there, around = [], []
    with Relay(listener.port, rtt, mbit) as relay, socket.create_connection(relay.address) as client:
        client.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        for number in range(count + 1):
            begun = time.monotonic()
            client.sendall(b"x")
            client.recv(1)
            if number:  # the first also waits for the handshake
                there.append(listener.arrivals[-1][0] - begun)
                around.append(time.monotonic() - begun)
    listener.close()
    return 1000 * min(there), 1000 * min(around)


def _rate(rtt, mbit):
    """Megabits a second of half a second's worth of bytes, from the first to the last that arrives."""
    size = int(mbit * 1e6 / 8 / 2)
    listener = _Listener(answer=False)
    with Relay(listener.port, rtt, mbit) as relay:
        with socket.create_connection(relay.address) as client:
            client.sendall(bytes(size))
        listener.close()
    if sum(n for _, n in listener.arrivals) != size:
        return 0
    (begun, first), (ended, _) = listener.arrivals[0], listener.arrivals[-1]
    return (size - first) * 8 / 1e6 / (ended - begun)


def faults(rtt, mbit):
    """What the relay does not keep of its round trip and rate now, on this machine, in words.

    A busy machine fails this, which is meant: what it measures then would not be the network's."""
    found = []
    there, around = _single_bytes(rtt, mbit)
    slack = 1 + rtt / 20
    if not rtt / 2 <= there <= rtt / 2 + slack:
        found.append(f"a byte takes {there:.2f} ms one way, of a round trip of {rtt:g}")
    if not rtt <= around <= rtt + slack:
        found.append(f"a byte is back after {around:.2f} ms, of a round trip of {rtt:g}")
    if mbit and not 0.95 * mbit <= (rate := _rate(rtt, mbit)) <= 1.02 * mbit:
        found.append(f"{rate:.0f} Mbit/s pass, of {mbit:g}")
    return found
