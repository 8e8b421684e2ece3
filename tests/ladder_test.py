#!/usr/bin/env python3
"""No include runs back up the ladder of folders: a module of src/ uses those that src/CMakeLists.txt
adds before it, a folder of agent/ or server/ those that its CMakeLists.txt names before it, and libs/
use nothing of src/. And no include leads back to where it came from, inside a folder neither: a header
and its source are one unit."""

import pathlib
import re
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[1]
TREES = ("libs", "src", "agent", "server")
INCLUDE = re.compile(r'^\s*#\s*include\s*"([^"]+)"', re.M)


def modules(root):
    return re.findall(r"^add_subdirectory\(([\w/]+)\)", (root / "src/CMakeLists.txt").read_text(), re.M)


def folders_of(root, top):
    found = re.search(r"^set\(folders ([\w ]+)\)", (root / top / "CMakeLists.txt").read_text(), re.M)
    return found[1].split()


def module_of(path, names):
    """The longest module that holds the path, None for a path of no module."""
    holding = [n for n in names if path.startswith(n + "/")]
    return max(holding, key=len) if holding else None


def sources(folder):
    return sorted(p for p in folder.rglob("*") if p.suffix in (".h", ".cpp"))


def climbing_between(root, top, names):
    """The same between the folders of one tree."""
    found = []
    for file in sources(root / top):
        own = module_of(str(file.relative_to(root / top)), names)
        for include in INCLUDE.findall(file.read_text()):
            # A name without a folder is a neighbour; what is of another tree is below all.
            if not (root / top / include).is_file() or include.startswith("testing/"):
                continue
            other = module_of(include, names)
            if own and (other is None or names.index(other) > names.index(own)):
                found.append((str(file.relative_to(root)), include))
    return found


def climbing_includes(root):
    """(file, include) of every include that runs back up."""
    found = climbing_between(root, "src", modules(root))
    for top in ("agent", "server"):
        found += climbing_between(root, top, folders_of(root, top))
    # The libraries are of the agent, not of the module: nothing of src/ is theirs.
    for file in sources(root / "libs"):
        for include in INCLUDE.findall(file.read_text()):
            below = (file.parent / include).is_file() or (root / "libs" / include).is_file()
            if not below and (root / "src" / include).is_file():
                found.append((str(file.relative_to(root)), include))
    return found


def included(root, file, include):
    """The project's file that an include names, None for a system's."""
    for folder in (file.parent, *(root / tree for tree in TREES), root):
        if (folder / include).is_file():
            return (folder / include).resolve()
    return None


def units(root):
    """What each unit, a path without its ending, includes of others."""
    graph = {}
    for tree in TREES:
        for file in sources(root / tree):
            own = file.resolve().with_suffix("")
            others = (included(root, file, include) for include in INCLUDE.findall(file.read_text()))
            graph.setdefault(own, set()).update(o.with_suffix("") for o in others if o and o.with_suffix("") != own)
    return graph


def reached(graph, start):
    found, ahead = set(), list(graph[start])
    while ahead:
        unit = ahead.pop()
        if unit not in found:
            found.add(unit)
            ahead.extend(graph.get(unit, ()))
    return found


def circles(root):
    """Each largest set of units that reach one another, by name."""
    graph = units(root)
    reach = {unit: reached(graph, unit) for unit in graph}
    found = {frozenset(o for o in reach[unit] if unit in reach.get(o, ())) for unit in graph if unit in reach[unit]}
    return sorted(sorted(str(unit.relative_to(root.resolve())) for unit in circle) for circle in found)


class LadderTest(unittest.TestCase):
    def test_no_include_runs_back_up(self):
        self.assertEqual(climbing_includes(ROOT), [])

    def test_no_include_leads_back(self):
        self.assertEqual(circles(ROOT), [])

    def test_finds_circles(self):
        with tempfile.TemporaryDirectory() as folder:
            root = pathlib.Path(folder)
            files = {"src/job/job.h": "", "src/job/job.cpp": '#include "job/job.h"\n#include "job/run.h"\n',
                     "src/job/run.h": '#include "list.h"\n', "src/job/list.cpp": '#include "job/job.h"\n',
                     "src/job/list.h": "", "src/job/item.h": '#include "job/job.h"\n',
                     "server/a.h": '#include "b.h"\n', "server/b.h": "", "server/b.cpp": '#include "a.h"\n'}
            for name, text in files.items():
                (root / name).parent.mkdir(parents=True, exist_ok=True)
                (root / name).write_text(text)
            self.assertEqual(circles(root), [["server/a", "server/b"], ["src/job/job", "src/job/list", "src/job/run"]])

    def test_every_source_stands_in_a_module(self):
        strays = [str(f.relative_to(ROOT)) for top, names in (("src", modules(ROOT)), ("agent", folders_of(ROOT, "agent")))
                  for f in sources(ROOT / top)
                  if f.parent != ROOT / top and not module_of(str(f.relative_to(ROOT / top)), names)]
        self.assertEqual(strays, [])

    def test_finds_what_it_looks_for(self):
        with tempfile.TemporaryDirectory() as folder:
            root = pathlib.Path(folder)
            files = {"src/CMakeLists.txt": "add_subdirectory(base)\nadd_subdirectory(source)\nadd_subdirectory(job)\n",
                     "src/base/log.h": '#include "job/job.h"\n', "src/job/job.h": '#include "source/walk.h"\n',
                     "src/source/walk.h": '#include "base/log.h"\n#  include "job/job.h"\n',
                     "agent/CMakeLists.txt": "set(folders data cli)\n", "agent/cli/show.h": '#include "data/store.h"\n',
                     "server/CMakeLists.txt": "set(folders catalog)\n",
                     "server/catalog/rows.h": '#include "testing/disk.h"\n#include "server.h"\n',
                     "server/server.h": '#include "catalog/rows.h"\n', "server/testing/disk.h": "",
                     "agent/data/store.h": '#include "job/job.h"\n#include "cli/show.h"\n',
                     "libs/def/def.h": '#include "job/job.h"\n#include "def/other.h"\n', "libs/def/other.h": ""}
            for name, text in files.items():
                (root / name).parent.mkdir(parents=True, exist_ok=True)
                (root / name).write_text(text)
            self.assertEqual(climbing_includes(root), [("src/base/log.h", "job/job.h"),
                                                       ("src/source/walk.h", "job/job.h"),
                                                       ("agent/data/store.h", "cli/show.h"),
                                                       ("server/catalog/rows.h", "server.h"),
                                                       ("libs/def/def.h", "job/job.h")])


if __name__ == "__main__":
    unittest.main()
