"""What users get: the package is whole, and on a machine that has nothing else the service that it
installs backs up and restores. Under Wine everybody is an administrator."""

import re
import shlex
import subprocess
import unittest
import unittest.mock
import zipfile

import trees
from machine import windows_path
from system import System, SystemTest, make_tree, until, work_folder

import package
from programs import PROGRAMS, version

# What every Windows has.
SYSTEM_LIBRARIES = {"advapi32", "bcrypt", "crypt32", "gdi32", "iphlpapi", "kernel32", "msvcrt", "mswsock", "netapi32", "ole32",
                    "oleaut32", "rpcrt4", "shell32", "shlwapi", "user32", "vssapi", "winhttp", "ws2_32"}
# Words that each licence has.
LICENCES = {"ACE": "Douglas C. Schmidt", "Boost": "Boost Software License", "CLI11": "University of Cincinnati",
            "Crypto++": "Wei Dai", "GCC": "GCC RUNTIME LIBRARY EXCEPTION", "OpenSSL": "Apache License",
            "mingw-w64": "winpthreads", "zlib": "Jean-loup Gailly"}
FAILED, PAUSED = 1, 4


class PackageTest(SystemTest):
    @classmethod
    def setUpClass(cls):
        cls.folder = work_folder(cls.addClassCleanup, "package")
        cls.package = package.make_package(cls.folder)
        with zipfile.ZipFile(cls.package) as archive:
            cls.files = {name: archive.read(name) for name in archive.namelist()}

    def test_it_is_whole(self):
        self.assertEqual(self.package.name, f"dorvo-agent-{version()}-win64.zip")
        self.assertEqual(set(self.files), {*PROGRAMS, "README.txt", *(f"licences/{name}.txt" for name in LICENCES)})
        for name, word in LICENCES.items():
            text = self.files[f"licences/{name}.txt"].decode(errors="replace")
            self.assertTrue(word in text, name)
            for common in re.findall(r"/usr/share/common-licenses/([\w.-]*\w)", text):
                self.assertTrue("=" * 78 + f"\r\n{common}\r\n" in text, (name, common))
        text = self.files["README.txt"]
        self.assertEqual(text.count(b"\n"), text.count(b"\r\n"))
        self.assertIn(version().encode(), text)
        self.assertNotIn(b"@", text)

    def test_programs_import_what_is_in_it_or_in_windows(self):
        there = SYSTEM_LIBRARIES | {name.removesuffix(".dll").lower() for name in PROGRAMS}
        for name in PROGRAMS:
            program = self.folder / name
            program.write_bytes(self.files[name])
            headers = subprocess.run(["x86_64-w64-mingw32-objdump", "-p", program], capture_output=True, text=True, check=True)
            imports = re.findall(r"DLL Name: (\S+)", headers.stdout)
            self.assertTrue(imports, name)
            self.assertEqual({i for i in imports if i.lower().removesuffix(".dll") not in there}, set(), name)

    def test_the_same_programs_make_the_same_package(self):
        first = self.package.read_bytes()
        self.assertTrue(package.make_package(self.folder, self.folder / "stripped again").read_bytes() == first)

    def test_no_licence_is_left_out(self):
        with unittest.mock.patch.dict(package.LICENCES, {"zlib": ("no-such-package", "")}):
            self.assertRaisesRegex(package.Missing, "zlib", package.make_package, self.folder)

    def test_it_installs_backs_up_and_restores(self):
        system = System(self, "service", package=self.package)
        machine, tree, target = system.machine, system.tree, system.folder / "restored"
        make_tree(tree)
        self.assertEqual(machine.agent("--version").out.split(), ["agent", version()])
        self.follow_the_readme(machine)
        service = lambda verb, code=0: machine.agent("service", verb, code=code)
        status = lambda: service("status", None).out

        self.assertIn("not installed", status())
        self.assertIn("agent service install", service("start", FAILED).err)
        # In the middle of a run that holds the data directory.
        fault, run = system.held_backup()
        service("install")
        self.assertIn("installed already", service("install", FAILED).err)
        self.assertIn("service manager", service("run", FAILED).err)
        self.assertIn("stopped", status())
        for verb in ("start", "status"):
            self.assertRegex(service(verb, FAILED).out, "runs no jobs: it waits until process .* backup ")
        self.assertIn("waits and runs nothing", (machine.data / "log").read_text(errors="replace"))
        fault.release()
        self.assertEqual(run.wait(60), 0, run.out + run.err)
        watch = machine.start("watch")
        until(lambda: service("status", None).wait(0) == 0, watch)
        self.assertIn("running", status())
        self.assertIn("already", machine.agent("run", code=FAILED).err)
        self.assertBackedUp(system)

        expected = trees.snapshot(tree)
        fault, run = system.held_backup("--name", "again")
        service("stop")
        self.assertEqual(run.wait(60), PAUSED, run.out + run.err)
        self.assertIn("stopped", status())
        fault.abandon()
        ended = len(system.proxy.requests("endjob"))
        service("start")
        watch = machine.start("watch")
        until(lambda: [r for r in system.proxy.requests("endjob")[ended:] if r.status == 200], watch)
        self.assertBackedUp(system)

        machine.agent("key", "export", windows_path(system.folder / "keys"), "--passphrase-stdin", stdin="a passphrase\n")
        system.restore(*system.to(target))
        self.assertRestored(system, expected, target)
        service("uninstall")
        self.assertIn("not installed", status())
        self.assertFalse((machine.data / "control").exists())
        # Without the service a command is enough by itself, with what the service has kept.
        system.backup()
        self.assertEqual(len([j for j in machine.listing("jobs") if j["type"] == "backup"]), 2)

    def follow_the_readme(self, machine):
        """Each command of it is one, with the options that it names."""
        commands = re.findall(r"^    agent (.*)\r$", self.files["README.txt"].decode(), re.MULTILINE)
        self.assertTrue(commands)
        for command in commands:
            words = shlex.split(command.replace("\\", "/"))
            text = machine.agent(*words, "--help").out
            for option in (word for word in words if word.startswith("--")):
                self.assertIn(option, text, command)


if __name__ == "__main__":
    unittest.main()
