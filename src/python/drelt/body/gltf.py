"""glTF 2.0 files: writes skinned meshes, and mends skins without inverse bind matrices.

The writer makes one buffer, one skin and one mesh node per part. The mender gives a skin that lacks
inverse bind matrices those of its nodes' rest pose, because importers read behind an array without them.
"""

import base64
import json
import struct
from pathlib import Path
from urllib.parse import unquote

import numpy as np

MAGIC, VERSION = b"glTF", 2
JSON_CHUNK, BINARY_CHUNK = 0x4E4F534A, 0x004E4942
FLOAT, UNSIGNED_SHORT, UNSIGNED_INT = 5126, 5123, 5125
VERTICES, INDICES = 34962, 34963  # targets of buffer views
KINDS = {1: "SCALAR", 3: "VEC3", 4: "VEC4", 16: "MAT4"}
BONES_PER_VERTEX = 4


class Buffer:
    """Arrays in one binary chunk, each with its view and accessor."""

    def __init__(self):
        self.data, self.views, self.accessors = b"", [], []

    def add(self, array, component, target=None, bounds=False):
        """Appends an array (count x components) and returns the index of its accessor."""
        raw = np.ascontiguousarray(array).tobytes()
        view = {"buffer": 0, "byteOffset": len(self.data), "byteLength": len(raw)}
        if target is not None:
            view["target"] = target
        accessor = {
            "bufferView": len(self.views),
            "componentType": component,
            "count": len(array),
            "type": KINDS[array.shape[1]],
        }
        if bounds:
            accessor["min"] = [float(x) for x in array.min(axis=0)]
            accessor["max"] = [float(x) for x in array.max(axis=0)]
        self.views.append(view)
        self.accessors.append(accessor)
        self.data += raw + bytes(-len(raw) % 4)
        return len(self.accessors) - 1


def heaviest(weights):
    """Joints and weights (n x 4 each) of the four heaviest bones of dense weights, which add up to 1."""
    order = np.argsort(-weights, axis=1, kind="stable")[:, :BONES_PER_VERTEX]
    values = np.take_along_axis(weights, order, axis=1)
    total = values.sum(axis=1, keepdims=True)
    values = np.divide(values, total, out=np.zeros_like(values), where=total > 0)
    joints = np.zeros((len(weights), BONES_PER_VERTEX), dtype=np.uint16)
    shares = np.zeros((len(weights), BONES_PER_VERTEX), dtype=np.float32)
    joints[:, : order.shape[1]] = np.where(values > 0, order, 0)
    shares[:, : order.shape[1]] = values
    return joints, shares


def pack(content, data):
    """The bytes of a .glb file."""
    text = json.dumps(content, separators=(",", ":")).encode()
    text += b" " * (-len(text) % 4)
    data += bytes(-len(data) % 4)
    length = 12 + 8 + len(text) + 8 + len(data)
    return (
        struct.pack("<4sII", MAGIC, VERSION, length)
        + struct.pack("<II", len(text), JSON_CHUNK)
        + text
        + struct.pack("<II", len(data), BINARY_CHUNK)
        + data
    )


def glb_bytes(nodes, parts, inverse_bind, bones):
    """A whole file. The first node is the scene's root.

    nodes: dicts of name, parent (index, -1 for the root) and matrix (4 x 4, rigid, to the parent).
    parts: dicts of node (index), name, colour (4), vertices, normals, faces and weights (n x bones).
    inverse_bind: one 4 x 4 matrix for each index of a node in bones.
    """
    buffer = Buffer()
    listed = [{"name": node["name"]} for node in nodes]
    for k, node in enumerate(nodes):
        if not np.array_equal(node["matrix"], np.eye(4)):
            listed[k]["matrix"] = [float(x) for x in np.asarray(node["matrix"]).T.ravel()]
        if node["parent"] >= 0:
            listed[node["parent"]].setdefault("children", []).append(k)
    meshes, materials = [], []
    for part in parts:
        joints, shares = heaviest(part["weights"])
        attributes = {
            "POSITION": buffer.add(part["vertices"].astype("<f4"), FLOAT, VERTICES, bounds=True),
            "NORMAL": buffer.add(part["normals"].astype("<f4"), FLOAT, VERTICES),
            "JOINTS_0": buffer.add(joints.astype("<u2"), UNSIGNED_SHORT, VERTICES),
            "WEIGHTS_0": buffer.add(shares.astype("<f4"), FLOAT, VERTICES),
        }
        indices = part["faces"].astype("<u4").reshape(-1, 1)
        primitive = {
            "attributes": attributes,
            "indices": buffer.add(indices, UNSIGNED_INT, INDICES),
            "material": len(materials),
        }
        listed[part["node"]].update(mesh=len(meshes), skin=0)
        meshes.append({"name": part["name"], "primitives": [primitive]})
        surface = {"baseColorFactor": [float(x) for x in part["colour"]], "metallicFactor": 0.0}
        materials.append({"name": part["name"], "pbrMetallicRoughness": surface})
    matrices = np.array([matrix.T.ravel() for matrix in inverse_bind]).astype("<f4")
    skin = {"inverseBindMatrices": buffer.add(matrices, FLOAT), "joints": list(bones)}
    content = {
        "asset": {"version": "2.0", "generator": "drelt.body"},
        "scene": 0,
        "scenes": [{"nodes": [0]}],
        "nodes": listed,
        "meshes": meshes,
        "materials": materials,
        "skins": [skin],
        "accessors": buffer.accessors,
        "bufferViews": buffer.views,
        "buffers": [{"byteLength": len(buffer.data)}],
    }
    return pack(content, buffer.data)


