"""A pushed sphere in fluid at rest: which excess masses the two couplings can carry."""

from __future__ import annotations

import numpy as np

from ..report import Results
from ..scene import DENSITY, EXPLICIT, SEMI_IMPLICIT, Scene, parameters
from ..spheres import DIAMETER, MODEL, SPEED, TIME, VOLUME, Joint, sphere

NODES = 8  # per diameter
GALILEO = 50.0
PUSH = 0.1  # D/u_g that the push lasts
DIVERGED = 10.0  # u_g
FORCE = Joint("prismatic", "force", (1.0, 0.0, 0.0), use_limits=True)


def pushed(coupling, excess, duration, box):
    """Times [D/u_g] and speeds [u_g] after a push of momentum rho V u_g, and whether they stay bounded.

    The run ends once the speed is many times what the push can give.
    """
    viscosity = SPEED * DIAMETER / GALILEO
    param = parameters(DIAMETER, NODES, SPEED, viscosity, box, coupling=coupling)
    body = sphere(excess, FORCE)
    scene = Scene(param, body)
    force = DENSITY * VOLUME * SPEED / (PUSH * TIME)

    def push(time):
        body.setCommands(np.array([force if time < (PUSH - 1e-6) * TIME else 0.0]))

    speeds, bounded = [], True
    try:
        for _ in scene.steps(scene.steps_for(duration * TIME), f"kick, {excess:g} rho V", push):
            speeds.append(body.getVelocities()[0] / SPEED)
            if not abs(speeds[-1]) < DIVERGED:
                bounded = False
                break
    except RuntimeError:
        bounded = False
    return np.arange(1, len(speeds) + 1) * scene.dt / TIME, np.array(speeds), bounded


def refusal(excess):
    """What commitInit says to a mass, in one word."""
    try:
        pushed(SEMI_IMPLICIT, excess, 0.0, (4, 4, 4))
    except ValueError:
        return "refused"
    return "taken"


def run(coarse):
    results = Results("kick")
    duration, box = (5.0, (4, 4, 4)) if coarse else (40.0, (6, 6, 6))
    curves, words = {}, {True: "bounded", False: "diverges"}
    for excess in (0.0, 0.3):
        times, speeds, bounded = pushed(SEMI_IMPLICIT, excess, duration, box)
        name = f"m = {excess:g} rho V, semi-implicit"
        curves[name] = times, speeds
        results.outcome(f"{name}: {duration:g} D/u_g", words[bounded], words[True], MODEL)
        # the push would give the fluid that the sphere displaces the speed u_g
        results.between(f"{name}: highest speed [u_g]", abs(speeds).max(), 0.1, 1.0, "momentum")
        left = abs(speeds[-1]) / abs(speeds).max()
        results.below(
            f"{name}: speed at the end over the highest", left, 0.3 if coarse else 0.05, "friction"
        )
        results.above(f"{name}: lowest speed [u_g]", speeds.min(), -0.02, "no overshoot")
    times, speeds, bounded = pushed(EXPLICIT, 0.3, duration, box)
    curves["m = 0.3 rho V, explicit"] = times, np.clip(speeds, -1, 1)
    results.outcome("m = 0.3 rho V, explicit", words[bounded], words[False], MODEL)
    results.outcome("m = -0.5 rho V, semi-implicit, commitInit", refusal(-0.5), "refused", MODEL)
    results.plot("A pushed sphere", "time [D/u_g]", "speed [u_g]", curves)
    return results
