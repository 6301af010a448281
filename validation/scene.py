"""Scenes for the cases: parameters, bodies made on the spot, steps with a progress bar, the fluid.

Lengths are in metres unless a name says otherwise. One node spacing is l0p / N, one step l0p u0k /
(N u0p), so that the velocity u0p is u0k in lattice units.
"""

from __future__ import annotations

import tempfile
from pathlib import Path

import drelt
import numpy as np
from assetgen.asset import write_asset
from tqdm import tqdm

DENSITY = 1000.0  # of the fluid [kg/m^3]
EXPLICIT, SEMI_IMPLICIT = drelt.COUPLING.EXPLICIT, drelt.COUPLING.SEMI_IMPLICIT
CHARACTERISTIC = drelt.OPEN_PLANES.CHARACTERISTIC
HOST = -1  # the device of host threads


def parameters(length, nodes, speed, viscosity, box, u0k=0.1, centre=(0.0, 0.0, 0.0), **options):
    """A box of so many lengths along x, y, z about a centre [lengths].

    nodes: node spacings per length. speed [m/s]: u0k in lattice units. viscosity [m^2/s].
    """
    param = drelt.make_simParams()
    param.setup_mode = drelt.SETUP_MODE.MANUAL
    param.l0p, param.N = length, nodes
    param.u0p, param.u0k = speed, u0k
    param.visp, param.rou0p = viscosity, DENSITY
    # a little less than a whole number of nodes, so that rounding cannot change it
    param.width, param.height, param.depth = (
        (round(edge * nodes) - 0.01) * length / nodes for edge in box
    )
    param.x0, param.y0, param.z0 = (place * length for place in centre)
    for name, value in options.items():
        setattr(param, name, value)
    return param


def body_of(asset, samples=None, place=(0.0, 0.0, 0.0), device=HOST):
    """A live body of one of the generator's assets. place [m] is added to the root joint's pose."""
    with tempfile.TemporaryDirectory() as name:
        folder = Path(name)
        write_asset(asset, folder, folder)
        description = drelt.skeletonFromJson(str(folder / f"{asset.name}.json"), device)
    zero = np.zeros(3)
    return drelt.SkeletonDynamics(
        description, samples or asset.samples, device, np.asarray(place, float), zero
    )


class Scene:
    """Bodies in a fluid, ready to step."""

    def __init__(self, param, *bodies, gravity=(0.0, 0.0, 0.0), device=HOST):
        self.param, self.bodies = param, bodies
        self.simulator = drelt.make_simulator(param, device)
        self.world = drelt.make_skWorld(np.asarray(gravity, float))
        for body in bodies:
            self.world.addSkeleton(body)
        self.simulator.attachWorld(self.world)
        self.simulator.commitInit()
        self.dt = param.get_tp()  # s
        self.dx = param.l0p / param.N

    def steps_for(self, seconds):
        return round(seconds / self.dt)

    def steps(self, count, title, before=None):
        """Yields 1 .. count, each after that step. before(time): called before each step."""
        shape = "{desc} {percentage:3.0f}% |{bar}| {n_fmt}/{total_fmt} steps, {remaining} left"
        for step in tqdm(range(count), desc=title, bar_format=shape, mininterval=1.0):
            if before:
                before(step * self.dt)
            self.simulator.step(drelt.COUPLE_MODE.TWO_WAY)
            yield step + 1

    def fluid(self):
        """Momentum plus the grid's velocity (nz x ny x nx x 3), and density (nz x ny x nx), lattice units."""
        with tempfile.TemporaryDirectory() as folder:
            self.simulator.mainDataFolderPath = f"{folder}/"
            self.simulator.saveFluidData("now")
            data = (Path(folder) / "Fluid" / "0_now.vtk").read_bytes()
        shape = self.shape(data)
        count = 3 * int(np.prod(shape))

        def vectors(name):
            start = data.index(b"VECTORS " + name + b" float\n") + len(name) + 15
            return np.frombuffer(data, ">f4", count, start).astype(float).reshape(*shape, 3)

        return vectors(b"cell_velocity"), vectors(b"density")[..., 0]

    @staticmethod
    def shape(data):
        line = data[data.index(b"DIMENSIONS") :].split(b"\n", 1)[0]
        return [int(number) for number in line.split()[:0:-1]]
