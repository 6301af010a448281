"""Meshes with bones as they come from modelling programs, with the peculiarities that imports stumble over.

Each maker returns a Wild: a glTF binary file, and what is in it by construction. The writer knows nothing
of the importers: it writes nodes, skins and arrays as it is told.
"""

import json
import struct
from dataclasses import dataclass, field

import numpy as np

SIDES = 12  # corners of a tube's section
KINDS = {1: "SCALAR", 3: "VEC3", 4: "VEC4", 16: "MAT4"}
FLOAT, SHORT, INT = 5126, 5123, 5125


@dataclass
class Skin:
    """A skinned mesh: vertices in the world at rest, faces, dense weights over `joints` (names of nodes)."""

    vertices: np.ndarray
    faces: np.ndarray
    weights: np.ndarray
    joints: list
    node: str = "surface"
    colour: tuple = (0.7, 0.7, 0.7, 1.0)
    matrices: bool = True


@dataclass
class Wild:
    """nodes: (name, parent's name or None, matrix 4 x 4), the scene's root first. places: of the bones in
    the world at rest, by name. options: of the import that the mesh needs. bones: how many joints with a
    link the imported body has, without those at forks. moves: motions (4 x 4) of bones from the pose in
    which the skin was bound to the rest pose, by name; vertices are in the former, places in the latter.
    """

    nodes: list
    places: dict
    skins: list
    options: dict
    bones: int
    moves: dict = field(default_factory=dict)

    @property
    def data(self):
        """The file's bytes."""
        return glb(self.nodes, self.skins, self.moves)

    @property
    def parents(self):
        return {name: parent for name, parent, _ in self.nodes}


class Writer:
    def __init__(self):
        self.blob, self.views, self.accessors = b"", [], []

    def add(self, array, component):
        raw = array.tobytes()
        self.views.append({"buffer": 0, "byteOffset": len(self.blob), "byteLength": len(raw)})
        entry = {
            "bufferView": len(self.views) - 1,
            "componentType": component,
            "count": len(array),
            "type": KINDS[array.shape[1]],
        }
        if array.shape[1] == 3:
            entry.update(min=array.min(axis=0).tolist(), max=array.max(axis=0).tolist())
        self.accessors.append(entry)
        self.blob += raw + bytes(-len(raw) % 4)
        return len(self.accessors) - 1


def glb(nodes, skins, moves):
    """nodes: (name, parent name or None, matrix 4 x 4). The first is the scene's root."""
    writer, index = Writer(), {name: k for k, (name, _, _) in enumerate(nodes)}
    listed, worlds = [], {}
    for name, parent, matrix in nodes:
        listed.append({"name": name, "matrix": matrix.T.ravel().tolist()})
        worlds[name] = worlds[parent] @ matrix if parent else matrix
        if parent:
            listed[index[parent]].setdefault("children", []).append(index[name])
    meshes, entries, materials = [], [], []
    for k, skin in enumerate(skins):
        order = np.argsort(-skin.weights, axis=1, kind="stable")[:, :4]
        joints, shares = np.zeros((len(order), 4), "<u2"), np.zeros((len(order), 4), "<f4")
        joints[:, : order.shape[1]] = order
        shares[:, : order.shape[1]] = np.take_along_axis(skin.weights, order, axis=1)
        placed = worlds[skin.node]
        local = (skin.vertices - placed[:3, 3]) @ np.linalg.inv(placed[:3, :3]).T
        attributes = {
            "POSITION": writer.add(local.astype("<f4"), FLOAT),
            "JOINTS_0": writer.add(joints, SHORT),
            "WEIGHTS_0": writer.add(shares, FLOAT),
        }
        indices = writer.add(skin.faces.astype("<u4").reshape(-1, 1), INT)
        meshes.append(
            {"primitives": [{"attributes": attributes, "indices": indices, "material": k}]}
        )
        materials.append({"pbrMetallicRoughness": {"baseColorFactor": list(skin.colour)}})
        entry = {"joints": [index[name] for name in skin.joints]}
        if skin.matrices:
            bound = [
                np.linalg.inv(moves.get(name, np.eye(4))) @ worlds[name] for name in skin.joints
            ]
            bind = [(np.linalg.inv(world) @ placed).T.ravel() for world in bound]
            entry["inverseBindMatrices"] = writer.add(np.array(bind).astype("<f4"), FLOAT)
        entries.append(entry)
        listed[index[skin.node]].update(mesh=k, skin=k)
    content = {
        "asset": {"version": "2.0"},
        "scene": 0,
        "scenes": [{"nodes": [0]}],
        "nodes": listed,
        "meshes": meshes,
        "materials": materials,
        "skins": entries,
        "accessors": writer.accessors,
        "bufferViews": writer.views,
        "buffers": [{"byteLength": len(writer.blob)}],
    }
    text = json.dumps(content).encode()
    text += b" " * (-len(text) % 4)
    total = 28 + len(text) + len(writer.blob)
    header = struct.pack("<4sII", b"glTF", 2, total) + struct.pack("<II", len(text), 0x4E4F534A)
    return header + text + struct.pack("<II", len(writer.blob), 0x004E4942) + writer.blob


