"""The data folder of a service that is not running, by what is documented of it."""

import pathlib
import shutil
import sqlite3
import subprocess

from journal import Wrong

CATALOG = ("catalog.db", "catalog.db-wal", "catalog.db-shm")


class DataFolder:
    def __init__(self, path, copies):
        self.path, self.copies = pathlib.Path(path), pathlib.Path(copies)

    def packages(self):
        """All package files, in the order of their names."""
        return sorted((self.path / "packages").glob("*/*.pkg"))

    def query(self, statement, *values):
        database = sqlite3.connect(self.path / "catalog.db")
        try:
            return database.execute(statement, values).fetchall()
        finally:
            database.close()

    def lying_in(self, package, begin=0, end=1 << 62):
        """(instance, path) of all that have bytes of that stretch of the package file."""
        rows = self.query("SELECT i.name, CAST(f.path AS TEXT) FROM files f JOIN instances i ON i.id = f.instance"
                          " WHERE f.kind = 1 AND f.container = ? AND f.offset < ? AND f.offset + f.size > ?",
                          int(package.stem), end, begin)
        return [(name, path) for name, path in rows]

    def stretches(self):
        """(file, begin, end) of each package with bytes."""
        rows = self.query("SELECT DISTINCT container, offset, size FROM files WHERE kind = 1 AND blocks > 0"
                          " ORDER BY container, offset")
        files = {int(file.stem): file for file in self.packages()}
        return [(files[c], offset, offset + size) for c, offset, size in rows if c in files]

    def completed_packages(self):
        """Of all package files that completed backups need, and that are there: file number -> bytes."""
        needed = {int(n) for n, in self.query(
            "SELECT DISTINCT f.container FROM files f JOIN instances i ON i.id = f.instance"
            " WHERE i.state = 2 AND f.kind = 1 AND f.size > 0")}
        there = (p.stat() for p in self.packages() if int(p.stem) in needed)
        return {status.st_ino: status.st_size for status in there}

    def require(self, packages):
        """Those still are somewhere in the folder, whatever they are called now."""
        there = {p.stat().st_ino: p.stat().st_size for p in self.path.rglob("*") if p.is_file()}
        gone = [size for number, size in packages.items() if there.get(number) != size]
        if gone:
            raise Wrong(f"{len(gone)} of {len(packages)} package files of completed backups are gone")

    def settle_log(self):
        """Moves the log into the database."""
        self.query("PRAGMA wal_checkpoint(TRUNCATE)")

    def save(self, name):
        """Keeps a copy of the folder."""
        shutil.rmtree(self.copies / name, ignore_errors=True)
        self._copy(self.path, self.copies / name)

    def put_back(self, name, catalog_only=False):
        if catalog_only:
            self.remove_catalog()
            for file in CATALOG:
                if (self.copies / name / file).exists():
                    shutil.copy2(self.copies / name / file, self.path / file)
        else:
            shutil.rmtree(self.path)
            self._copy(self.copies / name, self.path)

    @staticmethod
    def _copy(source, target):
        """Holes stay holes: package files may be far longer than what is in them."""
        target.parent.mkdir(exist_ok=True)
        subprocess.run(["cp", "-a", source, target], check=True)

    def remove_catalog(self):
        for file in CATALOG:
            (self.path / file).unlink(missing_ok=True)
