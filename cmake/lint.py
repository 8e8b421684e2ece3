#!/usr/bin/env python3
"""Everything that is checked without running it; each finding is an error.

lint.py [--all] [NAME...]    all sources, or those whose paths hold a NAME

clang-format sees every source. clang-tidy sees each file with the flags of its real build, the first
that has it: Windows, native, sanitizers (for fuzz/). A file without findings is kept by content, its
flags and all it includes among it, below ~/.cache/dorvo/lint, and is not looked at again before one of
them changes; --all looks at everything. The paths through a test are not analysed: the sanitizers see
tests run, and one of them costs as much as ten sources. cppcheck keeps its own results in build/cppcheck.
"""

import concurrent.futures
import hashlib
import json
import os
import pathlib
import shlex
import shutil
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
CACHE = pathlib.Path(os.environ.get("XDG_CACHE_HOME", pathlib.Path.home() / ".cache")) / "dorvo/lint"
CROSS = "x86_64-w64-mingw32-g++-posix"
CPPCHECK = """--quiet --std=c++20 --language=c++ --enable=warning,performance,portability --inline-suppr
  --suppress=missingIncludeSystem --suppress=syntaxError:src/job/transfer*_test.cpp
  --library=googletest,windows --error-exitcode=1 --cppcheck-build-dir=build/cppcheck -I src -I libs""".split()
PLUGIN = ROOT / "cmake/lint_own_code.cpp"
CHECKED = ["src", "libs", "agent", "server", "bench", "tests", "fuzz"]


def run(*command):
    return subprocess.run(command, cwd=ROOT, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)


def output(*command):
    return subprocess.run(command, cwd=ROOT, stdout=subprocess.PIPE, check=True, text=True).stdout


class Contents:
    """Digests of the project's files, each read once; None for those of the system."""

    def __init__(self):
        self._digests = {}

    def digest(self, folder, name):
        path = os.path.normpath(os.path.join(folder, name))
        if path not in self._digests:
            inside = path.startswith(f"{ROOT}/")
            self._digests[path] = hashlib.sha256(pathlib.Path(path).read_bytes()).digest() if inside else None
        return self._digests[path]


def without_precompiled(command):
    """clang cannot read gcc's precompiled headers; and so it sees whether a file includes what it uses."""
    words = shlex.split(command)
    at = next((n for n, word in enumerate(words) if word.endswith("/cmake_pch.hxx")), None)
    if at:
        del words[at - 1 : at + 1]
    return shlex.join(word for word in words if word not in ("-Winvalid-pch", "-fpch-preprocess"))


class Build:
    """One preset's compile commands, and what each of its objects was made from."""

    def __init__(self, preset, extra):
        self.folder = ROOT / "build" / preset
        self.commands = ROOT / "build/lint" / preset
        self.extra = extra
        self.entries = {}
        for entry in json.loads((self.folder / "compile_commands.json").read_text()):
            path = pathlib.Path(entry["file"])
            inside = path.is_relative_to(ROOT) and not path.is_relative_to(ROOT / "build")
            if inside:
                entry["command"] = without_precompiled(entry["command"])
                self.entries.setdefault(str(path.relative_to(ROOT)), entry)
        self.commands.mkdir(parents=True, exist_ok=True)
        (self.commands / "compile_commands.json").write_text(json.dumps(list(self.entries.values())))
        self._dependencies = self._read_dependencies()

    def _read_dependencies(self):
        found, current = {}, []
        for line in output("ninja", "-C", str(self.folder), "-t", "deps").splitlines():
            if line.startswith("    "):
                current.append(line.strip())
            elif ": #deps" in line:
                current = found.setdefault(line.split(": #deps")[0], [])
        return found

    def key(self, path, tools, contents):
        """None for what was never built: nothing is known of what it includes."""
        words = shlex.split(self.entries[path]["command"])
        dependencies = self._dependencies.get(words[words.index("-o") + 1])
        if not dependencies:
            return None
        key = hashlib.sha256(tools)
        key.update(" ".join(words + self.arguments(path)).replace(str(ROOT), ".").encode())
        for name in sorted(set(dependencies)):
            if digest := contents.digest(self.folder, name):
                key.update(name.encode() + digest)
        return key.hexdigest()

    def arguments(self, path):
        return self.extra + (["--checks=-clang-analyzer-*"] if path.endswith("_test.cpp") else [])

    def check(self, path, plugin):
        return run("clang-tidy", "-quiet", f"--load={plugin}", "-p", str(self.commands), *self.arguments(path), path)