def at(place, turn=None):
    matrix = np.eye(4)
    matrix[:3, 3] = place
    if turn is not None:
        matrix[:3, :3] = turn
    return matrix


def turned(axis, degrees):
    """The rotation about the x, y or z axis (0, 1, 2)."""
    c, s = np.cos(np.radians(degrees)), np.sin(np.radians(degrees))
    matrix = np.eye(3)
    i, j = (axis + 1) % 3, (axis + 2) % 3
    matrix[i, i], matrix[i, j], matrix[j, i], matrix[j, j] = c, -s, s, c
    return matrix


def tube(start, end, radius, rings=13):
    """A closed tube with flat ends: vertices and faces."""
    start, end = np.array(start, float), np.array(end, float)
    along = (end - start) / np.linalg.norm(end - start)
    across = np.cross(along, [0.3, 0.5, 0.8])
    across /= np.linalg.norm(across)
    other = np.cross(along, across)
    angle = 2 * np.pi * np.arange(SIDES) / SIDES
    ring = radius * (np.cos(angle)[:, None] * across + np.sin(angle)[:, None] * other)
    vertices = [start + (end - start) * k / (rings - 1) + ring for k in range(rings)]
    faces = []
    for k in range(rings - 1):
        for i in range(SIDES):
            a, b = k * SIDES + i, k * SIDES + (i + 1) % SIDES
            faces += [(a, b, b + SIDES), (a, b + SIDES, a + SIDES)]
    first, last = rings * SIDES, rings * SIDES + 1
    for i in range(SIDES):
        a, b = i, (i + 1) % SIDES
        faces += [(first, b, a), (last, a + (rings - 1) * SIDES, b + (rings - 1) * SIDES)]
    return np.concatenate([*vertices, [start], [end]]), np.array(faces)


def joined(pieces):
    vertices = np.concatenate([piece[0] for piece in pieces])
    first = np.cumsum([0] + [len(piece[0]) for piece in pieces])
    return vertices, np.concatenate([piece[1] + f for piece, f in zip(pieces, first)])


def blended(vertices, places, ends):
    """Weights by the distance to the bones' segments, of the two nearest ones."""
    away = []
    for start, end in zip(places, ends):
        along = end - start
        share = np.clip((vertices - start) @ along / (along @ along), 0, 1)
        away.append(np.linalg.norm(vertices - start - share[:, None] * along, axis=1))
    weights = 1 / (np.array(away).T + 1e-3 * np.ptp(vertices)) ** 4
    weights[weights < np.sort(weights, axis=1)[:, [-min(2, weights.shape[1])]]] = 0
    return weights / weights.sum(axis=1, keepdims=True)


