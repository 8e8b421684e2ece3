"""Memory is flat in the number of files: a run over 200000 peaks at most 1.2 times one over 2000.

Both are runs over an unchanged tree: they walk, ask the server about every file, and have the
server carry every file over, which is all that a run does for the number of its files. The restores
list every file and find it in its place, where it is kept. (What is sent or fetched goes file by
file through the same code however many there are; 200000 under Wine would take the better part of
an hour.) The server gets to know the large tree by the test's hand: all files have the same
content, so their catalog rows can share the package of one that was sent.
"""

import os
import sqlite3
import unittest

from machine import windows_path
from system import System, SystemTest, write

FEW, MANY, FOLDER = 2000, 200000, 500
CONTENT = b"one of very many\n"


class MemoryTest(SystemTest):
    def add_files(self, tree, first, last):
        """Files of the same content and time; those of a folder are links to one, which is quick."""
        for number in range(first, last):
            folder = tree / f"{number // FOLDER:05}"
            path = folder / f"file number {number:06}.txt"
            if number % FOLDER == 0:
                write(path, CONTENT, mtime=1_500_000_000_000_000_000)
                model = path
            else:
                os.link(model, path)

    def teach_server(self, system, first, last):
        """Adds the files to the last backup, without seals and counts, as servers once kept them."""
        database = sqlite3.connect(system.server.data / "catalog.db")
        instance = database.execute("SELECT id FROM instances WHERE name = ?", (system.instance(),)).fetchone()[0]
        known = windows_path(system.tree / "00000" / "file number 000000.txt").encode()
        row = database.execute("SELECT attributes, mtime, compress, size, blocks, container, offset FROM files"
                               " WHERE instance = ? AND path = ?", (instance, known)).fetchone()
        paths = (windows_path(system.tree / f"{n // FOLDER:05}" / f"file number {n:06}.txt").encode()
                 for n in range(first, last))
        database.executemany("INSERT INTO files VALUES(?, ?, 1, ?, ?, ?, ?, ?, ?, ?, NULL)",
                             ((instance, path, *row) for path in paths))
        database.execute("UPDATE instances SET items = -1 WHERE id = ?", (instance,))
        database.commit()
        database.close()

    def unchanged_run(self, system, job):
        blocks = len(system.proxy.requests("uploadblock"))
        run = system.machine.agent("start", job, seconds=900)
        self.assertEqual(len(system.proxy.requests("uploadblock")), blocks, "an unchanged file was sent")
        return run

    def idle_restore(self, system):
        run = system.restore("--conflict", "keep", seconds=900)
        self.assertEqual(system.proxy.requests("DownloadFileBlock"), [], "a file that is there was fetched")
        return run

    def test_many_files_cost_no_more_memory_than_few(self):
        system = System(self, "memory")
        self.add_files(system.tree, 0, FEW)
        system.backup()
        job = system.job()
        few, few_back = self.unchanged_run(system, job), self.idle_restore(system)

        self.add_files(system.tree, FEW, MANY)
        system.server.stop()
        self.teach_server(system, FEW, MANY)
        system.server.start()
        many, many_back = self.unchanged_run(system, job), self.idle_restore(system)

        for way, small, large in (("backup", few, many), ("restore", few_back, many_back)):
            print(f"{way}: {small.peak_kib} KiB for {FEW} files, {large.peak_kib} KiB for {MANY}; without libraries "
                  f"{small.peak_own_kib} and {large.peak_own_kib} KiB; server: {system.server.process.peak_kib} KiB")
            with self.subTest(way):
                self.assertLessEqual(large.peak_kib, 1.2 * small.peak_kib)
        self.assertBackedUp(system)


if __name__ == "__main__":
    unittest.main()
