"""A model file as bones and skinned parts in one frame, in the pose that the file's nodes have.

A skinned vertex v stands at the sum over its bones of weight W_b O_b v, where W_b is the bone's node in the
rest pose and O_b its offset matrix. Parts hold v placed by the matrix of their heaviest bone. If the rest pose
is the pose in which the skin was bound, these are the points of the rest pose. Otherwise `bound` tells for
each bone the rigid motion from one to the other. If there is no such motion, because scales or several skins
disagree, the parts are moved to the rest pose for good.
"""

import fnmatch
import tempfile
from dataclasses import dataclass, field
from pathlib import Path

import numpy as np

from .. import readMeshFile
from .errors import BodyError
from .gltf import mended

RIGID = 1e-4  # largest departure from a rigid motion, beside 1 and beside the size of the body


@dataclass
class Part:
    """Triangles with one material. weights (vertices x bones) add up to 1 for each vertex."""

    name: str
    material: str
    colour: tuple
    vertices: np.ndarray
    faces: np.ndarray
    weights: np.ndarray


@dataclass
class Model:
    """names, parents and worlds (4 x 4) of all nodes, the nodes that are bones, and the parts.

    bound: 4 x 4 for each bone, from the vertices of the parts to where the bone holds them at rest.
    notes: what was changed, in sentences. metadata: the file's, as text.
    """

    path: str
    names: list
    parents: list
    worlds: np.ndarray
    bones: list
    parts: list
    bound: np.ndarray
    metadata: dict
    notes: list = field(default_factory=list)

    def rest(self, part):
        """The vertices of a part in the rest pose."""
        return skinned(part.vertices, part.weights, self.bound)


def skinned(vertices, weights, motions):
    """Linear blend: vertices (n x 3) moved by 4 x 4 motions, with weights (n x motions)."""
    blended = np.tensordot(weights, motions, axes=1)
    return np.einsum("nij,nj->ni", blended[:, :3, :3], vertices) + blended[:, :3, 3]


def moved(matrix, points):
    return points @ matrix[:3, :3].T + matrix[:3, 3]


def text_of(raw):
    return raw.decode("utf-8", "replace")


def read_raw(path, notes):
    """What the importer reads; mends glTF skins without inverse bind matrices."""
    if not Path(path).is_file():
        raise BodyError(f"there is no file '{path}'; check the name and the folder")
    repaired = mended(path)
    try:
        if repaired is None:
            return readMeshFile(str(path))
        notes.append(
            "The file has no inverse bind matrices. They were computed from the rest pose of its nodes."
        )
        with tempfile.TemporaryDirectory() as folder:
            file = Path(folder) / "mended.glb"
            file.write_bytes(repaired)
            return readMeshFile(str(file))
    except RuntimeError as error:
        raise BodyError(str(error)) from error


def read_model(path, rigid=False, nodes_as_bones=False, most=None, skip=()):
    """Reads a model. Raises BodyError for a file that cannot be read and for one without bones.

    rigid: one bone for all, for a model without bones or to freeze those it has. nodes_as_bones: every
    node that holds a mesh is a bone, for models whose parts move as wholes. most: largest number of bones
    that move a skin, None for any. skip: patterns of meshes, or of nodes with meshes, that are left out.
    """
    notes = []
    raw = read_raw(path, notes)
    names = [text_of(node["name"]) for node in raw["nodes"]]
    parents = [node["parent"] for node in raw["nodes"]]
    worlds = world_transforms(raw["nodes"])
    metadata = {text_of(key): text_of(value) for key, value in raw["metadata"].items()}
    model = Model(str(path), names, parents, worlds, [], [], np.zeros((0, 4, 4)), metadata, notes)
    held = [
        (node, raw["meshes"][index])
        for node, entry in enumerate(raw["nodes"])
        for index in entry["meshes"]
        if len(raw["meshes"][index]["faces"])
    ]
    held = without_skipped(held, names, skip)
    if not held:
        raise BodyError(f"'{path}' has no triangles; export the model with its mesh")
    model.bones = bones_of(model, held, rigid, nodes_as_bones)
    if most is not None and not (rigid or nodes_as_bones):
        used = {b["name"] for _, m in held for b in m["bones"] if np.any(b["weights"] > 0)}
        if len(used) > most:
            raise too_many(path, len(used), most)
    bind(model, held, raw["materials"], rigid or nodes_as_bones)
    return model


def without_skipped(held, names, skip):
    """The pairs of node and mesh whose names match no pattern; each pattern must match one."""
    for pattern in skip:
        kept = [
            (node, mesh)
            for node, mesh in held
            if not any(
                fnmatch.fnmatchcase(n, pattern) for n in (names[node], text_of(mesh["name"]))
            )
        ]
        if len(kept) == len(held):
            known = sorted({names[node] for node, _ in held})
            raise BodyError(
                f"--skip '{pattern}' matches no mesh; there are {', '.join(known[:20])}"
            )
        held = kept
    return held


def too_many(path, count, most):
    return BodyError(
        f"'{path}' has {count} bones that move its skin; at most {most} can be simulated. Merge some into "
        "the bones above them, as in --drop 'finger*'"
    )


def world_transforms(nodes):
    worlds = []
    for node in nodes:
        above = worlds[node["parent"]] if node["parent"] >= 0 else np.eye(4)
        worlds.append(above @ node["transform"])
    return np.array(worlds)


