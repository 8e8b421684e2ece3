"""One Windows machine of a test: a Wine prefix of its own with agent.exe installed in it."""

import base64
import fcntl
import json
import os
import pathlib
import re
import shutil
import subprocess

from layout import BUILD, PREFIX_HOME, WINDOWS_BIN
from process import Process
from programs import stripped_programs

GLOBAL_KEY = r"HKLM\Software\trevold\Dorvo"
HOST_NAME = r"HKLM\System\CurrentControlSet\Services\Tcpip\Parameters"


def wine_environment(prefix):
    return dict(os.environ, WINEPREFIX=str(prefix), WINEDEBUG="-all",
                WINEDLLOVERRIDES="winedbg.exe=d;mscoree=d;mshtml=d")


def make_prefix(prefix):
    """A copy of the template. What Windows itself is made of is linked: no test writes there."""
    template = PREFIX_HOME / "template"
    PREFIX_HOME.mkdir(parents=True, exist_ok=True)
    with open(PREFIX_HOME / "lock", "w") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        if not (template / "ready").exists():
            shutil.rmtree(template, ignore_errors=True)
            environment = wine_environment(template)
            subprocess.run(["wineboot", "-i"], env=environment, stdin=subprocess.DEVNULL,
                           stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, check=True)
            subprocess.run(["wineserver", "-w"], env=environment, check=True)
            (template / "ready").touch()
    (prefix / "drive_c").mkdir(parents=True)
    for entry in template.iterdir():
        if entry.name != "drive_c":
            subprocess.run(["cp", "-a", entry, prefix], check=True)
    for entry in (template / "drive_c").iterdir():
        subprocess.run(["cp", "-al" if entry.name == "windows" else "-a", entry, prefix / "drive_c"], check=True)
    shutil.rmtree(prefix / "drive_c" / "ProgramData" / "trevold", ignore_errors=True)


def windows_path(path):
    """The path under which a program in Wine sees a file of this machine."""
    return "Z:" + str(path).replace("/", "\\")


def unix_path(path):
    """The other way round; the drive's letter may be of either case."""
    if path[:2].lower() != "z:":
        raise ValueError(f"{path} is not on drive Z:")
    return path[2:].replace("\\", "/")


class Machine:
    """`folder` is made; close() ends everything that runs in it and leaves the files.

    Without a `name` of its own it has that of the machine on which Wine runs. With a `package` the
    agent is unpacked from it to where a user would."""

    def __init__(self, folder, name=None, package=None):
        self.folder = pathlib.Path(folder)
        self.prefix = self.folder / "prefix"
        make_prefix(self.prefix)
        self.environment = wine_environment(self.prefix)
        # Options beside the executable win over those of the data directory: an agent folder each.
        if package:
            self.home = self.prefix / "drive_c" / "Program Files" / "Dorvo"
            shutil.unpack_archive(package, self.home)
        else:
            self.home = self.folder / "agent"
            self.home.mkdir()
            for program in stripped_programs(BUILD / "stripped"):
                os.link(program, self.home / program.name)
        self.data = self.prefix / "drive_c" / "ProgramData" / "trevold" / "Dorvo"
        self._children = []
        # Keeps Wine's own servers up, so that each command costs milliseconds.
        self._keep = Process(["wine", str(WINDOWS_BIN / "keepalive.exe")], env=self.environment)
        self._keep.until_said("ready")
        if name:
            self.registry("add", HOST_NAME, "/v", "Hostname", "/d", name, "/f")

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def close(self):
        for child in self._children:
            if not child.ended:
                child.kill()
        self._keep.end_input()
        self._keep.wait(60)
        # Of this prefix only.
        subprocess.run(["wineserver", "-k"], env=self.environment, check=False)
        subprocess.run(["wineserver", "-w"], env=self.environment, check=False, timeout=60)

    def wine_server(self):
        """The process id of the prefix's own Wine server, which opens files for its programs."""
        wanted = f"WINEPREFIX={self.prefix}".encode()
        for folder in pathlib.Path("/proc").iterdir():
            try:
                if (folder / "comm").read_text().startswith("wineserver") \
                        and wanted in (folder / "environ").read_bytes().split(b"\0"):
                    return int(folder.name)
            except OSError:
                continue
        raise AssertionError(f"no Wine server of {self.prefix}")

    # -- the agent ----------------------------------------------------------------------------

    def start(self, *arguments, stdin="", **options):
        """agent.exe in the background; its process id is the Windows program's own."""
        child = Process(["wine", str(self.home / "agent.exe"), *map(str, arguments)],
                        env=self.environment, cwd=self.folder, stdin=stdin, **options)
        self._children.append(child)
        return child

    def agent(self, *arguments, stdin="", seconds=300, code=0):
        """Runs a command to its end; `code` is what it has to end with, None for whatever."""
        child = self.start(*arguments, stdin=stdin)
        ended = child.wait(seconds)
        if code is not None and ended != code:
            raise AssertionError(f"agent {arguments} ended with {ended}, not {code}\n{child.out}\n{child.err}")
        return child

    def listing(self, *arguments):
        return json.loads(self.agent(*arguments, "--json").out)

    def connect(self, address, user, password):
        self.agent("server", "set", "%s:%d" % address)
        self.agent("login", user, "--password-stdin", stdin=password + "\n")

    def set_option(self, **values):
        """Changes the options file as an administrator's editor would; no agent may be running."""
        for path in (self.data / "options", self.home / "options"):
            if path.exists():
                options = json.loads(path.read_text())
                options.update(values)
                path.write_text(json.dumps(options))

    # -- what it keeps ------------------------------------------------------------------------

    def job_folder(self, job):
        return self.data / "job" / job

    def user_key(self, user):
        """The user's 16 bytes of key and 16 of IV, opened with the openssl command line."""
        answer = self.registry("query", GLOBAL_KEY, "/v", "random")
        machine_key = base64.b64decode(re.search(r"REG_SZ\s+(\S+)", answer)[1])
        sealed = base64.b64decode((self.data / "keys").read_text())
        opened = subprocess.run(["openssl", "enc", "-d", "-aes-128-cbc", "-K", machine_key[:16].hex(),
                                 "-iv", machine_key[16:].hex()], input=sealed, capture_output=True, check=True)
        record = base64.b64decode(json.loads(opened.stdout)[user])
        if len(record) != 32:
            raise AssertionError(f"{user}'s key record has {len(record)} bytes")
        return record[:16], record[16:]

    def registry(self, *arguments):
        run = Process(["wine", "reg", *arguments], env=self.environment, stdin="")
        if run.wait(60) != 0:
            raise AssertionError(f"reg {arguments}: {run.out}{run.err}")
        return run.out
