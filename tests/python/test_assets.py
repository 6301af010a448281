"""The bundled meshes and descriptions: reproducible, closed, and boned as the loader needs them."""

import json
import math
import subprocess
import sys
from collections import Counter
from pathlib import Path

import numpy as np
import pygltflib
import pytest

ROOT = Path(__file__).resolve().parents[2]
ASSETS = ROOT / "assets"
DESCRIPTIONS = sorted(path.name for path in ASSETS.glob("*.json"))
MODELS = sorted(path.name for path in ASSETS.glob("*.glb"))
DX = 0.02 / 16  # node spacing of the committed files, m

# volume (m^3) and area (m^2) of the smooth bodies
SHRUNK = 0.01 - 0.85 * DX
LENGTH, THICKNESS, WIDTH = 56 * DX, DX, 24 * DX
BODIES = {
    "sphere.glb": (4 / 3 * math.pi * 0.01**3, 4 * math.pi * 0.01**2),
    "sphere_retracted.glb": (4 / 3 * math.pi * SHRUNK**3, 4 * math.pi * SHRUNK**2),
    "plate.glb": (
        LENGTH * THICKNESS * WIDTH,
        2 * (LENGTH * THICKNESS + THICKNESS * WIDTH + WIDTH * LENGTH),
    ),
}

COMPONENTS = {"SCALAR": 1, "VEC3": 3, "VEC4": 4, "MAT4": 16}
TYPES = {pygltflib.FLOAT: "<f4", pygltflib.UNSIGNED_SHORT: "<u2", pygltflib.UNSIGNED_INT: "<u4"}


def make_assets(out, *arguments):
    command = [sys.executable, str(ROOT / "tools/make_assets.py"), "--out", str(out), *arguments]
    return subprocess.run(command, capture_output=True, text=True, check=False)


class Model:
    """A glTF file with its arrays decoded."""

    def __init__(self, path):
        self.gltf = pygltflib.GLTF2().load(str(path))
        (mesh,) = self.gltf.meshes
        (primitive,) = mesh.primitives
        attributes = primitive.attributes
        self.vertices = self.array(attributes.POSITION).astype(float)
        self.normals = self.array(attributes.NORMAL).astype(float)
        self.joints = self.array(attributes.JOINTS_0)
        self.weights = self.array(attributes.WEIGHTS_0)
        self.faces = self.array(primitive.indices).reshape(-1, 3).astype(int)
        (self.skin,) = self.gltf.skins
        self.parents = {
            child: k for k, node in enumerate(self.gltf.nodes) for child in node.children
        }

    def array(self, index):
        accessor = self.gltf.accessors[index]
        view = self.gltf.bufferViews[accessor.bufferView]
        width = COMPONENTS[accessor.type]
        return np.frombuffer(
            self.gltf.binary_blob(),
            dtype=TYPES[accessor.componentType],
            count=accessor.count * width,
            offset=view.byteOffset,
        ).reshape(accessor.count, width)

    def world(self, index):
        """World transform (4 x 4) of a node; the files hold translations only."""
        node = self.gltf.nodes[index]
        assert node.rotation is None and node.scale is None and node.matrix is None
        local = np.eye(4)
        local[:3, 3] = node.translation or (0, 0, 0)
        return self.world(self.parents[index]) @ local if index in self.parents else local


def test_regenerating_gives_the_committed_bytes(tmp_path):
    result = make_assets(tmp_path)
    assert result.returncode == 0, result.stderr
    written = {path.name: path.read_bytes() for path in tmp_path.iterdir()}
    committed = {path.name: path.read_bytes() for path in ASSETS.glob("*.[gj]*")}
    assert written.keys() == committed.keys()
    assert [name for name in written if written[name] != committed[name]] == []


@pytest.mark.parametrize("name", MODELS)
def test_surface_is_closed_with_the_size_of_the_body(name):
    model = Model(ASSETS / name)
    edges = Counter()
    for a, b, c in model.faces.tolist():
        edges.update([(a, b), (b, c), (c, a)])
    assert all(n == 1 and edges[b, a] == 1 for (a, b), n in list(edges.items()))
    assert len(np.unique(model.vertices, axis=0)) == len(model.vertices)

    a, b, c = (model.vertices[model.faces[:, k]] for k in range(3))
    cross = np.cross(b - a, c - a)
    volume, area = BODIES[name]
    assert (a * np.cross(b, c)).sum() / 6 == pytest.approx(volume, rel=1e-6)
    assert np.linalg.norm(cross, axis=1).sum() / 2 == pytest.approx(area, rel=2e-3)

    np.testing.assert_allclose(np.linalg.norm(model.normals, axis=1), 1.0, atol=1e-6)
    for k in range(3):
        assert ((model.normals[model.faces[:, k]] * cross).sum(axis=1) > 0).all()