def read(path):
    """The JSON content and the binary chunk of a .gltf or .glb file; None for other files."""
    if Path(path).suffix.lower() not in (".gltf", ".glb"):
        return None
    raw = Path(path).read_bytes()
    try:
        if raw[:4] != MAGIC:
            return json.loads(raw.decode("utf-8-sig")), b""
        (length,) = struct.unpack_from("<I", raw, 12)
        content = json.loads(raw[20 : 20 + length].decode())
        rest = raw[20 + length :]
        size = struct.unpack_from("<I", rest)[0] if len(rest) >= 8 else 0
        return content, rest[8 : 8 + size]
    except (ValueError, struct.error, RecursionError):
        return None  # the importer says what is wrong


def local_matrix(node):
    if "matrix" in node:
        return np.array(node["matrix"], dtype=float).reshape(4, 4).T
    x, y, z, w = node.get("rotation", (0, 0, 0, 1))
    turn = np.array(
        [
            [1 - 2 * (y * y + z * z), 2 * (x * y - z * w), 2 * (x * z + y * w)],
            [2 * (x * y + z * w), 1 - 2 * (x * x + z * z), 2 * (y * z - x * w)],
            [2 * (x * z - y * w), 2 * (y * z + x * w), 1 - 2 * (x * x + y * y)],
        ]
    )
    matrix = np.eye(4)
    matrix[:3, :3] = turn * np.array(node.get("scale", (1, 1, 1)), dtype=float)
    matrix[:3, 3] = node.get("translation", (0, 0, 0))
    return matrix


def world_matrices(nodes):
    """World transforms of all nodes; nodes below themselves get none."""
    parents = {child: k for k, node in enumerate(nodes) for child in node.get("children", ())}
    known = {}
    for k in range(len(nodes)):
        chain, at = [], k
        while at is not None and at not in known and at not in chain:
            chain.append(at)
            at = parents.get(at)
        for node in reversed(chain):
            above = known.get(parents.get(node), np.eye(4))
            known[node] = above @ local_matrix(nodes[node])
    return known


def mended(path):
    """A .glb file's bytes with the missing inverse bind matrices; None if none are missing.

    The skin is taken to lie in its rest pose as its mesh node places it.
    """
    found = read(path)
    if found is None:
        return None
    content, binary = found
    try:
        return mend(content, binary, Path(path).parent)
    except (KeyError, IndexError, TypeError, ValueError, AttributeError, OSError):
        return None  # the importer and its checks say what is wrong


def mend(content, binary, folder):
    nodes, skins = content.get("nodes", []), content.get("skins", [])
    missing = [k for k, skin in enumerate(skins) if "inverseBindMatrices" not in skin]
    if not missing:
        return None
    data = embed(content, binary, folder)
    worlds = world_matrices(nodes)
    for k in missing:
        holders = [n for n, node in enumerate(nodes) if node.get("skin") == k]
        held = worlds[holders[0]] if holders else np.eye(4)
        joints = skins[k]["joints"]
        matrices = [np.linalg.solve(worlds[joint], held) for joint in joints]
        raw = np.array([m.T.ravel() for m in matrices]).astype("<f4").tobytes()
        views, accessors = (
            content.setdefault("bufferViews", []),
            content.setdefault("accessors", []),
        )
        skins[k]["inverseBindMatrices"] = len(accessors)
        accessors.append(
            {
                "bufferView": len(views),
                "componentType": FLOAT,
                "count": len(joints),
                "type": "MAT4",
            }
        )
        views.append({"buffer": 0, "byteOffset": len(data), "byteLength": len(raw)})
        data += raw
    content["buffers"] = [{"byteLength": len(data)}]
    return pack(content, data)


def embed(content, binary, folder):
    """All buffers of a file as one, with the views moved; drops pictures, which bodies do not use."""
    data, starts = b"", []
    for buffer in content.get("buffers", []):
        uri = buffer.get("uri")
        if uri is None:
            own = binary
        elif uri.startswith("data:"):
            own = base64.b64decode(uri.partition(",")[2])
        else:
            own = (folder / unquote(uri)).read_bytes()
        starts.append(len(data))
        data += own + bytes(-len(own) % 4)
    for view in content.get("bufferViews", []):
        view["byteOffset"] = view.get("byteOffset", 0) + starts[view["buffer"]]
        view["buffer"] = 0
    for key in ("images", "textures", "samplers"):
        content.pop(key, None)
    for material in content.get("materials", []):
        colour = material.get("pbrMetallicRoughness", {}).get("baseColorFactor", [0.8, 0.8, 0.8, 1])
        name = material.get("name", "")
        material.clear()
        material.update(name=name, pbrMetallicRoughness={"baseColorFactor": colour})
    return data
