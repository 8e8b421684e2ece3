"""A proxy between agent and server that does what networks do, exactly where a test wants it.

It forwards HTTP/1.1 with kept-alive connections. A Fault names an endpoint (the last part of the
path without ".php"), the number of the request to that endpoint that it hits (counted from 1, or
from the moment the fault was added), how many requests in a row, and what happens to them; it may
concern one job only, whose backup or whose restored backup a request is about. Every
request is recorded with the status that the client was really given, so that a test can ask what
the client knew. The proxy goes on listening while no server is behind it: connections are then
accepted and reset.
"""

import email.parser
import json
import re
import socket
import struct
import threading

RESET = "reset"  # read the head (of a certain job's request the body too), then reset the connection
CUT_REQUEST = "cut request"  # the server gets half of the body, then both sides are reset
CUT_ANSWER = "cut answer"  # the client gets half of the server's answer, then an end of stream
LOSE_ANSWER = "lose answer"  # the server answers, the client gets a reset instead
ANSWER = "answer"  # the proxy answers with the fault's status; the server sees nothing
HOLD_REQUEST = "hold request"  # wait until released, before the server sees anything
HOLD_ANSWER = "hold answer"  # wait until released, after the server has answered
HOLD_LOST = "hold lost answer"  # the same, then the client gets a reset instead

HEAD_LIMIT = 64 * 1024


class Fault:
    """One rule. `reached` is set when it first strikes; `release` lets held requests go on."""

    def __init__(self, endpoint, action, nth=1, times=1, status=503, job=None):
        self.endpoint, self.action, self.nth, self.times, self.status = endpoint, action, nth, times, status
        self.job = job
        self.reached = threading.Event()
        self.released = threading.Event()
        self.abandoned = False
        self.struck = 0
        self._seen = 0

    def release(self):
        self.released.set()

    def abandon(self):
        """Lets go, but nothing held goes any further: for when the client is dead."""
        self.abandoned = True
        self.released.set()

    def _strikes(self):
        self._seen += 1
        if not self.nth <= self._seen < self.nth + self.times:
            return False
        self.struck += 1
        return True


class Request:
    """What passed: `status` is what the client got whole, None when it got no whole answer."""

    def __init__(self, number, endpoint):
        self.number, self.endpoint = number, endpoint
        self.job = self.instance = self.source = self.block = None
        self.status = None

    def __repr__(self):
        return f"#{self.number} {self.endpoint} {self.source or ''} {self.block or ''} -> {self.status}"


class _Gone(Exception):
    """The peer closed, or the fault closes the connection."""


def _peer_gone(sock):
    """Whether an idle connection was closed or reset by the other side."""
    sock.setblocking(False)
    try:
        return sock.recv(1, socket.MSG_PEEK) == b""
    except BlockingIOError:
        return False
    except OSError:
        return True
    finally:
        sock.setblocking(True)


def _reset(sock):
    """Ends a connection with RST instead of FIN."""
    try:
        sock.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
    except OSError:
        pass
    sock.close()


class _Stream:
    """A socket with a buffer, from which whole HTTP messages are read."""

    def __init__(self, sock):
        sock.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        self.sock, self._buffer = sock, b""

    def _fill(self):
        data = self.sock.recv(256 * 1024)
        if not data:
            raise _Gone
        self._buffer += data

    def head(self):
        while (end := self._buffer.find(b"\r\n\r\n")) < 0:
            if len(self._buffer) > HEAD_LIMIT:
                raise _Gone
            self._fill()
        head, self._buffer = self._buffer[: end + 4], self._buffer[end + 4 :]
        return head

    def _take(self, size):
        while len(self._buffer) < size:
            self._fill()
        data, self._buffer = self._buffer[:size], self._buffer[size:]
        return data

    def body(self, headers):
        """The body's bytes as they stand on the wire."""
        if headers.get("transfer-encoding", "").lower() != "chunked":
            return self._take(int(headers.get("content-length", "0")))
        raw = b""
        while True:
            while (end := self._buffer.find(b"\r\n")) < 0:
                self._fill()
            line = self._take(end + 2)
            size = int(line.split(b";")[0], 16)
            raw += line + self._take(size + 2)
            if size == 0:
                return raw


