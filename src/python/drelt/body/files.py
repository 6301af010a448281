"""The contents of the files of an imported body: clean mesh and description."""

import json

import numpy as np

from .gltf import glb_bytes
from .joints import JointChoice
from .rig import other_name
from .surface import site_normals


def local(parent_place, parent_turn, place, turn):
    matrix = np.eye(4)
    matrix[:3, :3] = parent_turn.T @ turn
    matrix[:3, 3] = parent_turn.T @ (place - parent_place)
    return matrix


def mesh_file(body):
    """The bytes of the clean mesh: a scene with one node per part, then the bones, then their ends."""
    bones, _surface = body.bones, body.surface
    nodes = [{"name": other_name("scene", bones), "parent": -1, "matrix": np.eye(4)}]
    parts = list(parts_of(body))
    for k, part in enumerate(parts):
        label = other_name(f"skin{k}" if k else "skin", bones)
        part["node"] = len(nodes)
        nodes.append({"name": label, "parent": 0, "matrix": np.eye(4)})
    first = len(nodes)
    for bone in bones:
        above = bones[bone.parent] if bone.parent >= 0 else None
        place, turn = (above.place, above.turn) if above else (np.zeros(3), np.eye(3))
        parent = first + bone.parent if above else 0
        nodes.append(
            {
                "name": bone.name,
                "parent": parent,
                "matrix": local(place, turn, bone.place, bone.turn),
            }
        )
    names = {node["name"] for node in nodes}
    for k, bone in enumerate(bones):
        if bone.end is None:
            continue
        name = f"{bone.name}_end"
        while name in names:
            name += "_"
        names.add(name)
        matrix = local(bone.place, bone.turn, bone.end, bone.turn)
        nodes.append({"name": name, "parent": first + k, "matrix": matrix})
    inverse = []
    for bone in bones:
        world = local(np.zeros(3), np.eye(3), bone.place, bone.turn)
        bound = body.bound[bone.column] if bone.column is not None else np.eye(4)
        inverse.append(np.linalg.inv(world) @ bound)
    return glb_bytes(nodes, parts, inverse, range(first, first + len(bones)))


def parts_of(body):
    """One part for each material, or one for all."""
    surface, model = body.surface, body.model
    normals = site_normals(surface)
    columns = [bone.column for bone in body.bones]
    weights = np.column_stack(
        [
            surface.weights[:, c] if c is not None else np.zeros(len(surface.weights))
            for c in columns
        ]
    )
    groups = {}
    for k, part in enumerate(model.parts):
        key = "" if body.options["merge"] else (part.material, part.colour)
        groups.setdefault(key, []).append(k)
    for members in groups.values():
        own = surface.faces[np.isin(surface.part, members)]
        if not len(own):
            continue
        used, faces = np.unique(own, return_inverse=True)
        source = model.parts[members[0]]
        yield {
            "name": source.material or source.name,
            "colour": source.colour,
            "vertices": surface.vertices[used],
            "normals": normals[used],
            "faces": faces.reshape(-1, 3),
            "weights": weights[used],
        }


def bone_motions(body):
    return np.array(
        [body.bound[bone.column] if bone.column is not None else np.eye(4) for bone in body.bones]
    )


def description_of(body, model_file):
    chosen = {bone.name: choice for bone, choice in zip(body.bones, body.joints)}
    still = JointChoice("fixed", "passive")  # at forks and at ends of bones
    return {
        "model_file": str(model_file),
        "baseLinkName": body.base,
        "baseFrameName": body.frame,
        "baseLinkFwd": [1.0, 0.0, 0.0],
        "baseLinkRight": [0.0, 0.0, 1.0],
        "baseLinkUp": [0.0, 1.0, 0.0],
        "joints": {
            record["name"]: chosen.get(record["name"], still).description()
            for record in body.joint_records
        },
        "links": {link.key: link.description() for link in body.links},
    }


def write_description(body, file, model_file):
    text = json.dumps(description_of(body, model_file), indent=2) + "\n"
    file.write_text(text, encoding="utf-8")
