"""From the bones of a model to those of a clean one: one root, names of their own, ends at the leaves.

Loading takes a node for a joint if its name or its parent's name contains a bone's name, and takes a name with
"intermediate" for a part of a fork. A bone gets a link only if it has a child. So names are made safe here,
several roots get a common one, and the last bone of a chain gets an end node.
"""

import fnmatch
import re
from dataclasses import dataclass, field
from typing import Optional

import numpy as np

from .errors import BodyError
from .scene import too_many

MOST_BONES = 250
ROOT, END = "root", "end"


@dataclass
class Bone:
    """One bone of the clean model. parent: index, -1 at the root. place, turn: at rest, in the world.

    column: the bone's column of the model's weights, None for an added one. end: where a leaf ends, or None.
    """

    name: str
    parent: int
    place: np.ndarray
    turn: np.ndarray
    column: Optional[int] = None
    end: Optional[np.ndarray] = None
    children: list = field(default_factory=list)


def rotation_of(block):
    """The rotation next to a 3 x 3 block; a mirrored axis is turned round."""
    u, _, v = np.linalg.svd(block)
    if np.linalg.det(u @ v) < 0:
        u[:, 2] *= -1
    return u @ v


def dropped_bones(model, patterns):
    """Bones of the model that match a pattern; each pattern must match one."""
    dropped = set()
    for pattern in patterns:
        found = [k for k in model.bones if fnmatch.fnmatchcase(model.names[k], pattern)]
        if not found:
            raise BodyError(no_match("--drop", pattern, [model.names[k] for k in model.bones]))
        dropped.update(found)
    return dropped


def no_match(option, pattern, names):
    shown = ", ".join(names[:20]) + (f" and {len(names) - 20} more" if len(names) > 20 else "")
    return f"{option} '{pattern}' matches no name; there are {shown}"


def build_rig(model, drop=()):
    """Bones in breadth-first order from the root, with the model's weights moved to the bones that are kept.

    drop: patterns of bones whose weights go to the nearest bone above.
    """
    dropped = dropped_bones(model, drop)
    weight = used_weights(model)
    carried = carrying(model, weight)
    unused = [k for k in model.bones if k not in carried]
    kept = [k for k in model.bones if k in carried and k not in dropped]
    while len(kept) > 1 and idle_root(model, kept, weight):
        unused.append(kept.pop(0))
    if not kept:
        raise BodyError("no bone is left: drop fewer bones")
    if len(kept) > MOST_BONES:
        raise too_many(model.path, len(kept), MOST_BONES)
    bones = make_bones(model, kept)
    move_weights(model, kept)
    note_unused(model, unused)
    bones = with_one_root(model, bones)
    bones = breadth_first(bones)
    give_names(model, bones)
    give_ends(model, bones, kept)
    return bones


def idle_root(model, kept, weight):
    """Whether the first bone moves no skin and all others hang on one right below it."""
    below = [node for node in kept[1:] if bone_above(model, node, kept) == kept[0]]
    return (
        weight[kept[0]] <= 0
        and len(below) == 1
        and bone_above(model, kept[0], kept) < 0
        and not any(bone_above(model, node, kept) < 0 for node in kept[1:])
    )


def used_weights(model):
    return {
        node: sum(part.weights[:, k].sum() for part in model.parts)
        for k, node in enumerate(model.bones)
    }


def carrying(model, weight):
    """Bones that move a part of the skin, or that lie above one that does."""
    result = set()
    for node in model.bones:
        if weight[node] <= 0:
            continue
        while node >= 0:
            result.add(node)
            node = model.parents[node]
    return result


def bone_above(model, node, kept):
    node = model.parents[node]
    while node >= 0 and node not in kept:
        node = model.parents[node]
    return node


def make_bones(model, kept):
    index = {node: k for k, node in enumerate(kept)}
    bones = []
    for node in kept:
        above = bone_above(model, node, index)
        world = model.worlds[node]
        bones.append(
            Bone(
                model.names[node],
                index[above] if above >= 0 else -1,
                world[:3, 3].copy(),
                rotation_of(world[:3, :3]),
                column=index[node],
            )
        )
    return bones


def move_weights(model, kept):
    """Reduces the columns of the weights to the bones that are kept.

    A vertex of a dropped bone keeps its place at rest, which needs its bound motion; so the skin is moved to
    the rest pose first if the two differ.
    """
    index = {node: k for k, node in enumerate(kept)}
    target = []
    for node in model.bones:
        at = node
        while at >= 0 and at not in index:
            at = model.parents[at]
        target.append(index.get(at))
    roots = [k for k, node in enumerate(kept) if bone_above(model, node, index) < 0]
    lost = [k for k, to in enumerate(target) if to is None]
    for k in lost:  # a dropped root: its weights go to the next root
        places = model.worlds[[kept[r] for r in roots]][:, :3, 3]
        away = ((places - model.worlds[model.bones[k]][:3, 3]) ** 2).sum(axis=1)
        target[k] = roots[int(np.argmin(away))]
    weight = used_weights(model)
    gone = [node for to, node in zip(target, model.bones) if kept[to] != node and weight[node] > 0]
    if gone and not np.allclose(model.bound, np.eye(4), atol=1e-9):
        for part in model.parts:
            part.vertices = model.rest(part)
        model.bound = np.tile(np.eye(4), (len(model.bones), 1, 1))
    own = {node: model.bound[k] for k, node in enumerate(model.bones)}
    for part in model.parts:
        reduced = np.zeros((len(part.vertices), len(kept)))
        for k, to in enumerate(target):
            reduced[:, to] += part.weights[:, k]
        part.weights = reduced
    model.bound = np.array([own[node] for node in kept])
    if gone:
        names = [model.names[node] for node in gone]
        model.notes.append(f"The weights of {listed(names)} went to the bones above them.")


