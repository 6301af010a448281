"""A sphere on a spring rings down in fluid at rest: added mass, friction, retraction, moving grid."""

from __future__ import annotations

import numpy as np

from ..report import Results
from ..scene import CHARACTERISTIC, DENSITY, SEMI_IMPLICIT, Scene, parameters
from ..spheres import BASSET, DIAMETER, MODEL, SPEED, Joint, basset, sphere

STIFFNESS, VISCOSITY = 0.34727, 0.02  # lattice units
EXCESS = 2.0  # mass over that of the displaced fluid, in rho V
FORCE = Joint("prismatic", "force", (1.0, 0.0, 0.0), use_limits=True)


def ringing(nodes, edge, steps, follow=False, start=0.5):
    """Displacement after 0 .. steps steps, over that at the start (in node spacings)."""
    spacing = DIAMETER / nodes
    param = parameters(
        DIAMETER,
        nodes,
        SPEED,
        VISCOSITY * spacing,  # at 0.1 m/s = 0.1 lattice units, a step takes a spacing / (1 m/s)
        (edge, edge, edge),
        coupling=SEMI_IMPLICIT,
        retraction=0.8,
        open_planes=CHARACTERISTIC,
    )
    body = sphere(EXCESS, FORCE, follow)
    body.getJoint("bone_00").setPosition(0, start * spacing)
    body.update()
    scene = Scene(param, body)
    stiffness = STIFFNESS * DENSITY * spacing**3 / scene.dt**2  # N/m

    # commanded, because the engine takes a joint's own spring implicitly, which damps by k dt
    def pull(_):
        body.setCommands(-stiffness * body.getPositions())

    places = [body.getPositions()[0]]
    for _ in scene.steps(steps, "ring, following" if follow else "ring", pull):
        places.append(body.getPositions()[0])
    return np.array(places) / (start * spacing)


def slow_motion(nodes, steps):
    """The same by linear theory, in fluid without walls."""
    stiffness = STIFFNESS / (np.pi / 6 * nodes**3)
    return basset(1 + EXCESS, VISCOSITY, 1.0, steps, 0.0, stiffness, 1.0, nodes)[0]


def zeros(places):
    """Times in steps at which the displacement changes its sign, between the samples."""
    k = np.flatnonzero(places[:-1] * places[1:] < 0)
    return k + places[k] / (places[k] - places[k + 1])


def run(coarse):
    results = Results("ring")
    if coarse:
        found, theory = (zeros(places)[0] for places in (ringing(8, 4, 120), slow_motion(8, 120)))
        results.near("first zero over that of linear theory", found / theory, 1.0, BASSET, 0.04)
        return results
    fixed, following = (ringing(12, 6, 860, follow) for follow in (False, True))
    theory = slow_motion(12, 860)
    for found, model, linear in zip(zeros(fixed), (169.7, 504.5, 834.0), zeros(theory)):
        results.near("zero [steps]", found, model, MODEL, 0.02)
        results.told("the same zero by linear theory", linear, "", BASSET)
    results.near("first extremum", fixed.min(), -0.713, MODEL, absolute=0.015)
    results.near("second extremum", fixed[fixed.argmin() :].max(), 0.468, MODEL, absolute=0.015)
    for at_rest, moving in zip(zeros(fixed), zeros(following)):
        results.near(
            "zero on a following grid over that on a fixed one", moving / at_rest, 1.0, MODEL, 0.001
        )
    results.plot(
        "A sphere on a spring",
        "step",
        "displacement over that at the start",
        {
            "fixed grid": (np.arange(len(fixed)), fixed),
            "following grid": (np.arange(len(following)), following),
            BASSET: (np.arange(len(theory)), theory),
        },
    )
    return results
