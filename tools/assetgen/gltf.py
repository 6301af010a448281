"""A boned, skinned mesh as glTF 2.0 binary."""

import numpy as np
import pygltflib as gl

from .skeleton import SCENE_NODE, SKIN_NODE


class BufferBuilder:
    """Collects arrays in the file's binary chunk, each with its view and accessor."""

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


def skin_arrays(weights):
    """Joints and weights (n x 4 each) of the four heaviest bones of dense weights (n x bones)."""
    order = np.argsort(-weights, axis=1, kind="stable")[:, :4]
    heaviest = np.take_along_axis(weights, order, axis=1)
    joints = np.zeros((len(weights), 4), dtype=np.uint16)
    values = np.zeros((len(weights), 4), dtype=np.float32)
    joints[:, : order.shape[1]] = np.where(heaviest > 0.0, order, 0)
    values[:, : order.shape[1]] = heaviest
    return joints, values


def inverse_bind_matrices(tree):
    """Inverses of the bones' world transforms (bones x 16), column by column; all translations."""
    bones = tree.bones()
    matrices = np.zeros((len(bones), 16), dtype=np.float32)
    matrices[:, [0, 5, 10, 15]] = 1.0
    matrices[:, 12:15] = -tree.points[bones]
    return matrices + 0.0  # no negative zeros


FIRST_NODE = 2  # node 0 is the identity scene node, node 1 the skin, then come bones and ends


def scene_nodes(tree):
    nodes = [
        gl.Node(name=SCENE_NODE, children=[1, FIRST_NODE]),
        gl.Node(name=SKIN_NODE, mesh=0, skin=0),
    ]
    for k, (node, point) in enumerate(zip(tree.nodes, tree.points)):
        above = tree.points[node.parent] if node.parent >= 0 else np.zeros(3)
        children = [FIRST_NODE + i for i, other in enumerate(tree.nodes) if other.parent == k]
        nodes.append(
            gl.Node(name=node.name, translation=(point - above).tolist(), children=children)
        )
    return nodes


def primitive(buffer, mesh, index, weights):
    """The faces of one part with copies of the vertices that they use."""
    part = mesh.parts[index]
    used, faces = np.unique(mesh.faces[part.faces], return_inverse=True)
    joints, values = skin_arrays(weights[used])
    vertex = gl.ARRAY_BUFFER
    positions = mesh.vertices[used].astype(np.float32)
    normals = mesh.normals[used].astype(np.float32)
    attributes = gl.Attributes(
        POSITION=buffer.add(positions, gl.VEC3, gl.FLOAT, vertex, bounds=True),
        NORMAL=buffer.add(normals, gl.VEC3, gl.FLOAT, vertex),
        JOINTS_0=buffer.add(joints, gl.VEC4, gl.UNSIGNED_SHORT, vertex),
        WEIGHTS_0=buffer.add(values, gl.VEC4, gl.FLOAT, vertex),
    )
    indices = faces.astype(np.uint32).reshape(-1, 1)
    indices = buffer.add(indices, gl.SCALAR, gl.UNSIGNED_INT, gl.ELEMENT_ARRAY_BUFFER)
    return gl.Primitive(attributes=attributes, indices=indices, material=index)


def material(part):
    surface = gl.PbrMetallicRoughness(
        baseColorFactor=list(part.colour), metallicFactor=0.0, roughnessFactor=0.8
    )
    return gl.Material(name=part.name, pbrMetallicRoughness=surface)


def glb_bytes(mesh, tree, weights):
    """The whole file; weights (vertices x bones) bind the vertices to the tree's bones."""
    buffer = BufferBuilder()
    primitives = [primitive(buffer, mesh, k, weights) for k in range(len(mesh.parts))]
    bind = buffer.add(inverse_bind_matrices(tree), gl.MAT4, gl.FLOAT)
    bones = [FIRST_NODE + k for k in tree.bones()]

    model = gl.GLTF2(
        asset=gl.Asset(version="2.0", generator="drelt make_assets"),
        scene=0,
        scenes=[gl.Scene(nodes=[0])],
        nodes=scene_nodes(tree),
        meshes=[gl.Mesh(name="surface", primitives=primitives)],
        materials=[material(part) for part in mesh.parts],
        skins=[gl.Skin(inverseBindMatrices=bind, joints=bones, skeleton=bones[0])],
        accessors=buffer.accessors,
        bufferViews=buffer.views,
        buffers=[gl.Buffer(byteLength=len(buffer.data))],
    )
    model.set_binary_blob(buffer.data)
    return b"".join(model.save_to_bytes())