def chain_nodes(names, places, parent, base, turn=None):
    """Nodes of a chain of bones below `parent`, whose world matrix is base; each bone's frame is turned.

    turn may hold a scale too, which all the bones then have in the world.
    """
    nodes, above = [], base
    for name, place in zip(names, places):
        world = at(place, turn)
        nodes.append((name, parent, np.linalg.inv(above) @ world))
        parent, above = name, world
    return nodes


def row(count, length, direction=(1, 0, 0)):
    """Places of a chain's bones and of its end, around the origin."""
    direction = np.array(direction, float)
    return [direction * length * (k / count - 0.5) for k in range(count + 1)]


def centimetres():
    """Four bones along -y with z up, in centimetres; the last one is a leaf. The armature is scaled."""
    places = row(4, 30.0, (0, -1, 0))
    names = ["hip", "back", "neck", "head"]
    vertices, faces = tube(places[0], places[-1], 2.5)
    root = np.diag([10.0, 10.0, 10.0, 1.0])
    nodes = [
        ("Scene", None, np.eye(4)),
        ("Armature", "Scene", root),
        ("surface", "Scene", np.eye(4)),
    ]
    nodes += chain_nodes(names, places, "Armature", root, root[:3, :3])
    weights = blended(vertices, places[:-1], places[1:])
    skin = Skin(vertices, faces, weights, names)
    options = {"length": 0.3, "up": "z", "forward": "-y"}
    return Wild(nodes, dict(zip(names, places)), [skin], options, 4)


def several_roots():
    """Three chains of two bones side by side, below one armature that is no bone; far from the origin."""
    nodes = [
        ("Scene", None, np.eye(4)),
        ("surface", "Scene", np.eye(4)),
        ("rig", "Scene", np.eye(4)),
    ]
    pieces, names, starts, ends = [], [], [], []
    for k in range(3):
        places = [p + np.array([5.0, 2.0, 0.08 * k]) for p in row(2, 0.3)]
        own = [f"arm{k}", f"hand{k}"]
        nodes += chain_nodes(own, places, "rig", np.eye(4), turned(2, 90))
        pieces.append(tube(places[0], places[-1], 0.025))
        names += own
        starts += places[:-1]
        ends += places[1:]
    vertices, faces = joined(pieces)
    skin = Skin(vertices, faces, blended(vertices, starts, ends), names)
    return Wild(nodes, dict(zip(names, starts)), [skin], {}, 7)


def fork_of_three():
    """A trunk of two bones with three branches, all leaves without an end; mesh and armature are turned."""
    trunk = [np.array([-0.15, 0, 0]), np.array([-0.05, 0, 0])]
    fork = np.array([0.05, 0, 0])
    tips = [np.array([0.15, 0.06, 0]), np.array([0.15, -0.06, 0]), np.array([0.15, 0, 0.08])]
    names = ["trunk", "waist", "left", "right", "tail"]
    starts = [*trunk, fork, fork, fork]
    ends = [trunk[1], fork, *tips]
    root = at((0.3, 0.1, 0), turned(0, -90))
    nodes = [
        ("Scene", None, np.eye(4)),
        ("Armature", "Scene", root),
        ("surface", "Armature", at((0, 0.2, 0))),
    ]
    nodes += chain_nodes(names[:2], trunk, "Armature", root, turned(1, 30))
    waist = at(trunk[1], turned(1, 30))
    for name in names[2:]:
        nodes.append((name, "waist", np.linalg.inv(waist) @ at(fork, turned(2, 45))))
    vertices, faces = joined([tube(a, b, 0.02, 7) for a, b in zip(starts, ends)])
    skin = Skin(vertices, faces, blended(vertices, starts, ends), names)
    return Wild(nodes, dict(zip(names, starts)), [skin], {}, 5)


def missing_matrices():
    """Three bones whose skin has no inverse bind matrices."""
    wild = simple(["a1", "b2", "c3"])
    wild.skins[0].matrices = False
    return wild


