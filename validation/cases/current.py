"""The drag of a sphere held in a current, and of the same sphere towed through fluid at rest."""

from __future__ import annotations

import numpy as np

from ..report import Results
from ..scene import CHARACTERISTIC, DENSITY, SEMI_IMPLICIT, Scene, parameters
from ..spheres import (
    AREA,
    DIAMETER,
    DRAG_LAW,
    MODEL,
    SPEED,
    TIME,
    Joint,
    drag_law,
    sphere,
    towed_sphere,
)

REYNOLDS, NODES = 50.0, 8
SPRING = 100.0  # N/m; the sphere rests on it within some tens of steps
DRAG_UNIT = 0.5 * DENSITY * SPEED**2 * AREA  # N
RAMP = 1.0  # D/u in which the tow reaches its speed


def flow_past(edge, **options):
    viscosity = SPEED * DIAMETER / REYNOLDS
    return parameters(
        DIAMETER,
        NODES,
        SPEED,
        viscosity,
        (edge, edge, edge),
        coupling=SEMI_IMPLICIT,
        open_planes=CHARACTERISTIC,
        retraction=0.8,
        **options,
    )


def held(edge, duration):
    """Times [D/u], drag coefficients; times and mean densities of the fluid."""
    joint = Joint("prismatic", axis=(1.0, 0.0, 0.0), spring=SPRING)
    body = sphere(1.0, joint)
    scene = Scene(flow_past(edge, current=(SPEED, 0.0, 0.0)), body)
    steps = scene.steps_for(duration * TIME)
    drag, densities = [], []
    for step in scene.steps(steps, "held in a current"):
        drag.append(SPRING * body.getPositions()[0] / DRAG_UNIT)
        if step < 10 or step % 40 == 0:
            densities.append((step * scene.dt / TIME, scene.fluid()[1].mean()))
    return np.arange(1, steps + 1) * scene.dt / TIME, np.array(drag), np.array(densities).T


def towed(edge, duration):
    """The same for a sphere that a spring ties to a carriage of given speed; the grid follows."""
    body = towed_sphere(1.0, SPRING)
    scene = Scene(flow_past(edge), body)

    def drive(time):
        body.setCommands(np.array([SPEED * min(1.0, time / (RAMP * TIME))]))

    drag = []
    for _ in scene.steps(scene.steps_for(duration * TIME), "towed", drive):
        drag.append(-SPRING * body.getPositions()[1] / DRAG_UNIT)
    return np.arange(1, len(drag) + 1) * scene.dt / TIME, np.array(drag)


def run(coarse):
    results = Results("current")
    edge, duration = (4, 4) if coarse else (8, 20)
    times, drag, (moments, densities) = held(edge, duration)
    end = len(times) // 10
    coefficient = drag[-end:].mean()
    if coarse:
        # the narrow box and the start raise the drag
        results.between("drag coefficient of a held sphere", coefficient, 1.5, 2.4, DRAG_LAW)
    else:
        results.near("drag coefficient of a held sphere", coefficient, 1.618, MODEL, 0.03)
        results.told("the same far from all walls", drag_law(REYNOLDS), "", DRAG_LAW)
    results.near(
        "mean density, the time that is furthest from 1",
        furthest(densities),
        1.0,
        MODEL,
        absolute=1e-3 if coarse else 3e-4,
    )
    towed_times, towed_drag = towed(edge, duration)
    ratio = towed_drag[-end:].mean() / coefficient
    results.near(
        "drag of a towed sphere over that of a held one",
        ratio,
        1.0,
        "change of frame",
        0.04 if coarse else 0.01,
    )
    early = times > 0.5
    results.plot(
        "Drag at Re 50",
        "time [D/u]",
        "drag coefficient",
        {
            "held in a current": (times[early], drag[early]),
            "towed": (towed_times[early], towed_drag[early]),
        },
        {"Schiller and Naumann": drag_law(REYNOLDS)},
    )
    results.plot(
        "Mean density", "time [D/u]", "density", {"held in a current": (moments, densities)}
    )
    return results


def furthest(densities):
    return densities[np.argmax(abs(densities - 1.0))]
