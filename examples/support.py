"""What the example scripts share: progress, scenes, and the drag law they compare with."""

from __future__ import annotations

import math
import time
from pathlib import Path

import drelt
import numpy as np
from tqdm import tqdm

ROOT = Path(__file__).resolve().parent.parent
ZERO = np.zeros(3)


def progress(steps, nodes, title):
    """Yields 0 .. steps-1 behind a bar that shows node updates per second and the time left."""
    layout = "{desc} {percentage:3.0f}% |{bar}| {n_fmt}/{total_fmt} node updates, {rate_fmt}, {remaining} left"
    with tqdm(
        total=steps * nodes,
        desc=title,
        unit=" updates",
        unit_scale=True,
        bar_format=layout,
        mininterval=0.5,
    ) as bar:
        for step in range(steps):
            yield step
            bar.update(nodes)


def schiller_naumann_speed(galileo):
    """Terminal speed of a sphere over u_g = sqrt(|s-1| g D), for a Galileo number u_g D / nu.

    Drag law Cd = 24/Re (1 + 0.15 Re^0.687), Re < 1000 (Schiller and Naumann, 1933), balanced against
    weight: Cd Re^2 = 4/3 Ga^2.
    """
    low, high = 1e-6, 1000.0
    for _ in range(100):
        re = math.sqrt(low * high)
        if 24.0 * re * (1.0 + 0.15 * re**0.687) < 4.0 / 3.0 * galileo**2:
            low = re
        else:
            high = re
    return re / galileo


class SettlingSphere:
    """A sphere of diameter D = 0.02 m that falls along +x from rest in a long box.

    Reference quantities: length D, speed u_g = 0.1 m/s. Density ratio 2; the description gives the
    sphere its excess mass, so that gravity 0.5 m/s^2 acts as weight less buoyancy.
    """

    diameter = 0.02  # m
    u_g = 0.1  # m/s

    def __init__(
        self, description, nodes_per_diameter, galileo, box, samples=800, u0k=0.1, device=0
    ):
        """box: its size in diameters along x, y, z; u0k: u_g in lattice units."""
        param = drelt.make_simParams()
        param.setup_mode = drelt.SETUP_MODE.MANUAL
        param.l0p, param.N = self.diameter, nodes_per_diameter
        param.u0p, param.u0k = self.u_g, u0k
        param.visp = self.u_g * self.diameter / galileo
        param.rou0p = 1000.0
        spacing = self.diameter / nodes_per_diameter
        # half a node less than a whole number of them keeps the node count off a rounding edge
        param.width, param.height, param.depth = (
            edge * self.diameter - spacing / 2 for edge in box
        )
        param.x0 = (
            param.width / 2 - 2.5 * self.diameter
        )  # the sphere starts 2.5 D from the low-x face
        self.nodes = round(nodes_per_diameter**3 * box[0] * box[1] * box[2])
        self.dt = param.get_tp()
        self.simulator = drelt.make_simulator(param, device)
        self.body = drelt.make_skDynamics(
            drelt.skeletonFromJson(str(description), device),
            samples,
            device,
            ZERO,
            ZERO,
            np.ones(3),
        )
        world = drelt.make_skWorld(np.array([0.5, 0.0, 0.0]))
        world.addSkeleton(self.body)
        self.simulator.attachWorld(world)
        self.simulator.commitInit()

    def steps_for(self, time_in_d_over_u):
        """Number of steps that make up a time given in D / u_g."""
        return round(time_in_d_over_u * self.diameter / self.u_g / self.dt)

    def speed(self):
        """Falling speed over u_g."""
        return self.body.getVelocities()[0] / self.u_g


def wall_clock():
    """A function that tells the seconds since this call."""
    start = time.perf_counter()
    return lambda: time.perf_counter() - start
