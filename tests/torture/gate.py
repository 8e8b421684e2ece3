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
        self._changed = threading.Condition()  # guards all below
        self._clients, self._waiting, self._refused, self._passed = clients, 0, 0, 0
        self._open = self._over = self._scarce = False
        self._failure = None
        self._life = self._era = 0

    @property
    def shut(self):
        with self._changed:
            return not self._open

    @property
    def scarce(self):
        """Whether requests may be refused for want of room."""
        with self._changed:
            return self._scarce

    @property
    def life(self):
        """Of the service: counts how often the gate was opened."""
        with self._changed:
            return self._life

    @property
    def era(self):
        """Counts the strikes that took the ground under what clients were about."""
        with self._changed:
            return self._era

    def enter(self, era):
        """Waits until the gate is open. Raises Over, and Rewound when `era` is past."""
        with self._changed:
            self._wait(lambda: self._open)
            if era != self._era:
                raise Rewound
            self._passed += 1
            self._changed.notify_all()

    def await_next_life(self):
        """For a client that was refused: it tries again after the strike."""
        with self._changed:
            life = self._life
            self._refused += 1
            try:
                self._wait(lambda: self._life != life)
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
            self._open, self._scarce, self._passed = True, False, 0
            self._life += 1
            self._changed.notify_all()

    def await_requests(self, count):
        """Until so many more have passed, or everybody was refused."""
        with self._changed:
            aim = self._passed + count
        self._await(lambda: self._passed >= aim or self._refused == self._clients, "requests")

    def become_scarce(self):
        with self._changed:
            self._scarce = True

    def close(self):
        """Nobody enters any more; what is under way is left under way."""
        with self._changed:
            self._open = False

    def rest(self):
        self._await(lambda: self._waiting == self._clients, "the requests under way")

    def rewind(self):
        """What clients are about is void. Everybody must be at rest."""
        with self._changed:
            self._era += 1

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
