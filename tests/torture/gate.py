"""Where clients pass before each request, and wait while the service is being struck."""

import threading

from journal import Wrong

LIMIT = 300  # seconds for whatever must happen by itself


class Over(Exception):
    """The torture ends: no request more."""


class Rewound(Exception):
    """What the client was about is no longer what the service knows: it begins something else."""


class Gate:
    """Shut at first. Whoever strikes shuts it, strikes while requests are under way, and then waits
    until everybody waits here: between two requests a client counts as under way, so that what it
    was answered is in the model by then."""

    def __init__(self, clients):
        self._changed = threading.Condition()  # guards all below; the public ones are read without it
        self._clients, self._waiting, self._refused, self._passed = clients, 0, 0, 0
        self._over, self._failure = False, None
        self.shut, self.scarce = True, False  # scarce: requests may be refused for want of room
        self.life = 0  # of the service: counts how often the gate was opened
        self.era = 0  # counts the strikes that took the ground under what clients were about

    def enter(self, era):
        """Waits until the gate is open. Raises Over, and Rewound when `era` is past."""
        with self._changed:
            self._wait(lambda: not self.shut)
            if era != self.era:
                raise Rewound
            self._passed += 1
            self._changed.notify_all()

    def await_next_life(self):
        """For a client that was refused: it tries again after the strike."""
        with self._changed:
            life = self.life
            self._refused += 1
            try:
                self._wait(lambda: self.life != life)
            finally:
                self._refused -= 1

    def _wait(self, condition):
        self._waiting += 1
        self._changed.notify_all()
        self._changed.wait_for(lambda: self._over or condition())
        self._waiting -= 1
        if self._over:
            raise Over

    def ended(self, failure=None):
        """A client has left for good."""
        with self._changed:
            self._clients -= 1
            self._failure = self._failure or failure
            self._changed.notify_all()

    # For the one that strikes.

    def open(self):
        with self._changed:
            self.shut, self.scarce, self._passed = False, False, 0
            self.life += 1
            self._changed.notify_all()

    def await_requests(self, count):
        """Until so many more have passed, or everybody was refused."""
        with self._changed:
            aim = self._passed + count
        self._await(lambda: self._passed >= aim or self._refused == self._clients, "requests")

    def become_scarce(self):
        with self._changed:
            self.scarce = True

    def close(self):
        """Nobody enters any more; what is under way is left under way."""
        with self._changed:
            self.shut = True

    def rest(self):
        self._await(lambda: self._waiting == self._clients, "the requests under way")

    def rewind(self):
        """What clients are about is void. Everybody must be at rest."""
        with self._changed:
            self.era += 1

    def dismiss(self):
        with self._changed:
            self._over = True
            self._changed.notify_all()

    def _await(self, condition, what):
        with self._changed:
            if not self._changed.wait_for(lambda: self._failure or condition(), LIMIT):
                raise Wrong(f"waited {LIMIT} s in vain for {what}")
            if self._failure:
                raise self._failure
