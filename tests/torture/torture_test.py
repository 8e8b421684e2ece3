"""The torture finds what it looks for: a service that lies is caught, whatever it lies about."""

import contextlib
import itertools
import pathlib
import socket
import sys
import tempfile
import unittest
import unittest.mock

sys.path.append(str(pathlib.Path(__file__).resolve().parents[1] / "e2e"))

import session  # noqa: E402
from damage import flip_bits, remove_packages, truncate_packages  # noqa: E402
from journal import Journal, Wrong  # noqa: E402
from liar import LIES, Liar  # noqa: E402
from place import Folder  # noqa: E402
from strikes import kill  # noqa: E402
from world import World  # noqa: E402

FOUND = "nothing was done to it"  # by the service itself
LIVES = 20  # by then every client has long asked everything there is to ask


class TortureTest(unittest.TestCase):
    def torment(self, connection=session.Connection, strike=kill):
        with tempfile.TemporaryDirectory(prefix="dorvo-torture-") as folder:
            world = World(Folder(pathlib.Path(folder) / "place"), 1, Journal(), connection)
            world.torment(itertools.repeat(("strike", strike), LIVES), lambda: False)

    def test_catches_every_lie(self):
        for lie, (_, _, finding) in LIES.items():
            with self.subTest(lie), self.assertRaisesRegex(Wrong, finding):
                self.torment(lambda address, lie=lie: Liar(address, lie))

    def test_catches_damage_that_nobody_has_told_of(self):
        for damage in (flip_bits, truncate_packages, remove_packages):
            def strike(world, damage=damage):
                with unittest.mock.patch.object(world.model, "spoil", lambda _: None):
                    return damage(world)
            with self.subTest(damage.__name__), self.assertRaisesRegex(Wrong, FOUND):
                self.torment(strike=strike)

    def test_catches_a_service_that_hangs(self):
        with (unittest.mock.patch("session.PATIENCE", 0.1), socket.create_server(("127.0.0.1", 0)) as silent,
              contextlib.closing(session.Connection(silent.getsockname())) as connection,
              self.assertRaisesRegex(Wrong, "no answer")):
            session.Session(connection, "u", "m").login("p")


if __name__ == "__main__":
    unittest.main()
