#!/usr/bin/env python3
"""Torments storage-server for some seconds and says whether it kept its word.

usage: torture.py [SECONDS]

Clients back up and restore without end while the service is killed, stopped, robbed of power and
room, and its files are damaged; after every start all that was ever acknowledged is read again. See
model.py for what is owed. On a failure the last events are printed, and the data folder is kept
below build/torture.

DORVO_TORTURE_SEED=N     repeats the choices of an earlier run; what runs side by side falls as it falls
DORVO_TORTURE_STRIKES=P  only the strikes whose names match the pattern
"""

import os
import pathlib
import random
import re
import shutil
import signal
import subprocess
import sys
import time
import traceback

sys.dont_write_bytecode = True
sys.path.append(str(pathlib.Path(__file__).resolve().parents[1] / "e2e"))

import damage  # noqa: E402
import place  # noqa: E402
import strikes  # noqa: E402
from journal import Journal  # noqa: E402
from layout import BUILD  # noqa: E402
from world import World  # noqa: E402

SHOWN = 60  # events of a failure
MEGABYTES = 512


def keep(world, where, journal, seed, error):
    """What is needed to understand a failure."""
    shutil.rmtree(where, ignore_errors=True)
    where.mkdir(parents=True)
    (where / "events").write_text("\n".join(journal.lines()) + "\n")
    (where / "log").write_text(world.service.log() if world.service.process else "")
    subprocess.run(["cp", "-a", world.place.data, where / "data"])
    traceback.print_exception(error)
    print("\n".join(journal.lines()[-SHOWN:]), file=sys.stderr)
    print(f"torture: {error}\nseed {seed}; everything is in {where}", file=sys.stderr)


def torment(seed, enough):
    """One world; whether it was quiet."""
    home = BUILD / "torture"
    ground, why_not = place.make(home / str(os.getpid()), MEGABYTES)
    rng, journal, began = random.Random(f"{seed}/strikes"), Journal(), time.monotonic()
    possible = strikes.STRIKES | damage.STRIKES | (strikes.OWN_FILE_SYSTEM if ground.own else {})
    pattern = os.environ.get("DORVO_TORTURE_STRIKES", "")
    chosen = [item for item in possible.items() if re.search(pattern, item[0])]
    rng.shuffle(chosen)
    if not ground.own:
        print(f"skipped: {', '.join(strikes.OWN_FILE_SYSTEM)} ({why_not})")
    print(f"seed {seed}: {', '.join(name for name, _ in chosen)}", flush=True)
    world = World(ground, seed, journal)
    try:
        world.torment(chosen, enough)
    except Exception as error:
        keep(world, home / f"failed-{seed}", journal, seed, error)
        return False
    finally:
        ground.remove()
    print(f"seed {seed}: quiet, {world.told()} in {time.monotonic() - began:.0f} s", flush=True)
    return True


def main():
    seconds = sys.argv[1] if len(sys.argv) > 1 else "60"
    if not seconds.isdecimal():
        print(f"torture: '{seconds}' is no number of seconds", file=sys.stderr)
        return 2
    end = time.monotonic() + int(seconds)
    seed = int(os.environ.get("DORVO_TORTURE_SEED") or random.randrange(1 << 32))
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(1))  # what was started and mounted goes too
    torments = 0
    while torments == 0 or time.monotonic() < end:
        # The first world sees every strike, however long that takes.
        if not torment(seed + torments, lambda: torments > 0 and time.monotonic() > end):
            return 1
        torments += 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
