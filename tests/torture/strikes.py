"""What ends a life of the service without touching its bytes: kills, stops, power, room."""

import signal

from audit import SOME
from client import PASSWORD
from journal import Wrong
from model import CANCELLED, RUNNING
from reader import require


def kill(world):
    """Signal 9 while requests are under way."""
    world.gate.close()
    world.service.kill()
    world.gate.rest()


def stop(world):
    """SIGTERM while requests are under way; it ends with 0."""
    world.gate.close()
    world.service.stop()
    world.gate.rest()


def halt(world):
    """One or the other, before something is done to the files."""
    world.rng.choice((kill, stop))(world)


def cut_power(world):
    """Only what has reached the disk is left; another boot comes up."""
    world.gate.close()
    world.place.cut_power()
    world.service.kill()
    world.gate.rest()
    world.place.restore_power()
    world.model.power_cut()
    world.gate.rewind()


def hang_up(world):
    """SIGHUP, as after the log has been rotated, is nobody's end."""
    world.service.process.signal(signal.SIGHUP)
    world.gate.await_requests(100)
    kill(world)


def take_packages_away(world):
    """As when their file system is not mounted: no bytes count as lost, nothing is begun in their place."""
    packages, away = world.place.data / "packages", world.place.data / "away"
    world.gate.become_scarce()
    packages.rename(away)
    world.gate.await_requests(50)
    halt(world)
    if packages.exists() or world.service.try_start() is None:
        raise Wrong("the service serves without the folder of packages")
    away.rename(packages)
    return True


def fill_disk(world):
    """Uploads are refused; whoever reads, logs in, cancels or stops does not notice."""
    world.gate.become_scarce()
    world.place.fill(world.rng.randrange(1 << 20))
    world.gate.await_requests(200)
    world.gate.close()
    world.gate.rest()
    world.audit(SOME)
    cancel_one(world)
    world.service.stop()
    world.service.start()
    world.audit(SOME)
    world.service.stop()
    world.place.empty()


def cancel_one(world):
    left = [i for i in world.model.all() if i.is_only(RUNNING)]
    if not left:
        return
    instance = world.rng.choice(left)
    session = world.session(instance.user, instance.machine)
    require(session.login(PASSWORD), "login on a full disk")
    require(session.cancel(instance.name), f"cancel {instance.name} on a full disk")
    session.close()
    world.model.became(instance, CANCELLED)
    world.gate.rewind()  # somebody may have been about to go on with it


STRIKES = {"kill": kill, "stop": stop, "hang up": hang_up, "take packages away": take_packages_away}
OWN_FILE_SYSTEM = {"cut power": cut_power, "fill the disk": fill_disk}
