"""One data folder from its first request to its last: clients, the service, and what strikes it."""

import random

from audit import Audit
from client import PASSWORD, Client
from datafolder import DataFolder
from gate import Gate
from model import Model
from service import Service
from session import Connection, Session

CLIENTS = 6
REQUESTS = 600  # at most, in one life of the service


class World:
    """`connection` makes what requests go over, of an address."""

    def __init__(self, place, seed, journal, connection=Connection):
        self.place, self.seed, self.journal, self.connection = place, seed, journal, connection
        self.rng = random.Random(f"{seed}/world")
        self.users = ("anna", "bert")
        self.model = Model()
        self.folder = DataFolder(place.data, place.root / "copies")
        self.service = Service(place.data)
        for user in self.users:
            self.service.add_user(user, PASSWORD)
        self.gate = Gate(CLIENTS)
        self.clients = [Client(self, f"client{i}", self.users[i % len(self.users)], seed) for i in range(CLIENTS)]

    def session(self, user, machine):
        return Session(self.connection(self.service.address), user, machine)

    def note(self, what):
        self.journal.note("", what)

    def start(self):
        self.service.start()

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
                strike(self)
                self.start()
                self.audit(most=20)
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

    def audit(self, most=1 << 30):
        self.note("-- audit")
        Audit(self, f"{self.seed}/{self.rng.random()}").run(most)
