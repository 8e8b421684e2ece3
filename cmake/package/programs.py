"""What an installation of the agent consists of, taken from the build without debug information."""

import fcntl
import os
import pathlib
import re
import subprocess

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(os.environ.get("DORVO_BUILD", ROOT / "build"))
WINDOWS_BIN = BUILD / "windows" / "bin"
# The time that binary tools write into a program, as ./dev has it: not that of their run.
FIXED_TIME = {"SOURCE_DATE_EPOCH": "315532800", **os.environ}
PROGRAMS = ("agent.exe", "job.dll", "jobdef.dll", "vssreq.dll", "httpmsg.dll",
            "libstdc++-6.dll", "libgcc_s_seh-1.dll", "libwinpthread-1.dll")


def version():
    """The project's, which the build gives to agent.exe too."""
    return re.search(r"project\(dorvo VERSION (\S+)", (ROOT / "CMakeLists.txt").read_text())[1]


def stripped_programs(folder):
    """The programs in `folder`, which is made; what is newer in the build is stripped again."""
    folder.mkdir(parents=True, exist_ok=True)
    programs = []
    with open(folder / "lock", "w") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        for name in PROGRAMS:
            source, target = WINDOWS_BIN / name, folder / name
            built = source.stat().st_mtime_ns
            if not target.exists() or target.stat().st_mtime_ns != built:
                stripped = folder / "stripped"
                subprocess.run(["x86_64-w64-mingw32-strip", "-o", stripped, source], env=FIXED_TIME, check=True)
                os.utime(stripped, ns=(built, built))
                stripped.replace(target)
            programs.append(target)
    return programs