def bones_of(model, held, rigid, nodes_as_bones):
    """Indices of the nodes that are bones, in the order of the nodes."""
    if rigid:
        return [held[0][0]]
    if nodes_as_bones:
        return sorted({node for node, _ in held})
    named = {text_of(bone["name"]) for _, mesh in held for bone in mesh["bones"]}
    missing = sorted(named - set(model.names))
    if missing:
        raise BodyError(
            f"'{model.path}' has a bone '{missing[0]}' without a node of the same name; export the "
            "model with its armature"
        )
    if not named:
        raise BodyError(
            f"'{model.path}' has no bones. For one rigid link use --rigid (rigid=True); if its nodes "
            "are the parts of a machine, use --nodes-as-bones (nodes_as_bones=True); otherwise skin it "
            "to an armature"
        )
    first = {}
    for k, name in enumerate(model.names):
        first.setdefault(name, k)
    return sorted(first[name] for name in named)


def bind(model, held, materials, unskinned):
    """Fills in parts and bound. unskinned: all parts move as wholes with the nearest bone above them."""
    column = {node: k for k, node in enumerate(model.bones)}
    first = {}
    for node in model.bones:
        first.setdefault(model.names[node], column[node])
    bound = [None] * len(model.bones)
    skins, rigid = [], True
    for node, mesh in held:
        vertices = mesh["vertices"]
        own = None if unskinned else dense_weights(mesh, first, len(model.bones))
        if own is None or not own.any():
            skins.append((node, mesh, moved(model.worlds[node], vertices), None, None))
            continue
        offsets = {first[text_of(bone["name"])]: bone["offset"] for bone in mesh["bones"]}
        motions = {k: model.worlds[model.bones[k]] @ offset for k, offset in offsets.items()}
        place = placement(own, motions, bound)
        for k, motion in motions.items():
            if not own[:, k].any():
                continue
            from_placed = motion @ np.linalg.pinv(place)
            if bound[k] is None:
                bound[k] = from_placed
            size = np.abs(vertices).max() * np.abs(place[:3, :3]).max() + 1e-30
            rigid &= is_rigid(from_placed) and same(bound[k], from_placed, size)
        skins.append((node, mesh, vertices, own, (place, motions)))
    model.bound = np.array([np.eye(4) if m is None or not rigid else m for m in bound])
    for node, mesh, vertices, own, binding in skins:
        if own is None:
            k = owner_above(model, node, column)
            if k is None:
                k = nearest_bone(model, vertices.mean(axis=0))
                if not unskinned:
                    model.notes.append(
                        f"The mesh '{text_of(mesh['name'])}' has no weights and hangs on no bone: it "
                        f"moves with the nearest one, '{model.names[model.bones[k]]}'."
                    )
            own = np.zeros((len(vertices), len(model.bones)))
            own[:, k] = 1.0
            placed = moved(np.linalg.inv(model.bound[k]), vertices)
        else:
            own = with_all_weights(own, vertices, model.notes, text_of(mesh["name"]))
            place, motions = binding
            if rigid:
                placed = moved(place, vertices)
            else:
                every = np.array([motions.get(k, place) for k in range(len(model.bones))])
                placed = skinned(vertices, own, every)
        model.parts.append(make_part(mesh, materials, placed, own))
    if not rigid:
        model.notes.append(
            "Bones are scaled, or skins disagree about the pose in which they were bound. The skin was "
            "moved to the rest pose for good."
        )


def make_part(mesh, materials, vertices, weights):
    known = mesh["material"] < len(materials)
    material = materials[mesh["material"]] if known else {"name": b"", "colour": (0.8, 0.8, 0.8, 1)}
    name = text_of(mesh["name"]) or "surface"
    colour = tuple(float(min(max(c, 0.0), 1.0)) for c in material["colour"])
    return Part(name, text_of(material["name"]), colour, vertices, mesh["faces"].copy(), weights)


def dense_weights(mesh, column, count):
    """Weights of all bones for each vertex, which add up to 1 or are all zero."""
    weights = np.zeros((len(mesh["vertices"]), count))
    for bone in mesh["bones"]:
        np.add.at(weights[:, column[text_of(bone["name"])]], bone["vertices"], bone["weights"])
    weights = np.maximum(weights, 0.0)
    total = weights.sum(axis=1, keepdims=True)
    return np.divide(weights, total, out=np.zeros_like(weights), where=total > 0)


def placement(weights, motions, bound):
    """Where a mesh stands, by its heaviest bone; by one whose motion is known, if there is one."""
    known = [k for k in motions if bound[k] is not None and weights[:, k].any()]
    k = max(known or motions, key=lambda bone: weights[:, bone].sum())
    return np.linalg.pinv(bound[k]) @ motions[k] if known else motions[k]


def is_rigid(motion):
    block = motion[:3, :3]
    return np.abs(block @ block.T - np.eye(3)).max() < RIGID and np.linalg.det(block) > 0


def same(a, b, size):
    turn = np.abs(a[:3, :3] - b[:3, :3]).max()
    return turn < RIGID and np.abs(a[:3, 3] - b[:3, 3]).max() < RIGID * size


def with_all_weights(weights, vertices, notes, name):
    """Gives vertices without weights those of the nearest vertex that has some."""
    lost = np.flatnonzero(weights.sum(axis=1) <= 0)
    if not len(lost):
        return weights
    held = np.flatnonzero(weights.sum(axis=1) > 0)
    for vertex in lost:
        nearest = held[np.argmin(((vertices[held] - vertices[vertex]) ** 2).sum(axis=1))]
        weights[vertex] = weights[nearest]
    notes.append(f"{len(lost)} vertices of '{name}' have no weights: they got their neighbours'.")
    return weights


def owner_above(model, node, column):
    """Column of the nearest bone at a node or above it; None if there is none."""
    while node >= 0:
        if node in column:
            return column[node]
        node = model.parents[node]
    return None


def nearest_bone(model, point):
    places = model.worlds[model.bones][:, :3, 3]
    return int(np.argmin(((places - point) ** 2).sum(axis=1)))
