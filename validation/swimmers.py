"""Swims of the bundled bodies, as heavy as the fluid, on a grid that follows them."""

from __future__ import annotations

from dataclasses import dataclass

import numpy as np
from assetgen.spine import link_volumes
from support import LENGTH, PERIOD, command_gait

from .scene import CHARACTERISTIC, SEMI_IMPLICIT, Scene, body_of, parameters


@dataclass
class Swim:
    """The middle of a body [L] and its heading before the first step and after each."""

    cycle: int  # steps
    place: np.ndarray
    heading: np.ndarray

    def means(self):
        """Forward and lateral displacement in each cycle [L], along and across the mean heading."""
        moved = np.diff(self.place[:: self.cycle], axis=0)
        parts = np.split(self.heading[1:], len(moved))
        ahead = np.array([part.mean(axis=0) for part in parts])
        ahead /= np.linalg.norm(ahead, axis=1)[:, None]
        aside = np.cross(ahead, (0.0, 1.0, 0.0))
        return (moved * ahead).sum(axis=1), (moved * aside).sum(axis=1)


def swim(asset, swimmer, cycles, title, **options):
    """A swim from rest.

    swimmer: gait, box, resolution and viscosity, as in examples/support.py. options: further
    parameters of the simulation.
    """
    chosen = {"coupling": SEMI_IMPLICIT, "open_planes": CHARACTERISTIC, **options}
    param = parameters(
        LENGTH,
        swimmer.nodes,
        2.0 * np.pi * swimmer.tail * LENGTH / PERIOD,  # highest speed of the tail
        swimmer.viscosity * LENGTH**2 / PERIOD,
        swimmer.box,
        u0k=swimmer.u0k,
        centre=(swimmer.ahead, 0.0, 0.0),
        **chosen,
    )
    # at least 1.3 samples for each lattice area; fewer than the mesh is made for would leave small
    # faces without any
    per_area = 1.3 * asset.mesh.area() * (swimmer.nodes / LENGTH) ** 2
    body = body_of(asset, samples=max(asset.samples, round(per_area)))
    scene = Scene(param, body)
    links = [body.getLink(name) for name in asset.tree.link_names()]
    volumes = link_volumes(asset.tree, asset.mesh)

    def middle():
        return np.average([link.getPosition() for link in links], axis=0, weights=volumes) / LENGTH

    def gait(time):
        command_gait(body, swimmer, round(time / scene.dt), scene.dt)

    cycle = scene.steps_for(PERIOD)
    places, headings = [middle()], [body.getBaseLinkFwd()]
    for _ in scene.steps(cycles * cycle, title, gait):
        places.append(middle())
        headings.append(body.getBaseLinkFwd())
    return Swim(cycle, np.array(places), np.array(headings))
