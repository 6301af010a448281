"""What swimmers have in common: skin blended along a spine, masses and inertias, probes."""

import math

import numpy as np

from .checks import FLUID_DENSITY, STABLE_MASS_FACTOR
from .mesh import coordinates, length
from .skeleton import Joint, Link, rounded

SERVO = Joint("revolute", "servo", (0.0, 1.0, 0.0), use_limits=True)

# Least mass of a link, as a multiple of the fluid mass in its volume and of its stability limit. Bulky
# links may be light: the fluid inside the skin counts as mass too, and a light body swims better. Thin
# links need more of both.
BULKY = (0.5, 1.3)
THIN = (1.0, 1.0 / STABLE_MASS_FACTOR)

JOINT_RADIUS = 0.02  # of the sphere drawn at a joint, in lengths of its link


def blend(stations, joints):
    """Which bones move points along a body, and how much: cell and share.

    joints are the stations of the bones' joints along the chain, closed by the last bone's end; the
    middles of the bones must rise. Between two middles, the weight passes linearly from bone cell
    (1 - share) to bone cell + 1 (share). If both bones are equally long, their weights are equal at
    the joint between them.
    """
    middles = np.array([0.5 * (a + b) for a, b in zip(joints, joints[1:])])
    cell = np.clip(np.searchsorted(middles, stations, side="right") - 1, 0, len(middles) - 2)
    share = (stations - middles[cell]) / (middles[cell + 1] - middles[cell])
    return cell, np.clip(share, 0.0, 1.0)


def link_volumes(tree, mesh):
    """Volume between each link's faces and the plane z = 0, m^3."""
    owner = tree.nearest_link(mesh.face_centres())
    a, b, c = mesh.corners()
    flat = 0.5 * np.cross(b - a, c - a)[:, 2]  # area seen along z
    prisms = flat * (a[:, 2] + b[:, 2] + c[:, 2]) / 3.0
    return [math.fsum(prisms[owner == k]) for k in range(len(tree.bodies()))]


def give_bodies(tree, mesh, dx, thin):
    """Gives the links masses and inertias for a node spacing dx; thin holds the names of thin links.

    The ellipsoid of a link has the moments that its mass would have if it were spread over its
    surface, because the fluid acts there. A link as compact as a solid body can be heavy enough and
    still overshoot in roll.
    """
    owner = tree.nearest_link(mesh.face_centres())
    areas, centres = mesh.face_areas(), mesh.face_centres()
    for k, (link, volume) in enumerate(zip(tree.bodies(), link_volumes(tree, mesh))):
        own = owner == k
        area = math.fsum(areas[own])
        by_volume, by_limit = THIN if link.name in thin else BULKY
        limit = STABLE_MASS_FACTOR * FLUID_DENSITY * area * dx
        mass = max(by_volume * FLUID_DENSITY * volume, by_limit * limit)

        start, end = tree.link_ends(link)
        offsets = centres[own] - 0.5 * (start + end)
        spread = [coordinates(offsets, axis) for axis in tree.link_axes(link)]
        # in an ellipsoid of diameter d along an axis, the mean square along it is d^2 / 20
        size = [math.sqrt(20.0 * math.fsum(areas[own] * s * s) / area) for s in spread]
        radius = rounded(JOINT_RADIUS * math.sqrt(math.fsum((end - start) ** 2)))
        tree.links[link.name] = Link(mass, tuple(size), radius)


def on_skin(mesh, part, points):
    """The vertices of a part nearest to some points, as the description shows them."""
    own = mesh.vertices[np.unique(mesh.faces[part.faces])]
    chosen = []
    for point in points:
        offset = own - np.array(point)
        nearest = own[np.argmin(length(offset))]
        chosen.append(tuple(rounded(x) for x in nearest))
    return tuple(chosen)
