"""The contract suite of the storage back ends, run on a storage-server."""

import os
import subprocess
import unittest

from layout import NATIVE_BIN, ROOT, WINDOWS_BIN
from machine import windows_path
from server import Server
from system import PASSWORD, USER, work_folder

SUITE = WINDOWS_BIN / "storage_contract.exe"


class ContractTest(unittest.TestCase):
    def test_the_web_back_end_keeps_the_contract(self):
        folder = work_folder(self.addCleanup, "contract")
        server = Server(folder / "server")
        server.add_user(USER, PASSWORD)
        with server:
            lines = ("127.0.0.1", str(server.port), USER, PASSWORD, windows_path(server.data))
            # A prefix of its own: the suite may be running on a folder at the same time.
            environment = dict(os.environ, DORVO_CONTRACT_SERVER="\n".join(lines),
                               DORVO_PREFIX=str(folder / "prefix"))
            suite = subprocess.run([ROOT / "cmake" / "wine-run", SUITE], env=environment, timeout=900,
                                   stdin=subprocess.DEVNULL, capture_output=True, text=True, check=False)
        self.assertEqual(suite.returncode, 0, suite.stdout[-8000:] + suite.stderr[-2000:])
        self.assertIn("/Web", suite.stdout)
        self.assertNotIn("/Local", suite.stdout)


if __name__ == "__main__":
    unittest.main()
