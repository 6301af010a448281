"""What a push gives to a body and the fluid, before sound reaches the open planes."""

from __future__ import annotations

import numpy as np

from ..report import Results
from ..scene import DENSITY, SEMI_IMPLICIT, Scene, parameters
from ..spheres import DIAMETER, SPEED, VOLUME, Joint, sphere

NODES, GALILEO = 8, 50.0
PUSH = 8  # steps that the push lasts
FORCE = Joint("prismatic", "force", (1.0, 0.0, 0.0), use_limits=True)


def balance(excess, edge):
    """Momentum of body and fluid over that of the push, after each of some steps."""
    viscosity = SPEED * DIAMETER / GALILEO
    param = parameters(
        DIAMETER, NODES, SPEED, viscosity, (edge, edge, edge), coupling=SEMI_IMPLICIT
    )
    body = sphere(excess, FORCE)
    scene = Scene(param, body)
    given = DENSITY * VOLUME * SPEED
    force = given / (PUSH * scene.dt)
    unit = DENSITY * scene.dx**4 / scene.dt  # kg m/s of a node's momentum of 1

    def push(time):
        body.setCommands(np.array([force if time < (PUSH - 0.5) * scene.dt else 0.0]))

    # nothing travels faster than a node a step, so nothing has reached the planes by then
    steps = (edge - 1) * NODES // 2 - 4
    found = []
    for step in scene.steps(steps, f"momentum, {excess:g} rho V", push):
        if step >= PUSH and step % 6 == 0:
            velocity, _ = scene.fluid()
            fluid = velocity[..., 0].sum() * unit
            own = excess * DENSITY * VOLUME * body.getVelocities()[0]
            found.append((step, (fluid + own) / given))
    return np.array(found).T


def run(coarse):
    results = Results("momentum")
    curves = {}
    for excess in (0.0,) if coarse else (0.0, 1.0, -0.2):
        times, share = balance(excess, 6 if coarse else 14)
        name = f"m = {excess:g} rho V"
        what = f"{name}: momentum of body and fluid over the push, largest distance from 1"
        results.below(what, abs(share - 1.0).max(), 1e-5, "conservation")
        curves[name] = times, share - 1.0
    results.plot("Momentum", "step", "body and fluid over the push, minus 1", curves)
    return results
