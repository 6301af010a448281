"""A light body with a heavy fin on a passive hinge: it turns its fin down, and rises as a whole."""

from __future__ import annotations

import numpy as np
from assetgen.asset import Asset
from assetgen.loft import Loft, even_stations, whole_section
from assetgen.skeleton import Joint, Link, chain
from assetgen.spine import link_volumes

from ..report import Results
from ..scene import CHARACTERISTIC, DENSITY, SEMI_IMPLICIT, Scene, body_of, parameters
from ..spheres import DRAG_LAW, settling_speed

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


def sphere_speed(excess, volume):
    """Terminal speed [m/s] of a sphere with this excess mass [kg] and volume [m^3]."""
    diameter = (6.0 * volume / np.pi) ** (1.0 / 3.0)
    natural = np.sqrt(excess / (DENSITY * volume) * GRAVITY * diameter)
    return natural * settling_speed(natural * diameter / VISCOSITY)


def run(coarse):
    results = Results("fin")
    nodes, box, duration = (24, (2.0, 2.0, 2.0), 4.0) if coarse else (32, (2.5, 2.5, 2.5), 5.0)
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
    hull = body.getBaseLink()  # its forward axis runs along its bone, towards the fin
    for _ in scene.steps(scene.steps_for(duration), "heavy fin on a light body"):
        towards_fin = body.getBaseLinkFwd()[2]
        rows.append([hull.getLinearVelocity()[2], towards_fin, body.getPositions()[-1]])
    rise, towards_fin, hinge = np.array(rows).T
    results.told("excess mass of the whole [kg]", excess)
    results.below(
        "vertical part of the axis towards the fin, at the end",
        towards_fin[-1],
        -0.95,
        "heavy end down",
    )
    results.below("largest angle of the hinge [rad]", abs(hinge).max(), 0.4, "bounded")
    results.below("angle of the hinge at the end [rad]", abs(hinge[-1]), 0.1, "fin along the flow")
    rising = sphere_speed(abs(excess), mesh_of().volume())
    results.between(
        "speed up at the end over that of a sphere of equal volume and excess mass",
        rise[-1] / rising,
        0.6,
        1.1,
        DRAG_LAW,
    )
    times = np.arange(1, len(rise) + 1) * scene.dt
    results.plot(
        "A light body with a heavy fin",
        "time [s]",
        "axis, angle, speed",
        {
            "vertical part of the axis towards the fin": (times, towards_fin),
            "angle of the hinge [rad]": (times, hinge),
            "speed up over that of the sphere": (times, rise / rising),
        },
    )
    return results
