"""One data folder from its first request to its last: clients, the service, and what strikes it."""

import random

from audit import SOME, Audit
from client import PASSWORD, Client
from datafolder import DataFolder
from gate import Gate
from model import Model
from service import Service
from session import Connection, Session

CLIENTS = 6
REQUESTS = 600  # at most, in one life of the service


class World:
    """`connection` makes what requests go over, of an address.

    At some starts a copy of the data folder is taken, with the model as it is; strikes put it back."""

    COPY = "older"

    def __init__(self, place, seed, journal, connection=Connection):
        self.place, self.seed, self.journal, self.connection = place, seed, journal, connection
        self.rng = random.Random(f"{seed}/world")
        self.users = ("anna", "bert")
        self.model = Model()
        self.copy, self.copy_boot, self.catalog_copy = None, 0, False
        self.folder = DataFolder(place.data, place.root / "copies")
        self.service = Service(place.data)
        for user in self.users:
            self.service.add_user(user, PASSWORD)
        self.gate = Gate(CLIENTS)
        self.clients = [Client(self, f"client{i}", self.users[i % len(self.users)], seed) for i in range(CLIENTS)]

    def session(self, user, machine):
        return Session(self.connection(self.service.address), user, machine, lambda: self.place.powered)

    def note(self, what):
        self.journal.note("", what)

    def start(self):
        if self.model.completions and (not self.copy or self.rng.random() < 0.4):
            self.folder.save(self.COPY)
            self.copy, self.copy_boot, self.catalog_copy = self.model.copy(), self.place.boots, True
        self.service.start()

    def forget_catalog_copy(self):
        """The packages have changed in a way that the copied catalog does not know of."""
        self.catalog_copy = False

    def rewind(self):
        """The service knows what it knew when the copy was taken; clients go on with something else."""
        self.model = self.copy.copy()
        if self.copy_boot != self.place.boots:
            self.model.power_cut()  # which is what the service must take it for
        self.gate.rewind()

    def torment(self, strikes, enough):
        """A life of the service for each of the (name, strike), or until it is `enough`."""
        for client in self.clients:
            client.thread.start()
        try:
            self.gate.rest()
            self.start()
            for name, strike in strikes:
                self.gate.open()
                self.gate.await_requests(self.rng.randrange(20, REQUESTS))
                self.note(f"== {name}")
                thorough = strike(self)
                self.start()
                self.audit(None if thorough else SOME)
                if enough():
                    break
            self.note("== end")
            self.service.stop()
            self.start()
            self.audit()
            self.service.stop()
        finally:
            self.gate.dismiss()
            for client in self.clients:
                client.thread.join()
            if self.service.process and not self.service.process.ended:
                self.service.kill()

    def told(self):
        states = [state for i in self.model.all() for state in i.states]
        return f"{states.count('completed')} of {len(states)} backups completed"

    def audit(self, most=None):
        self.note("-- audit")
        Audit(self, f"{self.seed}/{self.rng.random()}").run(most)
