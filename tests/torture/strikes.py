"""What ends a life of the service without touching its bytes: kills, stops, power."""


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


def cut_power(world):
    """Only what has reached the disk is left; another boot comes up."""
    world.gate.close()
    world.place.cut_power()
    world.service.kill()
    world.gate.rest()
    world.place.restore_power()
    world.model.power_cut()
    world.gate.rewind()


STRIKES = {"kill": kill, "stop": stop}
OWN_FILE_SYSTEM = {"cut power": cut_power}
