"""A light body with a heavy fin on a passive hinge: it turns its fin down, and rises as a whole."""

from __future__ import annotations

import numpy as np

from ..report import Results
from ..scene import CHARACTERISTIC, DENSITY, SEMI_IMPLICIT, Scene, body_of, parameters

from assetgen.asset import Asset
from assetgen.loft import Loft, even_stations, whole_section
from assetgen.skeleton import Joint, Link, chain
from assetgen.spine import link_volumes

LENGTH = 0.1  # m
HULL = 0.7  # part of the length that belongs to the body
BODY, FIN = 0.8, 2.0  # density ratios
GRAVITY = 0.5  # m/s^2
VISCOSITY = 4e-5  # m^2/s
SPEED = 0.1  # m/s
SPRING = 2e-5  # N m/rad, of the hinge


def half_width(s):
    """Half-thickness [lengths]: a spindle, then a thin fin with a round edge."""
    u = np.clip(s / HULL, 0.0, 1.0)
    hull = 0.12 * np.sqrt(np.maximum(4.0 * u * (1.0 - u), 0.0))
    edge = np.sqrt(np.clip((1.0 - s) / 0.04, 0.0, 1.0))
    return np.maximum(hull, np.where(s > 0.5 * HULL, 0.02 * edge, 0.0))


def half_height(s):
    u = np.clip(s / HULL, 0.0, 1.0)
    hull = 0.12 * np.sqrt(np.maximum(4.0 * u * (1.0 - u), 0.0))
    fin = 0.03 + 0.09 * np.clip((s - HULL) / (1.0 - HULL), 0.0, 1.0)
    edge = np.sqrt(np.clip((1.0 - s) / 0.04, 0.0, 1.0))
    return np.maximum(hull, np.where(s > 0.5 * HULL, fin * edge, 0.0))


def mesh_of():
    loft, face = Loft(), 0.02
    loft.add(np.array([(0.5 * LENGTH, 0.0, 0.0)]))
    stations = even_stations(lambda s: 0.5 * (half_width(s) + half_height(s)), 0.0, 1.0, face)
    for s in stations[1:-1]:
        height, width = float(half_height(s)) * LENGTH, float(half_width(s)) * LENGTH
        loft.add(whole_section((0.5 - s) * LENGTH, height, width, face * LENGTH))
    loft.add(np.array([(-0.5 * LENGTH, 0.0, 0.0)]))
    return loft.mesh()


def make_body():
    """The live body, and the sum of its excess masses [kg]."""
    mesh = mesh_of()
    points = [((0.5 - s) * LENGTH, 0.0, 0.0) for s in (0.0, HULL, 1.0)]
    hinge = Joint("revolute", axis=(0.0, 1.0, 0.0), spring=SPRING)
    size = (0.5 * LENGTH, 0.2 * LENGTH, 0.2 * LENGTH)
    links = [Link(0.0, size, 0.001), Link(0.0, (0.3 * LENGTH, 0.2 * LENGTH, 0.02 * LENGTH), 0.001)]
    tree = chain(points, [Joint("floating"), hinge], links)
    volumes = link_volumes(tree, mesh)
    for name, volume, ratio in zip(tree.link_names(), volumes, (BODY, FIN)):
        tree.links[name].mass = (ratio - 1.0) * DENSITY * volume
    frame = tree.link_names()[0]
    asset = Asset("fin", "fin", mesh, tree, 1500, LENGTH / 40, frame=frame)
    return body_of(asset), sum(tree.masses())


def run(coarse):
    results = Results("fin")
    nodes, box, duration = (24, (2.5, 2.5, 2.5), 0.5) if coarse else (40, (3.5, 3.5, 3.5), 6.0)
    body, excess = make_body()
    param = parameters(
        LENGTH,
        nodes,
        SPEED,
        VISCOSITY,
        box,
        coupling=SEMI_IMPLICIT,
        open_planes=CHARACTERISTIC,
        retraction=0.8,
    )
    scene = Scene(param, body, gravity=(0.0, 0.0, -GRAVITY))
    rows = []
    hull = body.getBaseLink()
    for _ in scene.steps(scene.steps_for(duration), "heavy fin on a light body"):
        # x axes point from the joint to the next one, so towards the fin
        heading = body.getBaseLinkFwd()
        rows.append([hull.getLinearVelocity()[2], heading[2], body.getPositions()[-1]])
    rise, heading, hinge = np.array(rows).T
    results.told("excess mass of the whole [kg]", excess)
    print(rise[-1], heading[-1], hinge[-1], abs(hinge).max(), abs(rise).max())
    times = np.arange(1, len(rise) + 1) * scene.dt
    results.plot(
        "A light body with a heavy fin",
        "time [s]",
        "heading, hinge [rad], rise [u]",
        {"heading": (times, heading), "hinge": (times, hinge), "rise": (times, rise / SPEED)},
    )
    return results
