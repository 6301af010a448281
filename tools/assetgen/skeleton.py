"""Chains of joints, the links derived from them, and their part of a description."""

from dataclasses import dataclass

import numpy as np

from .mesh import AssetError, length

SCENE_NODE = "scene"  # identity, holds the skin and the root joint
SKIN_NODE = "skin"  # identity, holds the mesh
END_NODE = "end"  # child of the last bone: without it that bone would get no link

# DART clips servo and velocity commands to the velocity limit, so the limits leave room for any
# sensible command. Positions m or rad, velocity m/s or rad/s, effort N or N m.
GENEROUS_LIMITS = {"effort": 1.0e4, "velocity": 1.0e3, "lower": -100.0, "upper": 100.0}


@dataclass
class Joint:
    """How one bone is joined to its parent (the first one to the world)."""

    type: str
    actuator: str = "passive"
    axis: tuple = (0.0, 1.0, 0.0)
    use_limits: bool = False

    def description(self):
        return {
            "type": self.type,
            "actuator": self.actuator,
            "axis": list(self.axis),
            "springStiffness": 0.0,
            "useLimits": self.use_limits,
            "useDynamcis": False,
            "dynamics": {"damping": 0.0, "friction": 0.0},
            "limit": dict(GENEROUS_LIMITS),
        }


@dataclass
class Link:
    """The body of one bone: mass (kg) and diameters (m) of the ellipsoid that gives its inertia."""

    mass: float
    size: tuple
    radius: float  # of the sphere drawn at the joint, m

    def description(self, name):
        return {
            "name": name,
            "mass": rounded(self.mass),
            "size": [rounded(d) for d in self.size],
            "radius ": self.radius,  # the blank belongs to the key
            "isIntermediate": False,
        }


@dataclass
class Chain:
    """Bones in a row: points (one more than bones, m) are the bones' origins and the end node's."""

    points: np.ndarray
    joints: list
    links: list

    def __post_init__(self):
        self.points = np.asarray(self.points, dtype=float)
        if not len(self.points) - 1 == len(self.joints) == len(self.links) > 0:
            raise AssetError("a chain of n bones needs n joints, n links and n + 1 points")
        check_names(self.bone_names(), [SCENE_NODE, SKIN_NODE, END_NODE])

    def bone_names(self):
        return [f"bone_{k:02d}" for k in range(len(self.joints))]

    def link_names(self):
        """The names that the simulator derives from the bones."""
        return [f"[link]{name}" for name in self.bone_names()]

    def link_centres(self):
        return 0.5 * (self.points[:-1] + self.points[1:])

    def nearest_link(self, points):
        """Index of the nearest link centre for each point, the first one at equal distance.

        The simulator gives faces to links by the same rule.
        """
        distances = [length(points - centre) for centre in self.link_centres()]
        return np.argmin(np.stack(distances, axis=1), axis=1)

    def description(self):
        """The members "joints" and "links"; the end node counts as a joint, without a link."""
        joints = dict(zip(self.bone_names(), self.joints))
        joints[END_NODE] = Joint("fixed")
        return {
            "joints": {name: joint.description() for name, joint in joints.items()},
            "links": {n: link.description(n) for n, link in zip(self.link_names(), self.links)},
        }


def check_names(bones, others):
    """Raises AssetError if a bone's name is part of another node's.

    The simulator finds joints by substring search, so such a node would become a joint too.
    """
    for bone in bones:
        for other in bones + others:
            if bone is not other and bone in other:
                raise AssetError(f"bone name {bone!r} is part of node name {other!r}")


def rounded(value):
    """Nine significant digits, so that the text does not show the last bits of the arithmetic."""
    return float(f"{value:.9g}")
