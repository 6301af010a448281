"""Scenes for tests of state files, and their runs; a program too, for runs in another process."""

import sys

import drelt
import numpy as np
from scenes import HOST, make_body, make_params, make_scene

TWO_WAY = drelt.COUPLE_MODE.TWO_WAY


def plain():
    """A falling sphere in a layer, on a grid that follows it."""
    return make_scene()


def options():
    params = make_params(pml_width=0, retraction=0.8, current=(0.02, 0.0, 0.01))
    params.coupling = drelt.COUPLING.SEMI_IMPLICIT
    params.open_planes = drelt.OPEN_PLANES.CHARACTERISTIC
    sphere = make_body()
    sphere.getJoint("bone_00").setVelocity(
        0, 0.02
    )  # before the commit, so a restart goes back to it
    return scene_of(params, [sphere])


def two_bodies():
    """A swimmer with servos and markers, which the grid follows, and a sphere in its box."""
    params = make_params(width=0.22, height=0.064, depth=0.08, N=4, u0k=0.02)
    swimmer = make_body(800, asset="swimmer_follow")
    sphere = make_body(300, asset="sphere_floating")
    sphere.setHead(np.array([0.0, 0.0, -0.025]), np.array([1.0, 0.2, 0.0]))
    return scene_of(params, [swimmer, sphere])


def scene_of(params, bodies):
    simulator = drelt.make_simulator(params, HOST)
    world = drelt.make_skWorld([0.5, 0, 0])
    for body in bodies:
        world.addSkeleton(body)
    simulator.attachWorld(world)
    simulator.commitInit()
    return simulator, world, bodies[0]


SCENES = {scene.__name__: scene for scene in (plain, options, two_bodies)}


def run(scene, steps, mode=TWO_WAY):
    """Steps from where the simulator is, with commands that depend on the step's number."""
    simulator, world, body = scene
    for step in range(simulator.getIterNum(), simulator.getIterNum() + steps):
        if body.getNumDofs() > 0:
            body.setCommands(np.full(body.getNumDofs(), 0.3 * np.sin(0.7 * step)))
        if step == 3:
            world.setGravity([0.4, 0.1, 0.0])
        simulator.step(mode)


def whole_run(name, middle, end):
    """Saves after 4 and after 8 steps."""
    scene = SCENES[name]()
    run(scene, 4)
    scene[0].saveState(middle)
    run(scene, 4)
    scene[0].saveState(end)


def second_half(name, middle, end):
    scene = SCENES[name]()
    scene[0].loadState(middle)
    run(scene, 4)
    scene[0].saveState(end)


if __name__ == "__main__":
    {"whole": whole_run, "half": second_half}[sys.argv[1]](*sys.argv[2:])