def simple(names, node="surface", extra=()):
    places = row(len(names), 0.3)
    vertices, faces = tube(places[0], places[-1], 0.03)
    nodes = [("Scene", None, np.eye(4)), (node, "Scene", np.eye(4)), *extra]
    nodes += chain_nodes(names, places, "Scene", np.eye(4), turned(0, 20))
    skin = Skin(vertices, faces, blended(vertices, places[:-1], places[1:]), names, node)
    return Wild(nodes, dict(zip(names, places)), [skin], {}, len(names))


def names_within_names():
    """Nodes that contain bones' names, bones that contain others', and one with the fork's word."""
    extra = [("low_light", "Scene", np.eye(4)), ("low_2_camera", "low_light", np.eye(4))]
    return simple(["low", "low_2", "S", "x_intermediate"], "low_skin", extra)


def open_sheet():
    """A sheet of one layer with three bones."""
    places = row(3, 0.3)
    x, z = np.meshgrid(np.linspace(-0.15, 0.15, 19), np.linspace(-0.05, 0.05, 7), indexing="ij")
    vertices = np.column_stack([x.ravel(), np.zeros(x.size), z.ravel()])
    faces = []
    for i in range(18):
        for j in range(6):
            a, b = 7 * i + j, 7 * (i + 1) + j
            faces += [(a, a + 1, b + 1), (a, b + 1, b)]
    names = ["front", "middle", "rear"]
    nodes = [("Scene", None, np.eye(4)), ("surface", "Scene", np.eye(4))]
    nodes += chain_nodes(names, places, "Scene", np.eye(4))
    skin = Skin(vertices, np.array(faces), blended(vertices, places[:-1], places[1:]), names)
    return Wild(nodes, dict(zip(names, places)), [skin], {"thickness": 0.01}, 3)


def bent_after_binding():
    """Four bones bound in a row; the rest pose is bent by 30 degrees at the third."""
    straight, names = row(4, 0.3), ["p", "q", "r", "s"]
    vertices, faces = tube(straight[0], straight[-1], 0.02)
    bend = at(straight[2]) @ at((0, 0, 0), turned(2, 30)) @ at(-straight[2])
    moves = {"r": bend, "s": bend}
    places = [*straight[:3], (bend @ [*straight[3], 1])[:3]]
    nodes = [("Scene", None, np.eye(4)), ("surface", "Scene", np.eye(4))]
    nodes += chain_nodes(names, places, "Scene", np.eye(4), turned(0, 10))
    skin = Skin(vertices, faces, blended(vertices, straight[:-1], straight[1:]), names)
    return Wild(nodes, dict(zip(names, places)), [skin], {}, 4, moves)


def two_skins():
    """Body and fin with skins, materials and mesh nodes of their own; the fin's node is moved and scaled."""
    places = row(4, 0.4)
    names = ["head", "chest", "stem", "fin"]
    nodes = [("Scene", None, np.eye(4)), ("body mesh", "Scene", np.eye(4))]
    nodes.append(("blade mesh", "Scene", np.diag([0.01, 0.01, 0.01, 1.0])))
    nodes += chain_nodes(names, places, "Scene", np.eye(4), turned(1, 180))
    body, fin = tube(places[0], places[3], 0.04), tube(places[3], places[4], 0.015)
    first = Skin(*body, blended(body[0], places[:3], places[1:4]), names[:3], "body mesh")
    weights = blended(fin[0], [places[3], places[2]], [places[4], places[3]])
    second = Skin(*fin, weights, ["fin", "stem"], "blade mesh", (0.9, 0.4, 0.2, 1.0))
    return Wild(nodes, dict(zip(names, places)), [first, second], {}, 4)


WILD = {
    "centimetres": centimetres,
    "several_roots": several_roots,
    "fork_of_three": fork_of_three,
    "missing_matrices": missing_matrices,
    "names_within_names": names_within_names,
    "open_sheet": open_sheet,
    "bent_after_binding": bent_after_binding,
    "two_skins": two_skins,
}
