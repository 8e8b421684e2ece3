"""The data folder of a service that is not running, by what is documented of it."""

import pathlib
import shutil
import sqlite3

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

    def save(self, name, catalog_only=False):
        """Keeps a copy of the folder, or of the catalog's files."""
        self.forget(name)
        target = self.copies / name
        if not catalog_only:
            shutil.copytree(self.path, target)
            return
        target.mkdir(parents=True)
        for file in CATALOG:
            if (self.path / file).exists():
                shutil.copy2(self.path / file, target / file)

    def put_back(self, name, catalog_only=False):
        if not catalog_only:
            shutil.rmtree(self.path)
            shutil.copytree(self.copies / name, self.path)
            return
        self.remove_catalog()
        for file in (self.copies / name).iterdir():
            shutil.copy2(file, self.path / file.name)

    def remove_catalog(self):
        for file in CATALOG:
            (self.path / file).unlink(missing_ok=True)

    def forget(self, name):
        shutil.rmtree(self.copies / name, ignore_errors=True)
