"""Spheres lighter and heavier than the fluid, in one world, and the start of a light one."""

from __future__ import annotations

import numpy as np

from ..report import Results
from ..scene import CHARACTERISTIC, SEMI_IMPLICIT, Scene, parameters
from ..spheres import BASSET, DIAMETER, DRAG_LAW, GRAVITY, Joint, basset, settling_speed, sphere

VISCOSITY = 4e-5  # m^2/s
VERTICAL = Joint("prismatic", axis=(0.0, 1.0, 0.0))
APART = 3.0  # diameters from the middle of the box to each sphere


def natural_speed(ratio):
    return np.sqrt(abs(ratio - 1.0) * GRAVITY * DIAMETER)


def scene_of(ratios, places, box, nodes, u0p):
    """Spheres of these density ratios; places and box in diameters."""
    param = parameters(
        DIAMETER,
        nodes,
        u0p,
        VISCOSITY,
        box,
        coupling=SEMI_IMPLICIT,
        open_planes=CHARACTERISTIC,
        retraction=0.8,
    )
    bodies = [
        sphere(ratio - 1.0, VERTICAL, place=np.array(place) * DIAMETER)
        for ratio, place in zip(ratios, places)
    ]
    return Scene(param, *bodies, gravity=(0.0, -GRAVITY, 0.0))


def pair(results, coarse):
    """One sphere of density ratio 0.8 and one of 3 in the same fluid."""
    ratios = (0.8, 3.0)
    box, nodes, duration = ((8, 10, 4), 6, 0.4) if coarse else ((13, 36, 8), 8, 4.5)
    apart = 2.0 if coarse else APART
    places = ((-apart, -box[1] / 4, 0.0), (apart, box[1] / 2 - 2.5, 0.0))
    scene = scene_of(ratios, places, box, nodes, 0.15)
    speeds = []
    steps = scene.steps_for(duration)
    for _ in scene.steps(steps, "density ratios 0.8 and 3"):
        speeds.append([body.getVelocities()[0] for body in scene.bodies])
    times, speeds = np.arange(1, steps + 1) * scene.dt, np.array(speeds)
    curves = {}
    for k, (ratio, sign) in enumerate(zip(ratios, (1, -1))):
        unit = natural_speed(ratio)
        reached = sign * speeds[-1, k] / unit
        reference = settling_speed(unit * DIAMETER / VISCOSITY)
        name = f"ratio {ratio:g}, with the other in one world: speed {'up' if sign > 0 else 'down'} [u_g]"
        if coarse:
            results.between(name, reached, 0.1, 1.2 * reference, DRAG_LAW)
        else:
            results.near(name, reached, reference, DRAG_LAW, 0.06)
        curves[f"ratio {ratio:g}"] = times, sign * speeds[:, k] / (unit * reference)
    results.plot(
        "Two spheres in one world",
        "time [s]",
        "speed over the terminal one",
        curves,
        {DRAG_LAW: 1.0},
    )


def start(results, coarse):
    """The first acceleration of a lone light sphere: weight and buoyancy over its and the added mass."""
    ratio, nodes, edge = (0.8, 8, 4) if coarse else (0.8, 12, 7)
    scene = scene_of((ratio,), ((0.0, 0.0, 0.0),), (edge, edge, edge), nodes, 0.2)
    speeds, steps = [], scene.steps_for(0.1)
    for _ in scene.steps(steps, "density ratio 0.8"):
        speeds.append(scene.bodies[0].getVelocities()[0])
    times, speeds = np.arange(1, steps + 1) * scene.dt, np.array(speeds)
    pull = GRAVITY * (1.0 - ratio)
    theory = basset(ratio, VISCOSITY, scene.dt, steps, pull)[1][1:]
    # by then sound has crossed the sphere several times, so that the added mass is there
    late = times > 0.06
    acceleration = pull / (ratio + 0.5)
    found = acceleration * (speeds[late] / theory[late]).mean()
    results.near(
        "ratio 0.8, alone: first acceleration g (1 - s)/(s + 1/2) [m/s^2]",
        found,
        acceleration,
        f"added mass; {BASSET}",
        0.1 if coarse else 0.05,
    )
    results.plot(
        "A sphere of density ratio 0.8 starts to rise",
        "time [s]",
        "speed [m/s]",
        {"drelt": (times, speeds), BASSET: (times, theory)},
    )


def run(coarse):
    results = Results("density")
    pair(results, coarse)
    start(results, coarse)
    return results
