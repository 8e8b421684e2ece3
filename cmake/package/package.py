#!/usr/bin/env python3
"""Makes build/dorvo-agent-<version>-win64.zip: the agent as users install it.

The same programs give the same bytes, whenever and wherever they are packed."""

import pathlib
import re
import sys
import zipfile

from programs import BUILD, stripped_programs, version

HERE = pathlib.Path(__file__).resolve().parent
DOC = pathlib.Path("/usr/share/doc")
COMMON = pathlib.Path("/usr/share/common-licenses")
# What is linked into the programs or shipped beside them: a library that the build made itself
# (by its name in build/libraries.cmake) or a Debian package, and the words for it.
LICENCES = {
    "ACE": ("DORVO_ACE", "ADAPTIVE Communication Environment, in agent.exe and job.dll"),
    "Boost": ("libboost1.81-dev", "the Boost libraries, in all programs but vssreq.dll"),
    "CLI11": ("libcli11-dev", "the command line parser, in agent.exe"),
    "Crypto++": ("DORVO_CRYPTOPP", "Crypto++, in job.dll"),
    "GCC": ("gcc-mingw-w64-x86-64-posix-runtime", "libstdc++-6.dll and libgcc_s_seh-1.dll"),
    "OpenSSL": ("DORVO_OPENSSL", "OpenSSL, in job.dll"),
    "mingw-w64": ("mingw-w64-x86-64-dev", "libwinpthread-1.dll, and the start of all programs"),
    "zlib": ("libz-mingw-w64-dev", "zlib, in job.dll"),
}
EPOCH = (1980, 1, 1, 0, 0, 0)  # the first time that a zip knows


class Missing(Exception):
    pass


def licence_file(source):
    if source.startswith("DORVO_"):
        libraries = (BUILD / "libraries.cmake").read_text()
        return pathlib.Path(re.search(rf'set\({source} "(.*)"\)', libraries)[1]) / "LICENCE"
    return DOC / source / "copyright"


def licence(name):
    """The text, and those of the licences that it only names."""
    path = licence_file(LICENCES[name][0])
    if not path.is_file() or not path.stat().st_size:
        raise Missing(f"no licence of {name}: {path}")
    text = path.read_bytes()
    named = re.findall(rb"/usr/share/common-licenses/([\w.-]*\w)", text)
    for common in sorted(set(named)):
        text += b"\n\n" + b"=" * 78 + b"\n" + common + b"\n\n" + (COMMON / common.decode()).read_bytes()
    return text


def readme():
    width = max(map(len, LICENCES)) + 6
    words = {"version": version(),
             "licences": "\n".join(f"  {name + '.txt':{width}}{text}" for name, (_, text) in LICENCES.items())}
    text = (HERE / "README.txt").read_text(encoding="ascii")
    return re.sub(r"@(\w+)@", lambda match: words[match[1]], text).encode()


def with_windows_line_ends(text):
    return re.sub(rb"\r?\n", b"\r\n", text)


def contents(stripped):
    """Name in the package -> bytes."""
    files = {program.name: program.read_bytes() for program in stripped_programs(stripped)}
    texts = {"README.txt": readme(), **{f"licences/{name}.txt": licence(name) for name in LICENCES}}
    return files | {name: with_windows_line_ends(text) for name, text in texts.items()}


def make_package(folder, stripped=BUILD / "stripped"):
    """The package, made in `folder`; `stripped` keeps programs between two packagings."""
    package = folder / f"dorvo-agent-{version()}-win64.zip"
    files = contents(stripped)
    new = package.with_suffix(".new")
    with zipfile.ZipFile(new, "w", zipfile.ZIP_DEFLATED, compresslevel=9) as archive:
        for name, data in sorted(files.items()):
            entry = zipfile.ZipInfo(name, EPOCH)
            entry.compress_type = zipfile.ZIP_DEFLATED
            entry.create_system = 0  # as made on Windows: no file modes
            archive.writestr(entry, data)
    new.replace(package)
    return package


if __name__ == "__main__":
    try:
        print(make_package(BUILD))
    except Missing as missing:
        sys.exit(f"package: {missing}")