def _headers(head):
    lines = head.split(b"\r\n", 1)[1].decode("latin-1")
    return {k.lower(): v for k, v in email.parser.HeaderParser().parsestr(lines).items()}


class Proxy:
    """Listens on a loopback port of its own and forwards to `backend` (host, port)."""

    def __init__(self, backend):
        self.backend = backend
        self._lock = threading.Lock()  # guards all below
        self._requests, self._faults, self._streams, self._threads = [], [], set(), []
        self._jobs = {}  # of the instances
        self.address = ("127.0.0.1", 0)
        self.listen()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def close(self):
        self.clear()
        self.refuse()
        for thread in self._threads:
            thread.join()

    def listen(self):
        """Takes connections again, on the same port."""
        self._listener = socket.create_server(self.address, backlog=64)
        self.address = self._listener.getsockname()
        self._acceptor = threading.Thread(target=self._accept, args=(self._listener,), daemon=True)
        self._acceptor.start()

    def refuse(self):
        """Stops listening and ends the connections there are."""
        if self._listener is None:
            return
        self._listener.shutdown(socket.SHUT_RDWR)
        self._acceptor.join()
        self._listener.close()
        self._listener = None
        with self._lock:
            streams = list(self._streams)
        for sock in streams:
            try:
                sock.shutdown(socket.SHUT_RDWR)
            except OSError:
                pass

    def add(self, endpoint, action, **options):
        """A new fault, counting requests from now on."""
        fault = Fault(endpoint, action, **options)
        with self._lock:
            self._faults.append(fault)
        return fault

    def clear(self):
        """Forgets all faults and lets go what they hold."""
        with self._lock:
            faults, self._faults = self._faults, []
        for fault in faults:
            fault.release()

    def requests(self, endpoint=None):
        with self._lock:
            return [r for r in self._requests if endpoint in (None, r.endpoint)]

    def connections(self):
        """How many it has taken so far."""
        with self._lock:
            return len(self._threads)

    def blocks_sent_again(self):
        """Blocks that were sent once more although the client had been given their 200."""
        return self._again("uploadblock", 0)

    def blocks_fetched_again(self, since=0):
        """Blocks that were asked for once more although the client had them, but for the first requests."""
        return self._again("DownloadFileBlock", since)

    def _again(self, endpoint, since):
        accepted, again = set(), []
        for request in self.requests(endpoint)[since:]:
            key = (request.instance, request.source, request.block)
            if key in accepted:
                again.append(key)
            if request.status == 200:
                accepted.add(key)
        return again

    # -- one connection -----------------------------------------------------------------------

    def _accept(self, listener):
        while True:
            try:
                sock, _ = listener.accept()
            except OSError:
                return
            thread = threading.Thread(target=self._serve, args=(sock,), daemon=True)
            with self._lock:
                self._streams.add(sock)
                self._threads.append(thread)
            thread.start()

    def _serve(self, sock):
        client, server = _Stream(sock), None
        try:
            while True:
                head = client.head()
                server = self._exchange(client, server, head)
        except (_Gone, OSError):
            pass
        finally:
            if server:
                server.sock.close()
            client.sock.close()
            with self._lock:
                self._streams.discard(sock)

    def _exchange(self, client, server, head):
        """One request and its answer; returns the server's connection for the next one."""
        headers = _headers(head)
        path = head.split(b" ", 2)[1].decode("latin-1")
        endpoint = path.rsplit("/", 1)[-1].removesuffix(".php")
        with self._lock:
            request = Request(len(self._requests) + 1, endpoint)
            self._requests.append(request)
        fault = self._striking(client, server, endpoint, None)
        body = client.body(headers)
        self._describe(request, headers, body)
        if not fault and request.job:
            fault = self._striking(client, server, endpoint, request.job)
        action = fault.action if fault else None
        if action == ANSWER:
            fault.reached.set()
            text = json.dumps({"error": "a fault of the test"}).encode()
            answer = b"HTTP/1.1 %d Fault\r\nContent-Type: application/json\r\nContent-Length: %d\r\n\r\n%s"
            self._answer(request, client, fault.status, answer % (fault.status, len(text), text))
            return server
        if action == HOLD_REQUEST:
            fault.reached.set()
            fault.released.wait()
            if fault.abandoned or _peer_gone(client.sock):
                raise _Gone
        try:
            server = self._forward(server, head, body if action != CUT_REQUEST else body[: len(body) // 2])
            if action == CUT_REQUEST:
                fault.reached.set()
                self._drop(client, server)
            answer_head = server.head()
            answer_headers = _headers(answer_head)
            answer = answer_head + server.body(answer_headers)
        except (_Gone, OSError):
            # The server went away: its client sees a reset.
            self._drop(client, server)
        status = int(answer_head.split(b" ", 2)[1])
        if action in (LOSE_ANSWER, CUT_ANSWER):
            if action == CUT_ANSWER:
                # Half of the body; the head too where there is no body worth cutting.
                cut = len(answer_head) + (len(answer) - len(answer_head)) // 2
                client.sock.sendall(answer[: cut if cut > len(answer_head) else len(answer_head) // 2])
                server.sock.close()
                fault.reached.set()
                raise _Gone
            fault.reached.set()
            self._drop(client, server)
        if action in (HOLD_ANSWER, HOLD_LOST):
            fault.reached.set()
            fault.released.wait()
            if action == HOLD_LOST or fault.abandoned:
                self._drop(client, server)
        self._answer(request, client, status, answer)
        if answer_headers.get("connection", "").lower() == "close":
            raise _Gone
        return server

    def _striking(self, client, server, endpoint, job):
        """Every fault of the endpoint and job counts the request, the first that strikes acts on it."""
        with self._lock:
            striking = [f for f in self._faults if (f.endpoint, f.job) == (endpoint, job) and f._strikes()]
        fault = striking[0] if striking else None
        if fault and fault.action == RESET:
            fault.reached.set()
            self._drop(client, server)
        return fault

    def _answer(self, request, client, status, answer):
        # Recorded first, because the client may act on it before sendall returns.
        request.status = status
        try:
            client.sock.sendall(answer)
        except OSError:
            request.status = None
            raise

    def _forward(self, server, head, part):
        """Sends a request; a kept connection that the server has closed since is replaced."""
        if server and _peer_gone(server.sock):
            server.sock.close()
            server = None
        if not server:
            server = _Stream(socket.create_connection(self.backend, timeout=30))
            server.sock.settimeout(None)
        server.sock.sendall(head + part)
        return server

    def _drop(self, client, server):
        if server:
            _reset(server.sock)
        _reset(client.sock)
        raise _Gone

    def _describe(self, request, headers, body):
        if request.endpoint == "uploadblock":
            fields = dict(re.findall(rb'name="(\w+)"\r\n\r\n(.*?)\r\n--', body[:70000], re.S))
            request.instance = fields.get(b"jobinstanceid", b"").decode()
            request.source = fields.get(b"sourcename", b"").decode()
            number = re.search(rb'filename="(\d+)\.jpg"', body[:70000])
            request.block = int(number[1]) if number else None
            request.job = self._jobs.get(request.instance)
        elif headers.get("transfer-encoding", "").lower() != "chunked":
            try:
                values = json.loads(body or b"{}")
            except ValueError:
                return
            request.instance = values.get("jobinstanceid") or values.get("id")
            request.source = values.get("sourcename")
            if "filename" in values:
                request.source = values["path"] + "\\" + values["filename"]
                request.block = values.get("blockindex")
            # The increment check's "id" is the job's; a cancelled instance's is its own.
            job = values.get("jobdefinitionid") or (values.get("id") if "jobinstanceid" in values else None)
            if job:
                self._jobs[request.instance] = job
            request.job = self._jobs.get(request.instance)