def listed(names, most=8):
    shown = ", ".join(f"'{name}'" for name in names[:most])
    return shown + (f" and {len(names) - most} more" if len(names) > most else "")


def note_unused(model, unused):
    inner = [model.names[node] for node in unused]
    if inner:
        model.notes.append(f"Bones that move no part of the skin were left out: {listed(inner)}.")


def with_one_root(model, bones):
    """Joins several roots under one between them, and turns the root's axes to those of the world."""
    roots = [k for k, bone in enumerate(bones) if bone.parent < 0]
    if len(roots) > 1:
        names = [bones[k].name for k in roots]
        place = np.mean([bones[k].place for k in roots], axis=0)
        bones = [*bones, Bone(ROOT, -1, place, np.eye(3))]
        for k in roots:
            bones[k].parent = len(bones) - 1
        model.notes.append(
            f"{len(roots)} root bones were joined under a new one between them: {listed(names)}."
        )
    return bones


def breadth_first(bones):
    (root,) = [k for k, bone in enumerate(bones) if bone.parent < 0]
    below = {k: [] for k in range(len(bones))}
    for k, bone in enumerate(bones):
        if bone.parent >= 0:
            below[bone.parent].append(k)
    order = [root]
    for k in order:
        order += below[k]
    new = {k: i for i, k in enumerate(order)}
    result = [bones[k] for k in order]
    for bone in result:
        bone.parent = new[bone.parent] if bone.parent >= 0 else -1
        bone.children = []
    for i, bone in enumerate(result):
        if bone.parent >= 0:
            result[bone.parent].children.append(i)
    return result


def safe_name(name):
    """A name without characters that files and messages cannot show, and without the fork's word."""
    name = re.sub(r"[\x00-\x1f\x7f\ufffd/\\\"']+", "_", name).strip() or "bone"
    return re.sub("intermediate", "inter", name)


def give_names(model, bones):
    """Gives every bone a name of its own."""
    taken, changed = set(), []
    for bone in bones:
        name = safe_name(bone.name)
        number = 2
        while name in taken:
            name = f"{safe_name(bone.name)}-{number}"
            number += 1
        taken.add(name)
        if name != bone.name:
            changed.append(f"'{bone.name}' is '{name}'")
        bone.name = name
    if changed:
        shown = ", ".join(changed[:8]) + (
            f" and {len(changed) - 8} more" if len(changed) > 8 else ""
        )
        model.notes.append(f"Bones were renamed: {shown}.")
    within = [
        name
        for node, name in enumerate(model.names)
        if node not in model.bones and any(bone.name in name for bone in bones)
    ]
    if within:
        model.notes.append(
            f"Nodes whose names contain a bone's name would have become joints: {listed(within)}. "
            "The clean file has none of them."
        )


def other_name(wanted, bones):
    """A name that contains no bone's name, for a node that must not be a joint."""
    names = [bone.name for bone in bones]
    for name in [
        wanted,
        f"<{wanted}>",
        wanted.upper(),
        *(str(k) for k in range(10, 1000)),
        "~",
        "#",
    ]:
        if not any(bone in name for bone in names):
            return name
    raise BodyError(
        "every name that the scene's nodes could have contains a bone's name; rename the bones"
    )


def give_ends(model, bones, kept):
    """Ends for the leaves: a child node that the file has there, or twice the way to the skin's middle."""
    added = []
    for bone in bones:
        if bone.children:
            continue
        node = kept[bone.column] if bone.column is not None else None
        bone.end = end_in_file(model, node, kept, bone)
        if bone.end is None:
            bone.end = end_by_skin(model, bone, bones)
            added.append(bone.name)
    if added:
        model.notes.append(
            f"Bones without a child got an end node, from the skin that they move: {listed(added)}."
        )


def end_in_file(model, node, kept, bone):
    """The farthest node right below the bone that is no bone of the clean model and holds its own place."""
    if node is None:
        return None
    places = [
        model.worlds[k][:3, 3]
        for k, parent in enumerate(model.parents)
        if parent == node and k not in kept
    ]
    size = body_size(model)
    far = [p for p in places if 1e-3 * size < np.linalg.norm(p - bone.place) < 0.5 * size]
    return max(far, key=lambda p: np.linalg.norm(p - bone.place)) if far else None


def body_size(model):
    points = np.concatenate([model.rest(part) for part in model.parts])
    return float(np.linalg.norm(points.max(axis=0) - points.min(axis=0))) or 1.0


def end_by_skin(model, bone, bones):
    """The link's centre is half-way to the end, so the end makes it the middle of the skin's area."""
    size = body_size(model)
    total, middle = 0.0, np.zeros(3)
    for part in model.parts:
        rest = model.rest(part)
        own = part.weights[:, bone.column][part.faces].mean(axis=1)
        a, b, c = (rest[part.faces[:, k]] for k in range(3))
        area = own * 0.5 * np.linalg.norm(np.cross(b - a, c - a), axis=1)
        total += area.sum()
        middle += (area[:, None] * (a + b + c) / 3).sum(axis=0)
    if total > 0:
        end = 2 * middle / total - bone.place
        if np.linalg.norm(end - bone.place) > 1e-3 * size:
            return end
    along = bone.place - bones[bone.parent].place if bone.parent >= 0 else np.array([size, 0, 0])
    length = np.linalg.norm(along)
    direction = along / length if length > 1e-6 * size else np.array([1.0, 0, 0])
    return bone.place + direction * max(0.25 * min(length, size), 0.02 * size)
