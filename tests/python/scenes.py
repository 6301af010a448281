"""Small scenes on the host's threads, for tests of what a script sees."""

import drelt
import numpy as np

HOST = -1  # the device of host threads


def make_params(**changes):
    """A box of 16 x 14 x 14 nodes, two diameters of the sphere long."""
    params = drelt.make_simParams()
    params.setup_mode = drelt.SETUP_MODE.MANUAL
    params.N, params.l0p = 8, 0.02
    params.u0k, params.u0p = 0.05, 0.1
    params.visp, params.rou0p = 4e-5, 1000.0
    params.width, params.height, params.depth = 0.039, 0.034, 0.034
    params.pml_width = 2
    for name, value in changes.items():
        setattr(params, name, value)
    return params


def make_body(samples=2000, device=HOST, asset="sphere_follow"):
    description = drelt.skeletonFromJson(f"assets/{asset}.json", device)
    zero = np.zeros(3)
    return drelt.make_skDynamics(description, samples, device, zero, zero, np.ones(3))


def make_scene(**changes):
    """Simulator, world and body of a falling sphere, ready to step."""
    simulator = drelt.make_simulator(make_params(**changes), HOST)
    world = drelt.make_skWorld([0.5, 0, 0])
    body = make_body()
    world.addSkeleton(body)
    simulator.attachWorld(world)
    simulator.commitInit()
    return simulator, world, body
