"""What happened, in order: the last events of everybody, for whoever has to explain a failure."""

import collections
import threading
import time

KEPT = 5000


class Wrong(Exception):
    """The service did what it must not: the finding that the whole torture is for."""


class Journal:
    def __init__(self):
        self._lock = threading.Lock()  # guards all below
        self._lines = collections.deque(maxlen=KEPT)
        self._began = time.monotonic()

    def note(self, who, what):
        with self._lock:
            self._lines.append(f"{time.monotonic() - self._began:9.3f} {who:<9} {what}")

    def lines(self):
        with self._lock:
            return list(self._lines)
