"""A falling sphere on a grid that follows it, with planes that hold the far field at rest."""

from __future__ import annotations

import numpy as np

from ..report import Results
from ..scene import CHARACTERISTIC, Scene, parameters
from ..spheres import DIAMETER, GRAVITY, MODEL, SPEED, TIME, sphere

GALILEO, NODES = 50.0, 6
AHEAD = 6.0  # diameters from the low-x face of the fixed box to the sphere


def falling(box, follow, duration):
    """Times [D/u_g], speeds [u_g], and the speed of the fluid ahead at the end [u_g]."""
    param = parameters(
        DIAMETER,
        NODES,
        SPEED,
        SPEED * DIAMETER / GALILEO,
        box,
        centre=(0.0 if follow else box[0] / 2 - AHEAD, 0.0, 0.0),
        open_planes=CHARACTERISTIC,
    )
    body = sphere(1.0, follow=follow)
    scene = Scene(param, body, gravity=(GRAVITY, 0.0, 0.0))
    speeds = []
    title = f"{'following' if follow else 'fixed'} box of {box[0]:g} D"
    for _ in scene.steps(scene.steps_for(duration * TIME), title):
        speeds.append(body.getVelocities()[0] / SPEED)
    velocity, _ = scene.fluid()
    ahead = velocity[2:-2, 2:-2, -3, 0].mean() / param.u0k  # over the plane, two nodes inside
    return np.arange(1, len(speeds) + 1) * scene.dt / TIME, np.array(speeds), ahead


def run(coarse):
    results = Results("follow")
    duration = 4 if coarse else 14
    times, fixed, _ = falling((12, 6, 6) if coarse else (24, 12, 12), False, duration)
    curves = {"fixed box": (times, fixed)}
    model = {12: 0.676, 8: 0.668}
    if not coarse:
        results.told(
            "fixed box of 24 x 12 x 12 D: speed at t = 14 D/u_g [u_g]", fixed[-1], 0.675, MODEL
        )
    for edge, tolerance in ((6, 0.02),) if coarse else ((12, 0.007), (8, 0.02)):
        times, speeds, ahead = falling((edge, edge, edge), True, duration)
        curves[f"following cube of {edge} D"] = times, speeds
        name = f"following cube of {edge} D, t = {duration} D/u_g"
        results.near(
            f"{name}: speed over that in the fixed box",
            speeds[-1] / fixed[-1],
            1.0,
            MODEL,
            tolerance,
        )
        if not coarse:
            results.told(f"{name}: speed [u_g]", speeds[-1], model[edge], MODEL)
        results.below(f"{name}: fluid ahead [u_g]", abs(ahead), 0.015, MODEL)
    results.plot("A falling sphere", "time [D/u_g]", "speed [u_g]", curves)
    return results
