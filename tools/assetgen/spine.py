"""Shared by the swimmers: a skin blended along the spine, masses and inertias, probes."""

import math

import numpy as np

from .checks import FLUID_DENSITY, STABLE_MASS_FACTOR
from .mesh import coordinates, length
from .skeleton import Joint, Link, rounded

SERVO = Joint("revolute", "servo", (0.0, 1.0, 0.0), use_limits=True)

# Smallest mass of a link, relative to the mass of its volume of fluid and relative to its stability
# limit. A light body swims better, as the fluid inside the skin counts as mass too. Thin links need more
# of both.
BULKY = (0.5, 1.3)
THIN = (1.0, 1.0 / STABLE_MASS_FACTOR)

JOINT_RADIUS = 0.02  # of the sphere drawn at a joint, in lengths of its link


def blend(stations, joints):
    """Which bones move the points at these stations, and how much: (cell, share).

    joints: stations of the bones' joints in rising order, then that of the last bone's end. Bone cell
    has weight 1 - share, bone cell + 1 has weight share. The weights change linearly between the middles
    of the two bones, so they are about equal at the joint.
    """
    middles = np.array([0.5 * (a + b) for a, b in zip(joints, joints[1:])])
    cell = np.clip(np.searchsorted(middles, stations, side="right") - 1, 0, len(middles) - 2)
    share = (stations - middles[cell]) / (middles[cell + 1] - middles[cell])
    return cell, np.clip(share, 0.0, 1.0)


def link_volumes(tree, mesh):
    """Volume (m^3) between each link's faces and the plane z = 0."""
    owner = tree.nearest_link(mesh.face_centres())
    a, b, c = mesh.corners()
    flat = 0.5 * np.cross(b - a, c - a)[:, 2]  # area seen along z
    prisms = flat * (a[:, 2] + b[:, 2] + c[:, 2]) / 3.0
    return [math.fsum(prisms[owner == k]) for k in range(len(tree.bodies()))]


def give_bodies(tree, mesh, dx, thin):
    """Sets masses and inertias for a node spacing dx. thin: names of the thin links.

    A link has the moments of inertia of its mass spread over its surface, because the fluid acts there.
    With those of a solid body, a link that is heavy enough to move stably could still overshoot when it
    rolls.
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
        # an ellipsoid of diameter d has the mean square d^2 / 20 along an axis
        size = [math.sqrt(20.0 * math.fsum(areas[own] * s * s) / area) for s in spread]
        radius = rounded(JOINT_RADIUS * math.sqrt(math.fsum((end - start) ** 2)))
        tree.links[link.name] = Link(mass, tuple(size), radius)


def on_skin(mesh, part, points):
    """The vertices of a part that are nearest to the points, rounded as in the description."""
    own = mesh.vertices[np.unique(mesh.faces[part.faces])]
    chosen = []
    for point in points:
        offset = own - np.array(point)
        nearest = own[np.argmin(length(offset))]
        chosen.append(tuple(rounded(x) for x in nearest))
    return tuple(chosen)
