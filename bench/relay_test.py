#!/usr/bin/env python3
"""What passes the relay is what was sent, on every connection, with its end; and it is counted.

That a byte takes as long as it should is no test: `./dev bench` checks it before it measures."""

import random
import socket
import struct
import threading
import unittest

from network import Relay

NETWORKS = ((0, 0), (6, 400), (3, 50))  # round trip in ms, Mbit/s


class Echo:
    """Gives every connection its bytes back; when one ends, the end too; `reset` ends it with a reset."""

    def __init__(self, reset=False):
        self.socket, self.reset, self.saw_reset = socket.create_server(("127.0.0.1", 0)), reset, threading.Event()
        self.port = self.socket.getsockname()[1]
        threading.Thread(target=self._accept, daemon=True).start()

    def _accept(self):
        while True:
            peer, _ = self.socket.accept()
            threading.Thread(target=self._serve, args=(peer,), daemon=True).start()

    def _serve(self, peer):
        with peer:
            try:
                while data := peer.recv(1 << 16):
                    if self.reset:
                        return reset(peer)
                    peer.sendall(data)
                peer.sendall(b"the end")
            except ConnectionError:
                self.saw_reset.set()


def reset(peer):
    peer.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
    peer.close()


def send_all(client, data, pieces):
    """In pieces of odd sizes, then the end of this side."""
    rest = memoryview(data)
    while rest:
        size = pieces.randint(1, 100_000)
        client.sendall(rest[:size])
        rest = rest[size:]
    client.shutdown(socket.SHUT_WR)


def everything(client):
    got = bytearray()
    while data := client.recv(1 << 16):
        got += data
    return bytes(got)


class RelayTest(unittest.TestCase):
    def test_each_connection_gets_its_bytes_and_its_end(self):
        for rtt, mbit in NETWORKS:
            with self.subTest(rtt=rtt, mbit=mbit), Relay(Echo().port, rtt, mbit) as relay:
                sent = [random.Random(seed).randbytes(size) for seed, size in enumerate((0, 1, 3_000_000, 700_001))]
                clients = [socket.create_connection(relay.address) for _ in sent]
                for number, (client, data) in enumerate(zip(clients, sent)):
                    threading.Thread(target=send_all, args=(client, data, random.Random(number))).start()
                for client, data in zip(clients, sent):
                    with client:
                        self.assertTrue(everything(client) == data + b"the end")
                passed = relay.passed()
                self.assertEqual(passed["connections"], len(sent))
                self.assertEqual(passed["up"], sum(map(len, sent)))
                self.assertEqual(passed["down"], passed["up"] + len(sent) * len(b"the end"))

    def test_a_receiver_that_waits_holds_its_sender_back_and_loses_nothing(self):
        window = 8 << 20  # of each way of a connection
        with Relay(Echo().port) as relay, socket.create_connection(relay.address) as client:
            sent = random.Random(1).randbytes(6 * window)
            threading.Thread(target=send_all, args=(client, sent, random.Random(2))).start()
            # Until nothing moves any more: all on the way is full.
            seen = [{"down": 0}]
            while seen[-1]["down"] < window or any(earlier != seen[-1] for earlier in seen[-20:]):
                seen.append(relay.passed())
            self.assertTrue(everything(client) == sent + b"the end")

    def test_a_reset_passes_both_ways(self):
        echo = Echo(reset=True)
        with Relay(echo.port, 4, 100) as relay, socket.create_connection(relay.address) as client:
            client.sendall(b"x")
            self.assertRaises(ConnectionResetError, client.recv, 1)
        echo = Echo()
        with Relay(echo.port, 4, 100) as relay:
            client = socket.create_connection(relay.address)
            client.sendall(b"x")
            client.recv(1)
            reset(client)
            self.assertTrue(echo.saw_reset.wait(60))
        with Relay(1, 0, 0) as relay, socket.create_connection(relay.address) as client:
            self.assertRaises(ConnectionResetError, client.recv, 1)  # nobody listens there

    def test_requests_are_counted_however_they_are_cut(self):
        stream = (b"POST /a HTTP/1.1\r\nHost: x\r\ncontent-length: 23\r\n\r\nGET / HTTP/1.1\r\nb: \r\n\r\n\r\n"
                  b"GET /b HTTP/1.1\r\nHost: x\r\n\r\n"
                  b"POST /c HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n"
                  b"19\r\nGET / HTTP/1.1\r\n\r\nGET / H\r\n3;x=y\r\nabc\r\n0\r\nTrailer: t\r\n\r\n"
                  b"HEAD /d HTTP/1.1\r\n\r\n")
        for size in (1, 2, 7, len(stream)):
            with self.subTest(size=size), Relay(Echo().port) as relay:
                with socket.create_connection(relay.address) as client:
                    client.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
                    for i in range(0, len(stream), size):
                        piece = stream[i : i + size]
                        client.sendall(piece)
                        self.assertEqual(client.recv(len(piece), socket.MSG_WAITALL), piece)
                self.assertEqual(relay.passed()["requests"], 4)


if __name__ == "__main__":
    unittest.main()