@pytest.mark.parametrize("name", MODELS)
def test_bones_carry_the_skin(name):
    model = Model(ASSETS / name)
    nodes = model.gltf.nodes
    bones = model.skin.joints
    np.testing.assert_array_equal(model.weights.sum(axis=1), 1.0)
    assert model.joints.max() < len(bones)
    # rigid halves of equal size; the vertices on the border go with the first link
    assert set(model.joints[model.vertices[:, 0] <= 0, 0]) == {0}
    assert set(model.joints[model.vertices[:, 0] > 0, 0]) == {1}

    inverse = model.array(model.skin.inverseBindMatrices).reshape(-1, 4, 4).transpose(0, 2, 1)
    for bone, matrix in zip(bones, inverse):
        np.testing.assert_allclose(matrix @ model.world(bone), np.eye(4), atol=1e-9)

    # no face centre on the border of the links, where rounding would choose
    centres = model.vertices[model.faces].mean(axis=1)
    assert abs(centres[:, 0]).min() > 0.01 * abs(centres[:, 0]).max()
    assert (centres[:, 0] > 0).sum() * 2 == len(centres)

    root = bones[0]
    above = [k for k in range(len(nodes)) if k not in bones and nodes[k].name != "end"]
    assert all(nodes[k].translation is None for k in above)
    assert model.parents[root] in above and model.gltf.scenes[0].nodes == [model.parents[root]]
    assert [nodes[k].name for k in nodes[bones[-1]].children] == ["end"]
    names = [node.name for node in nodes]
    for bone in bones:
        assert [n for n in names if nodes[bone].name in n] == [nodes[bone].name]


@pytest.mark.parametrize("name", DESCRIPTIONS)
def test_description_covers_every_joint_and_link(name):
    text = json.loads((ASSETS / name).read_text())
    model = Model(ROOT / text["model_file"])
    bones = [model.gltf.nodes[k].name for k in model.skin.joints]
    assert list(text["joints"]) == [*bones, "end"]
    assert list(text["links"]) == [f"[link]{bone}" for bone in bones]
    for joint in text["joints"].values():
        assert joint.keys() == {
            *("type", "actuator", "axis", "springStiffness"),
            *("useLimits", "limit", "useDynamcis", "dynamics"),
        }
        assert joint["dynamics"].keys() == {"damping", "friction"}
        assert joint["limit"].keys() == {"effort", "velocity", "lower", "upper"}
        assert joint["limit"]["velocity"] > 0
    for key, link in text["links"].items():
        assert link.keys() == {"isIntermediate", "mass", "name", "size", "radius "}
        assert link["name"] == key
    assert text["baseLinkName"] in text["links"]
    assert text["baseFrameName"] in ("", "[link]bone_00")


def test_sphere_has_the_excess_mass_and_inertia_of_a_ball():
    text = json.loads((ASSETS / "sphere.json").read_text())
    links = list(text["links"].values())
    mass = sum(link["mass"] for link in links)
    assert mass == pytest.approx(1000 * math.pi / 6 * 0.02**3, rel=1e-8)
    ball = 0.4 * mass * 0.01**2
    offset = 0.02 / 8  # of the link centres from the sphere's
    along = across = 0.0
    for link in links:
        a, b, c = (0.5 * d for d in link["size"])
        along += link["mass"] / 5 * (b * b + c * c)
        across += link["mass"] / 5 * (a * a + b * b) + link["mass"] * offset**2
    assert (along, across) == pytest.approx((ball, ball), rel=1e-7)


@pytest.mark.parametrize(
    ("arguments", "message"),
    [
        (["sphere", "--dx", "0.0061"], "stable above"),
        (["plate", "sphere", "--samples", "137"], "without candidates"),
        (["sphere_retracted", "--retraction", "8"], "encloses no volume"),
        (["sphere", "--dx", "nan"], "positive number of m"),
        (["fish"], "no asset fish; there are sphere"),
    ],
)
def test_unusable_assets_are_refused_before_anything_is_written(tmp_path, arguments, message):
    result = make_assets(tmp_path / "out", *arguments)
    assert result.returncode == 1
    assert message in result.stderr and "nothing was written" in result.stderr
    assert not (tmp_path / "out").exists()


def test_sphere_is_heavy_enough_at_eight_nodes_a_diameter(tmp_path):
    result = make_assets(tmp_path, "sphere", "--dx", "0.0025", "--samples", "200")
    assert result.returncode == 0, result.stderr
    assert sorted(path.name for path in tmp_path.iterdir()) == ["sphere.glb", "sphere.json"]
