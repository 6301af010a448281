"""An eel as heavy as the fluid swims: body and gait of Kern and Koumoutsakos (J. Exp. Biol. 209, 2006)."""

from __future__ import annotations

from dataclasses import dataclass

import numpy as np
from assetgen.eel import LENGTH, LINKS, eel_assets, eel_mesh, eel_tree
from assetgen.spine import link_volumes
from gaits import ANGUILLIFORM_GAIT, servo_command

from ..report import Results
from ..scene import CHARACTERISTIC, SEMI_IMPLICIT, Scene, body_of, parameters

KERN = "Kern and Koumoutsakos (2006)"
PERIOD = 1.0  # s
VISCOSITY = 1.4e-4  # L^2/T
TAIL = 0.125  # amplitude [L]
CYCLES = 5
NODES, BOX = 110, (1.6, 0.5, 0.8)  # node spacings per length; lengths
ENDS = np.linspace(1.0, 0.0, LINKS + 1)


@dataclass
class Swim:
    """Centre of the body [L], its velocity [L/T] and heading after each step."""

    cycle: int  # steps
    place: np.ndarray
    heading: np.ndarray

    def means(self):
        """Mean forward and lateral speed in each cycle [L per cycle], along the mean heading."""
        starts = self.place[:: self.cycle]
        moved = np.diff(starts, axis=0)
        ahead = np.array([part.mean(axis=0) for part in np.split(self.heading[1:], len(moved))])
        ahead /= np.linalg.norm(ahead, axis=1)[:, None]
        aside = np.cross(ahead, (0.0, 1.0, 0.0))
        return (moved * ahead).sum(axis=1), (moved * aside).sum(axis=1)


def neutral_eel(nodes):
    asset = next(a for a in eel_assets(LENGTH / nodes) if a.name == "eel_neutral")
    # 4000 give 1.3 for each lattice area at 100 nodes; fewer would leave small faces without any
    per_area = 1.3 * asset.mesh.area() * nodes**2 / LENGTH**2
    return body_of(asset, samples=max(asset.samples, round(per_area)))


def swim(nodes, box, cycles, u0k=0.08, viscosity=VISCOSITY, title="eel", **options):
    """A swim from rest. nodes: per length. box: its edges in lengths."""
    tail_speed = 2.0 * np.pi * TAIL * LENGTH / PERIOD
    chosen = {
        "coupling": SEMI_IMPLICIT,
        "open_planes": CHARACTERISTIC,
        "retraction": 0.8,
        **options,
    }
    param = parameters(
        LENGTH, nodes, tail_speed, viscosity * LENGTH**2 / PERIOD, box, u0k=u0k, **chosen
    )
    body = neutral_eel(nodes)
    scene = Scene(param, body)
    tree = eel_tree()
    links = [body.getLink(name) for name in tree.link_names()]
    volumes = link_volumes(tree, eel_mesh())

    def centre():
        return np.average([link.getPosition() for link in links], axis=0, weights=volumes) / LENGTH

    def gait(time):
        angles = body.getPositions(False)
        rates = servo_command(ANGUILLIFORM_GAIT, ENDS, time / PERIOD, scene.dt / PERIOD, angles)
        body.setCommands(rates / PERIOD)

    cycle = scene.steps_for(PERIOD)
    places, headings = [centre()], [body.getBaseLinkFwd()]
    for _ in scene.steps(cycles * cycle, title, gait):
        places.append(centre())
        headings.append(body.getBaseLinkFwd())
    return Swim(cycle, np.array(places), np.array(headings))


def shape(results):
    """The mesh against the integrals of the published half-axes."""
    mesh = eel_mesh()
    results.near("volume of the mesh [L^3]", mesh.volume() / LENGTH**3, 0.005933, KERN, 0.015)
    results.near("wetted area of the mesh [L^2]", mesh.area() / LENGTH**2, 0.3039, KERN, 0.003)


def run(coarse):
    results = Results("eel")
    shape(results)
    if coarse:
        ahead, _ = swim(32, (1.6, 0.5, 0.8), 1).means()
        results.between("forward speed in the first cycle [L]", ahead[0], 0.005, 0.1, "start")
        return results
    curves = {}

    def speeds(label, nodes, box):
        """Mean forward and lateral speed in each cycle."""
        found = swim(nodes, box, CYCLES, title=f"eel, {label}").means()
        curves[label] = np.arange(1, CYCLES + 1), found[0]
        results.told(f"{label}: forward speed in the last cycle [L per cycle]", found[0][-1])
        return found

    ahead, aside = speeds(f"{NODES} nodes per length", NODES, BOX)
    results.between("forward speed in the fifth cycle [L per cycle]", ahead[-1], 0.26, 0.50, KERN)
    results.below("lateral over forward speed", abs(aside[-1]) / ahead[-1], 0.1, KERN)
    # the viscous layer at the skin is thinner than a node spacing: a coarse grid slows the eel
    speeds("72 nodes per length", 72, BOX)
    small, _ = speeds("50 nodes per length", 50, BOX)
    large, _ = speeds("50 nodes per length, larger box", 50, tuple(1.5 * edge for edge in BOX))
    name = "speed in a box half as long again over that, 50 nodes per length"
    results.near(name, large[-1] / small[-1], 1.0, "open water", 0.02)
    results.plot("An eel as heavy as the fluid", "cycle", "mean speed [L per cycle]", curves)
    return results
