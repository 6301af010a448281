"""A sphere twice as heavy as the fluid falls: the two couplings agree, and more so with smaller steps."""

from __future__ import annotations

import math

import numpy as np

from ..report import Results
from ..scene import EXPLICIT, SEMI_IMPLICIT, Scene, parameters
from ..spheres import DIAMETER, GRAVITY, MODEL, SPEED, TIME, sphere

GALILEO, NODES = 50.0, 8
AHEAD = 2.5  # diameters from the low-x face to the sphere


def falling(coupling, u0k, box, duration):
    """Times [D/u_g] and speeds [u_g] of a sphere that falls from rest."""
    param = parameters(
        DIAMETER,
        NODES,
        SPEED,
        SPEED * DIAMETER / GALILEO,
        box,
        u0k=u0k,
        centre=(box[0] / 2 - AHEAD, 0.0, 0.0),
        coupling=coupling,
    )
    body = sphere(1.0)
    scene = Scene(param, body, gravity=(GRAVITY, 0.0, 0.0))
    speeds = []
    for _ in scene.steps(scene.steps_for(duration * TIME), f"fall, u0k {u0k:g}"):
        speeds.append(body.getVelocities()[0] / SPEED)
    return np.arange(1, len(speeds) + 1) * scene.dt / TIME, np.array(speeds)


def run(coarse):
    results = Results("fall")
    box = (8, 4, 4) if coarse else (14, 6, 6)
    tolerances = {5: 0.002, 10: 0.001}  # at t in D/u_g
    duration = 5 if coarse else 10
    times, explicit = falling(EXPLICIT, 0.1, box, duration)
    _, implicit = falling(SEMI_IMPLICIT, 0.1, box, duration)
    for end in range(5, duration + 1, 5):
        first, second = (np.interp(end, times, speeds) for speeds in (explicit, implicit))
        moment = f"at t = {end} D/u_g"
        results.near(
            f"semi-implicit over explicit speed {moment}",
            second / first,
            1.0,
            MODEL,
            tolerances[end],
        )
        results.told(f"explicit speed {moment} [u_g]", first)
        results.told(f"semi-implicit speed {moment} [u_g]", second)
    results.plot(
        "A sphere twice as heavy as the fluid",
        "time [D/u_g]",
        "speed [u_g]",
        {"explicit": (times, explicit), "semi-implicit": (times, implicit)},
    )
    if not coarse:
        order(results, box, abs(np.interp(5, times, implicit) - np.interp(5, times, explicit)))
    return results


def order(results, box, first):
    """The difference of the couplings at t = 5 D/u_g with steps of 1, 1/2 and 1/4. first: with 1."""
    differences = [first]
    for u0k in (0.05, 0.025):
        pair = [falling(coupling, u0k, box, 5)[1][-1] for coupling in (EXPLICIT, SEMI_IMPLICIT)]
        differences.append(abs(pair[1] - pair[0]))
    for k, u0k in enumerate((0.1, 0.05, 0.025)):
        results.told(
            f"difference of the couplings at t = 5 D/u_g, u0k = {u0k:g} [u_g]", differences[k]
        )
    found = math.log2(differences[0] / differences[-1]) / 2
    results.between(
        "order of that difference in the time step", found, 0.7, 2.5, "first order or better"
    )