def cross_arguments():
    """clang reads the cross compiler's own headers."""
    library = output(CROSS, "-print-libgcc-file-name").strip()
    include = pathlib.Path(library).parent / "include"
    folders = [include / name for name in ("c++", "c++/x86_64-w64-mingw32", "c++/backward")]
    return ["--extra-arg=--target=x86_64-w64-mingw32", "--extra-arg=-nostdinc++",
            *(f"--extra-arg=-isystem{folder}" for folder in folders)]


def toolchain():
    """What all results depend on: the tools and the rules."""
    versions = [output(tool, "--version") for tool in ("clang-tidy", "g++", CROSS)]
    rules = (ROOT / ".clang-tidy").read_bytes() + PLUGIN.read_bytes()
    return hashlib.sha256("".join(versions).encode() + rules).digest()


def own_code_plugin(tools):
    """Built once for each of its texts and each clang-tidy."""
    built = CACHE / f"own-code-{tools.hex()[:16]}.so"
    if not built.exists():
        fresh = CACHE / f"{built.name}.{os.getpid()}"
        flags = output("llvm-config", "--cxxflags").split()
        subprocess.run(["clang++", "-shared", "-fPIC", *flags, "-O1", "-std=c++17", "-o", str(fresh), str(PLUGIN)], check=True)
        fresh.rename(built)
    return built


def chosen_files(builds, names):
    """(build, path) of all that clang-tidy looks at; each file once."""
    taken = {}
    for build, prefix in builds:
        for path in build.entries:
            if path.startswith(prefix) and (not names or any(name in path for name in names)):
                taken.setdefault(path, build)
    return [(taken[path], path) for path in sorted(taken)]


def tidy(names, everything):
    builds = [(Build("windows", cross_arguments()), ""), (Build("native", []), ""),
              (Build("sanitize", []), "fuzz/")]
    tools, contents = toolchain(), Contents()
    CACHE.mkdir(parents=True, exist_ok=True)
    todo = []
    files = chosen_files(builds, names)
    for build, path in files:
        key = build.key(path, tools, contents)
        if everything or key is None or not (CACHE / key).exists():
            todo.append((build, path, key))
    todo.sort(key=lambda one: (ROOT / one[1]).stat().st_size, reverse=True)  # no long one last
    plugin = own_code_plugin(tools) if todo else None
    print(f"lint: clang-tidy: {len(todo)} of {len(files)} files changed", flush=True)
    clean = True
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        results = [(path, key, pool.submit(build.check, path, plugin)) for build, path, key in todo]
        for count, (path, key, result) in enumerate(results, 1):
            result = result.result()
            if sys.stderr.isatty():
                print(f"\r\033[K[{count}/{len(todo)}] {path}", end="", file=sys.stderr, flush=True)
            if result.returncode == 0:
                if key:
                    (CACHE / key).touch()
                continue
            clean = False
            print(f"\n{path}\n{result.stdout}", flush=True)
    return clean


def format_is_right(names):
    sources = output("git", "ls-files", "--cached", "--others", "--exclude-standard", "*.cpp", "*.h").split()
    sources = [path for path in sources if (ROOT / path).exists() and
               (not names or any(name in path for name in names))]
    if not sources:
        return True
    result = run("clang-format", "--dry-run", "-Werror", *sources)
    print(result.stdout, end="", flush=True)
    return result.returncode == 0


def cppcheck(names, everything):
    kept = ROOT / "build/cppcheck"
    if everything:
        shutil.rmtree(kept, ignore_errors=True)
    kept.mkdir(parents=True, exist_ok=True)
    filters = [f"--file-filter=*{name}*" for name in names]
    result = run("cppcheck", *CPPCHECK, "-j", str(os.cpu_count()), *filters, *CHECKED)
    print(result.stdout, end="", flush=True)
    return result.returncode == 0


def main():
    names = [name for name in sys.argv[1:] if name != "--all"]
    everything = "--all" in sys.argv[1:]
    if any(name.startswith("-") for name in names):
        sys.exit("lint: usage: ./dev lint [--all] [NAME...]")
    results = [format_is_right(names), cppcheck(names, everything), tidy(names, everything)]
    sys.exit(0 if all(results) else 1)


if __name__ == "__main__":
    main()
