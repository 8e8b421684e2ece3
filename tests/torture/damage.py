"""What ends a life of the service and spoils its files: package files, the catalog, copies put back.

Each strike gives true when everything is to be read after it.
"""

import os

from audit import Audit
from journal import Wrong
from strikes import halt

PAGE = 4096


def spoil_packages(world, spoil):
    """`spoil(file, at)` spoils a package file at that offset, where a package lies, and says which
    stretch of the file it has spoilt."""
    halt(world)
    world.forget_catalog_copy()  # it would not know of the damage
    stretches = world.folder.stretches()
    for file, begin, end in world.rng.sample(stretches, min(3, len(stretches))):
        if not file.exists() or file.stat().st_size <= begin:
            continue  # announced only, or struck before
        begin, end = spoil(file, world.rng.randrange(begin, min(end, file.stat().st_size)))
        hit = world.folder.lying_in(file, begin, end)
        world.note(f"spoilt {file.name} from {begin} to {end}: {hit[:3]}")
        world.model.spoil(hit)
    return True


def overwrite(path, at, change):
    """Puts change(bytes) in the place of the page at an offset; the stretch that differs."""
    with open(path, "r+b") as file:
        file.seek(at)
        page = file.read(PAGE)
        file.seek(at)
        file.write(change(bytearray(page)))
    return at, at + len(page)


def flip_bits(world):
    def spoil(file, at):
        bit = 1 << world.rng.randrange(8)
        overwrite(file, at, lambda page: bytes([page[0] ^ bit]) + page[1:])
        return at, at + 1
    return spoil_packages(world, spoil)


def lose_pages(world):
    """They read as zeros, as those that a disk never wrote."""
    return spoil_packages(world, lambda file, at: overwrite(file, at // PAGE * PAGE, lambda page: bytes(len(page))))


def truncate_packages(world):
    def spoil(file, at):
        size = file.stat().st_size
        os.truncate(file, world.rng.choice((0, at)))
        return file.stat().st_size, size
    return spoil_packages(world, spoil)


def remove_packages(world):
    def spoil(file, _):
        size = file.stat().st_size
        file.unlink()
        return 0, size
    return spoil_packages(world, spoil)


def spoil_catalog(world, spoil, must_refuse=False):
    """A start over it is refused, or what is served is never wrong; either way nothing of a completed
    backup is deleted, and with the right files back everything is there."""
    halt(world)
    world.folder.save("good")
    owned = world.folder.completed_packages()
    spoil()
    refusal = world.service.try_start()
    world.note(f"refused: {refusal.strip()}" if refusal else "served")
    if refusal is None:
        if must_refuse and owned:
            raise Wrong("packages are served without the catalog that they belong to")
        Audit(world, world.rng.random()).doubt()
        world.service.kill()
    world.folder.require(owned)
    world.folder.put_back("good")
    return True


def lose_catalog(world):
    """No catalog, or an empty file, beside packages."""
    def spoil():
        world.folder.remove_catalog()
        if world.rng.random() < 0.5:
            (world.folder.path / "catalog.db").touch()
    return spoil_catalog(world, spoil, must_refuse=True)


def flip_catalog(world):
    def spoil():
        world.folder.settle_log()
        catalog = world.folder.path / "catalog.db"
        for _ in range(world.rng.randrange(1, 4)):
            bit = 1 << world.rng.randrange(8)
            overwrite(catalog, world.rng.randrange(catalog.stat().st_size),
                      lambda page, bit=bit: bytes([page[0] ^ bit]) + page[1:])
    return spoil_catalog(world, spoil)


def lose_log(world):
    """The database's log, as when a live folder is copied file by file without it."""
    def spoil():
        (world.folder.path / "catalog.db-wal").unlink(missing_ok=True)
    return spoil_catalog(world, spoil)


def older_catalog(world):
    """What was completed when it was copied is there; what came later is put aside, not deleted."""
    halt(world)
    if world.catalog_copy:
        owned = world.folder.completed_packages()
        world.folder.put_back(world.COPY, catalog_only=True)
        world.rewind()
        world.model.catalog_rewound()
        world.service.start()
        world.service.kill()
        world.folder.require(owned)
    return True


def older_folder(world):
    halt(world)
    if world.copy:
        world.folder.put_back(world.COPY)
        world.rewind()
    return True


STRIKES = {"flip bits of packages": flip_bits, "lose pages of packages": lose_pages,
           "truncate packages": truncate_packages, "remove packages": remove_packages,
           "lose the catalog": lose_catalog, "flip bits of the catalog": flip_catalog,
           "lose the catalog's log": lose_log, "put back an older catalog": older_catalog,
           "put back an older folder": older_folder}
