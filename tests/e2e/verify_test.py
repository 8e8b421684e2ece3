"""The package check accepts what is whole and finds every kind of damage."""

import os
import pathlib
import subprocess
import tempfile
import unittest
import zlib

import verify

KEY, IV = bytes(range(16)), bytes(range(16, 32))


def seal(plain):
    return subprocess.run(["openssl", "enc", "-aes-128-cbc", "-K", KEY.hex(), "-iv", IV.hex()], input=plain,
                          capture_output=True, check=True).stdout


class PackageCheckTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        self.content = os.urandom(70000) + b"text " * 50000
        (self.folder / "source").write_bytes(self.content)

    def check(self, package, compressed=1, key=KEY, before=b"", size=None):
        (self.folder / "container").write_bytes(before + package + b"the next package")
        place = (compressed, self.folder / "container", len(before), size or len(package), self.folder / "source")
        return verify.check_packages([place], key, IV)

    def test_accepts_whole_packages(self):
        self.assertEqual(self.check(seal(zlib.compress(self.content))), [])
        self.assertEqual(self.check(seal(self.content), compressed=0, before=b"another package"), [])

    def test_finds_damage(self):
        whole = seal(zlib.compress(self.content))
        changed = bytearray(self.content)
        changed[200001] ^= 1
        table = {"a changed byte": dict(package=seal(zlib.compress(bytes(changed)))),
                 "too short": dict(package=seal(zlib.compress(self.content[:-1]))),
                 "too long": dict(package=seal(zlib.compress(self.content + b"x"))),
                 "bytes after the stream": dict(package=seal(zlib.compress(self.content) + b"x")),
                 "a stream cut off": dict(package=seal(zlib.compress(self.content)[:-4])),
                 "a missing block": dict(package=whole[:-16]),
                 "a wrong key": dict(package=whole, key=IV),
                 "not compressed": dict(package=seal(self.content)),
                 "longer than its container": dict(package=whole, size=len(whole) + 1000)}
        for name, damage in table.items():
            with self.subTest(name):
                self.assertEqual(len(self.check(**damage)), 1)


if __name__ == "__main__":
    unittest.main()
