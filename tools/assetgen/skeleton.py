"""Trees of bones, the joints and links derived from them, and their part of a description."""

from dataclasses import dataclass, field, replace

import numpy as np

from .mesh import AssetError, length

SCENE_NODE = "scene"  # identity, holds the skin and the root joint
SKIN_NODE = "skin"  # identity, holds the mesh
END_NODE = "end"  # child of a chain's last bone: without it that bone would get no link

# DART clips servo and velocity commands to the velocity limit, so the limits leave room for any
# sensible command. Positions m or rad, velocity m/s or rad/s, effort N or N m.
GENEROUS_LIMITS = {"effort": 1.0e4, "velocity": 1.0e3, "lower": -100.0, "upper": 100.0}

INTERMEDIATE_MASS = 1.0e-6  # kg, of a link that stands at a fork and has no surface
INTERMEDIATE_RADIUS = 0.001  # m


@dataclass
class Joint:
    """How one bone is joined to its parent (the first one to the world)."""

    type: str
    actuator: str = "passive"
    axis: tuple = (0.0, 1.0, 0.0)
    use_limits: bool = False
    spring: float = 0.0  # stiffness about the rest pose, N/m or N m/rad

    def description(self):
        return {
            "type": self.type,
            "actuator": self.actuator,
            "axis": list(self.axis),
            "springStiffness": self.spring,
            "useLimits": self.use_limits,
            "useDynamcis": False,
            "dynamics": {"damping": 0.0, "friction": 0.0},
            "limit": dict(GENEROUS_LIMITS),
        }


@dataclass
class Link:
    """A rigid body: mass (kg) and diameters (m) of the ellipsoid that gives its inertia.

    The first diameter lies along the bone.
    """

    mass: float
    size: tuple
    radius: float  # of the sphere drawn at the joint, m

    def description(self, name, intermediate):
        return {
            "name": name,
            "mass": rounded(self.mass),
            "size": [rounded(d) for d in self.size],
            "radius ": self.radius,  # the blank belongs to the key
            "isIntermediate": intermediate,
        }


@dataclass
class DerivedLink:
    """A link as the simulator derives it: from a joint and its child joints (node indices)."""

    name: str
    joint: int
    children: list
    intermediate: bool


@dataclass
class DerivedTree:
    """Joints (node indices, in the order of discovery) and links of a tree of nodes.

    names and parents list the nodes after forks were split; parents are indices, -1 for none.
    """

    names: list
    parents: list
    joints: list
    links: list


def derive(names, parents, bones):
    """The joints and links that the simulator derives from a scene; returns a DerivedTree.

    names and parents (indices, -1 for none) are the scene's nodes in breadth-first order, bones the
    names of the skin's bones in order. A bone with several children gets an intermediate node above
    each of them, so that every branch is a chain of its own. A node is a joint if its name or its
    parent's name contains a bone's name. A joint with child joints yields a link.
    """
    names, parents = list(names), list(parents)
    for bone in bones:
        node = names.index(bone)
        children = [k for k, parent in enumerate(parents) if parent == node]
        if len(children) > 1:
            for i, child in enumerate(children):
                parents[child] = len(names)
                names.append(f"{bone}_intermediate_{i}")
                parents.append(node)

    joints = []
    for bone in bones:
        for k, name in enumerate(names):
            above = names[parents[k]] if parents[k] >= 0 else ""
            if (bone in name or bone in above) and k not in joints:
                joints.append(k)

    links = []
    for joint in joints:
        children = [k for k in joints if parents[k] == joint]
        if children:
            first = names[children[0]]
            intermediate = "intermediate" in first
            stem = names[joint].split("_intermediate")[0]
            name = f"[link]{stem}::{first}" if intermediate else f"[link]{names[joint]}"
            links.append(DerivedLink(name, joint, children, intermediate))
    return DerivedTree(names, parents, joints, links)


@dataclass
class Node:
    """A bone, or the end of a branch, which is no bone and has no joint of its own.

    parent is the index of another node in the list of a tree, -1 for the root bone. point is the
    node's place in the rest pose, m.
    """

    name: str
    parent: int
    point: tuple
    joint: Joint = None


