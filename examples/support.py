"""Shared by the example scripts: progress bar, scenes and the reference drag law."""

from __future__ import annotations

import argparse
import math
import time
from dataclasses import dataclass
from pathlib import Path

import drelt
import numpy as np
from gaits import ANGUILLIFORM_GAIT, SPRINT_GAIT, servo_command
from tqdm import tqdm

ROOT = Path(__file__).resolve().parent.parent
ZERO = np.zeros(3)

LENGTH = 0.2  # of a swimmer [m]
PERIOD = 1.0  # of its beat [s]
MODES = {name.lower(): mode for name, mode in drelt.COUPLE_MODE.__members__.items()}
BODY_FRAMES, FLUID_FRAMES = 16, 4  # per cycle


def positive(text):
    """A whole number of 1 or more, for argparse."""
    number = int(text)
    if number < 1:
        raise argparse.ArgumentTypeError(f"{number} is too few; give 1 or more")
    return number


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
    """Terminal speed of a sphere divided by u_g = sqrt(|s-1| g D), for a Galileo number u_g D / nu.

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

    Reference quantities: length D, speed u_g = 0.1 m/s. The density ratio is 2. The description gives
    the sphere only its excess mass over the fluid, so that gravity, 0.5 m/s^2, acts as weight minus
    buoyancy.
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
        # half a node less than a whole number, so that rounding cannot change the node count
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
        """Number of steps in a time given in D / u_g."""
        return round(time_in_d_over_u * self.diameter / self.u_g / self.dt)

    def speed(self):
        """Falling speed divided by u_g."""
        return self.body.getVelocities()[0] / self.u_g


def wall_clock():
    """Returns a function that gives the seconds since this call."""
    start = time.perf_counter()
    return lambda: time.perf_counter() - start


@dataclass
class Swimmer:
    """A body, its gait and the box that it swims in. Lengths are in body lengths.

    ends: positions of the segments' ends, in the order of the bones. tail: amplitude of the tail.
    nodes: node spacings per length. viscosity in length^2/period. box: edges along x, y, z. ahead:
    distance from the centre of the body forward to the centre of the box.
    """

    midline: object
    ends: np.ndarray
    tail: float
    nodes: int
    u0k: float
    viscosity: float
    box: tuple
    ahead: float
    samples: int


# the fish's head is stiff; behind the peduncle, at 0.86, the fin is one more segment
SWIMMERS = {
    "swimmer": Swimmer(
        midline=SPRINT_GAIT,
        ends=np.array([0.0, *np.linspace(0.2, 0.86, 8), 1.0]),
        tail=0.2,
        nodes=64,
        u0k=0.1,
        viscosity=2e-4,
        box=(2.5, 0.875, 1.25),
        ahead=0.15,
        samples=2000,
    ),
    "eel": Swimmer(
        midline=ANGUILLIFORM_GAIT,
        ends=np.linspace(1.0, 0.0, 15),
        tail=0.125,
        nodes=100,
        u0k=0.08,
        viscosity=1.4e-4,
        box=(2.0, 0.6, 0.9),
        ahead=0.0,
        samples=4000,
    ),
}


# for bodies as heavy as the fluid on a grid that follows them
NEUTRAL = {
    "coupling": drelt.COUPLING.SEMI_IMPLICIT,
    "open_planes": drelt.OPEN_PLANES.CHARACTERISTIC,
}


def make_swimmer(name, swimmer, nodes, device=0, **options):
    """Returns the simulator and the body, ready to step, the time step [s] and the number of nodes.

    name: of the description in assets/. options: further parameters of the simulation.
    """
    param = drelt.make_simParams()
    param.setup_mode = drelt.SETUP_MODE.MANUAL
    param.l0p, param.N = LENGTH, nodes
    param.u0p = 2.0 * np.pi * swimmer.tail * LENGTH / PERIOD  # highest speed of the tail
    param.u0k = swimmer.u0k
    param.visp = swimmer.viscosity * LENGTH**2 / PERIOD
    param.rou0p = 1000.0
    counts = [round(edge * nodes) for edge in swimmer.box]
    # a hundredth of a node less, so that rounding cannot change the node count. Not more: markers
    # find their cell by size over count and would jump between cells.
    param.width, param.height, param.depth = ((n - 0.01) * LENGTH / nodes for n in counts)
    param.x0 = swimmer.ahead * LENGTH
    for option, value in options.items():
        setattr(param, option, value)
    simulator = drelt.make_simulator(param, device)
    description = drelt.skeletonFromJson(str(ROOT / "assets" / f"{name}.json"), device)
    body = drelt.make_skDynamics(description, swimmer.samples, device, ZERO, ZERO, np.ones(3))
    world = drelt.make_skWorld(ZERO)
    world.addSkeleton(body)
    simulator.attachWorld(world)
    simulator.commitInit()
    return simulator, body, param.get_tp(), int(np.prod(counts))


def command_gait(body, swimmer, step, dt, bend=0.0):
    """Commands the joints for a step of dt seconds. bend [rad] is added to the gait as in servo_command."""
    actual = body.getPositions(False)
    rates = servo_command(
        swimmer.midline, swimmer.ends, step * dt / PERIOD, dt / PERIOD, actual, bend
    )
    body.setCommands(rates / PERIOD)


def save_frame(simulator, step, cycle, fluid_frames=FLUID_FRAMES):
    """Saves bodies and markers 16 times per cycle, and the large fluid files fluid_frames times."""
    frame, last = step * BODY_FRAMES // cycle, (step - 1) * BODY_FRAMES // cycle
    if frame > last:
        flags = int(drelt.SAVE_FLAG.BODY)
        if frame % (BODY_FRAMES // fluid_frames) == 0:
            flags |= int(drelt.SAVE_FLAG.FLUID)
        simulator.saveScene(frame, flags)
