"""A boned, skinned mesh as glTF 2.0 binary."""

import numpy as np
import pygltflib as gl

from .skeleton import END_NODE, SCENE_NODE, SKIN_NODE


class BufferBuilder:
    """Collects arrays into the one binary chunk, each with its view and accessor."""

    def __init__(self):
        self.data = b""
        self.views = []
        self.accessors = []

    def add(self, array, kind, component, target=None, bounds=False):
        """Appends an array (count x components) and returns the index of its accessor."""
        raw = array.tobytes()
        self.views.append(
            gl.BufferView(buffer=0, byteOffset=len(self.data), byteLength=len(raw), target=target)
        )
        accessor = gl.Accessor(
            bufferView=len(self.views) - 1, componentType=component, count=len(array), type=kind
        )
        if bounds:
            accessor.min = array.min(axis=0).tolist()
            accessor.max = array.max(axis=0).tolist()
        self.accessors.append(accessor)
        self.data += raw + bytes(-len(raw) % 4)
        return len(self.accessors) - 1


def skin_arrays(mesh, chain):
    """Joints and weights (n x 4 each): every vertex rigidly on its nearest link."""
    joints = np.zeros((len(mesh.vertices), 4), dtype=np.uint16)
    weights = np.zeros((len(mesh.vertices), 4), dtype=np.float32)
    joints[:, 0] = chain.nearest_link(mesh.vertices)
    weights[:, 0] = 1.0
    return joints, weights


def inverse_bind_matrices(chain):
    """Inverses of the bones' world transforms, pure translations; columns first (bones x 16)."""
    matrices = np.zeros((len(chain.joints), 16), dtype=np.float32)
    matrices[:, [0, 5, 10, 15]] = 1.0
    matrices[:, 12:15] = -chain.points[:-1]
    return matrices + 0.0  # no negative zeros


def scene_nodes(chain):
    """Node 0 is the identity scene node, node 1 the skin, then come the bones and the end node."""
    first = 2
    nodes = [
        gl.Node(name=SCENE_NODE, children=[1, first]),
        gl.Node(name=SKIN_NODE, mesh=0, skin=0),
    ]
    parent = np.zeros(3)
    names = [*chain.bone_names(), END_NODE]
    for k, (name, point) in enumerate(zip(names, chain.points)):
        children = [first + k + 1] if k + 1 < len(names) else []
        nodes.append(gl.Node(name=name, translation=(point - parent).tolist(), children=children))
        parent = point
    return nodes, list(range(first, first + len(chain.joints)))


def glb_bytes(mesh, chain):
    """The whole file."""
    buffer = BufferBuilder()
    joints, weights = skin_arrays(mesh, chain)
    positions = mesh.vertices.astype(np.float32)
    normals = mesh.normals.astype(np.float32)
    vertex = gl.ARRAY_BUFFER
    attributes = gl.Attributes(
        POSITION=buffer.add(positions, gl.VEC3, gl.FLOAT, vertex, bounds=True),
        NORMAL=buffer.add(normals, gl.VEC3, gl.FLOAT, vertex),
        JOINTS_0=buffer.add(joints, gl.VEC4, gl.UNSIGNED_SHORT, vertex),
        WEIGHTS_0=buffer.add(weights, gl.VEC4, gl.FLOAT, vertex),
    )
    indices = mesh.faces.astype(np.uint32).reshape(-1, 1)
    indices = buffer.add(indices, gl.SCALAR, gl.UNSIGNED_INT, gl.ELEMENT_ARRAY_BUFFER)
    bind = buffer.add(inverse_bind_matrices(chain), gl.MAT4, gl.FLOAT)
    nodes, bones = scene_nodes(chain)

    model = gl.GLTF2(
        asset=gl.Asset(version="2.0", generator="drelt make_assets"),
        scene=0,
        scenes=[gl.Scene(nodes=[0])],
        nodes=nodes,
        meshes=[
            gl.Mesh(
                name="surface",
                primitives=[gl.Primitive(attributes=attributes, indices=indices, material=0)],
            )
        ],
        materials=[
            gl.Material(
                name="surface",
                pbrMetallicRoughness=gl.PbrMetallicRoughness(
                    baseColorFactor=[0.8, 0.8, 0.8, 1.0], metallicFactor=0.0, roughnessFactor=0.8
                ),
            )
        ],
        skins=[gl.Skin(inverseBindMatrices=bind, joints=bones, skeleton=bones[0])],
        accessors=buffer.accessors,
        bufferViews=buffer.views,
        buffers=[gl.Buffer(byteLength=len(buffer.data))],
    )
    model.set_binary_blob(buffer.data)
    return b"".join(model.save_to_bytes())