@dataclass
class BoneTree:
    """Bones and ends of branches in breadth-first order, and the derived links' bodies by name.

    Intermediate links may be left out of links: they then get a body of negligible mass.
    """

    nodes: list
    links: dict = field(default_factory=dict)

    def __post_init__(self):
        self.points = np.array([node.point for node in self.nodes], dtype=float)
        others = [SCENE_NODE, SKIN_NODE, *(node.name for node in self.nodes if not node.joint)]
        check_names(self.bone_names(), others)
        own = 2  # scene and skin come before the bones
        self.derived = derive(
            [SCENE_NODE, SKIN_NODE, *(node.name for node in self.nodes)],
            [-1, 0, *(node.parent + own if node.parent >= 0 else 0 for node in self.nodes)],
            self.bone_names(),
        )
        # places of all nodes after the split, an intermediate one on its bone
        places = [np.zeros(3), np.zeros(3), *self.points]
        for parent in self.derived.parents[len(places) :]:
            places.append(places[parent])
        self.places = np.array(places)

    def bones(self):
        """Indices of the bones among the nodes."""
        return [k for k, node in enumerate(self.nodes) if node.joint]

    def bone_names(self):
        return [self.nodes[k].name for k in self.bones()]

    def bodies(self):
        """The links that own a part of the surface, in the order in which the simulator visits them.

        That is a depth-first walk, without intermediate links.
        """
        by_joint = {link.joint: link for link in self.derived.links}
        walk, pending = [], [min(by_joint)]
        while pending:
            link = by_joint.get(pending.pop())
            if link:
                walk += [] if link.intermediate else [link]
                pending += reversed(link.children)
        return walk

    def link_names(self):
        return [link.name for link in self.bodies()]

    def masses(self):
        return [self.links[link.name].mass for link in self.bodies()]

    def neutral(self):
        """The same bones with links as heavy as the fluid that they displace: no excess mass."""
        links = {name: replace(link, mass=0.0) for name, link in self.links.items()}
        return BoneTree(self.nodes, links)

    def link_ends(self, link):
        """Start and end of a link: its joint, and the mean of its child joints."""
        return self.places[link.joint], np.mean(self.places[link.children], axis=0)

    def link_axes(self, link):
        """Unit vectors along the bone, which lies in the plane z = 0, across it, and along z."""
        start, end = self.link_ends(link)
        x, y, _ = (end - start) / length((end - start)[None])[0]
        return np.array([(x, y, 0.0), (-y, x, 0.0), (0.0, 0.0, 1.0)])

    def nearest_link(self, points):
        """Index of the nearest link centre for each point, the first one at equal distance.

        The simulator gives faces to links by the same rule.
        """
        centres = [0.5 * (start + end) for start, end in map(self.link_ends, self.bodies())]
        distances = [length(points - centre) for centre in centres]
        return np.argmin(np.stack(distances, axis=1), axis=1)

    def description(self):
        """The members "joints" and "links"; nodes that are no bones get fixed joints."""
        own = {node.name: node.joint for node in self.nodes if node.joint}
        names = [self.derived.names[k] for k in self.derived.joints]
        nothing = Link(INTERMEDIATE_MASS, (2.0 * INTERMEDIATE_RADIUS,) * 3, INTERMEDIATE_RADIUS)
        return {
            "joints": {name: own.get(name, Joint("fixed")).description() for name in names},
            "links": {
                link.name: (
                    self.links.get(link.name, nothing)
                    if link.intermediate
                    else self.links[link.name]
                ).description(link.name, link.intermediate)
                for link in self.derived.links
            },
        }


def chain(points, joints, links):
    """A tree of bones in a row; points (one more than bones, m) end with the end node's."""
    if not len(points) - 1 == len(joints) == len(links) > 0:
        raise AssetError("a chain of n bones needs n joints, n links and n + 1 points")
    names = [f"bone_{k:02d}" for k in range(len(joints))]
    nodes = [
        Node(name, k - 1, point, joint)
        for k, (name, point, joint) in enumerate(zip([*names, END_NODE], points, [*joints, None]))
    ]
    return BoneTree(nodes, {f"[link]{name}": link for name, link in zip(names, links)})


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
