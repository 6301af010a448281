"""The bundled meshes and descriptions are reproducible, closed, and boned as the loader needs them."""

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
sys.path.insert(0, str(ROOT / "tools"))

# these modules lie beside the generator
from assetgen.checks import check  # noqa: E402
from assetgen.mesh import AssetError  # noqa: E402
from assetgen.skeleton import derive  # noqa: E402
from assetgen.swimmer import swimmer_assets  # noqa: E402

ASSETS = ROOT / "assets"
DESCRIPTIONS = sorted(path.name for path in ASSETS.glob("*.json"))
MODELS = sorted(path.name for path in ASSETS.glob("*.glb"))
DX = 0.02 / 16  # node spacing of the committed files, m

RIGID = ["plate.glb", "sphere.glb", "sphere_retracted.glb"]
SWIMMERS = ["eel.glb", "swimmer.glb"]

# volume (m^3) and area (m^2) of the smooth bodies, and the relative error of the triangles
SHRUNK = 0.01 - 0.85 * 0.02 / 12
LENGTH, THICKNESS, WIDTH = 56 * DX, DX, 24 * DX
BODIES = {
    "sphere.glb": (4 / 3 * math.pi * 0.01**3, 4 * math.pi * 0.01**2, 1e-6, 2e-3),
    "sphere_retracted.glb": (4 / 3 * math.pi * SHRUNK**3, 4 * math.pi * SHRUNK**2, 1e-6, 2e-3),
    "plate.glb": (
        LENGTH * THICKNESS * WIDTH,
        2 * (LENGTH * THICKNESS + THICKNESS * WIDTH + WIDTH * LENGTH),
        *(1e-6, 1e-6),
    ),
    # published: Kern and Koumoutsakos, 2006
    "eel.glb": (0.005933 * 0.2**3, 0.3039 * 0.2**2, 0.015, 3e-3),
    # by quadrature over the sections; the fin counts as twice the area of its silhouette
    "swimmer.glb": (0.004744 * 0.2**3, 0.2530 * 0.2**2, 0.02, 0.02),
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
        parts = [self.part(primitive) for primitive in mesh.primitives]
        vertices, normals, self.joints, self.weights = map(
            np.concatenate, zip(*(part[:4] for part in parts))
        )
        self.vertices, self.normals = vertices.astype(float), normals.astype(float)
        starts = np.cumsum([0] + [len(part[0]) for part in parts])
        self.part_faces = [part[4] + start for part, start in zip(parts, starts)]
        self.faces = np.concatenate(self.part_faces)
        (self.skin,) = self.gltf.skins
        self.parents = {
            child: k for k, node in enumerate(self.gltf.nodes) for child in node.children
        }

    def part(self, primitive):
        """Positions, normals, joints, weights and faces of a primitive."""
        at = primitive.attributes
        arrays = map(self.array, (at.POSITION, at.NORMAL, at.JOINTS_0, at.WEIGHTS_0))
        return (*arrays, self.array(primitive.indices).reshape(-1, 3).astype(int))

    def areas(self, faces):
        a, b, c = (self.vertices[faces[:, k]] for k in range(3))
        return np.linalg.norm(np.cross(b - a, c - a), axis=1) / 2

    def bones(self):
        return [self.gltf.nodes[k].name for k in self.skin.joints]

    def derived(self):
        """Joints and links that the simulator derives. The files list their nodes breadth first."""
        nodes = self.gltf.nodes
        parents = [self.parents.get(k, -1) for k in range(len(nodes))]
        assert parents == sorted(parents)
        return derive([node.name for node in nodes], parents, self.bones())

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
    # two parts of different material each have their own copy of the vertices on their seam
    places, joined = np.unique(model.vertices, axis=0, return_inverse=True)
    edges = Counter()
    for a, b, c in joined.ravel()[model.faces].tolist():
        edges.update([(a, b), (b, c), (c, a)])
    assert all(n == 1 and edges[b, a] == 1 for (a, b), n in list(edges.items()))
    if len(model.part_faces) == 1:
        assert len(places) == len(model.vertices)

    a, b, c = (model.vertices[model.faces[:, k]] for k in range(3))
    cross = np.cross(b - a, c - a)
    volume, area, near_volume, near_area = BODIES[name]
    assert (a * np.cross(b, c)).sum() / 6 == pytest.approx(volume, rel=near_volume)
    assert model.areas(model.faces).sum() == pytest.approx(area, rel=near_area)

    np.testing.assert_allclose(np.linalg.norm(model.normals, axis=1), 1.0, atol=1e-6)
    outwards = [((model.normals[model.faces[:, k]] * cross).sum(axis=1) > 0) for k in range(3)]
    # the notch of a forked fin is a saddle, where the two lobes' normals cancel
    assert np.count_nonzero(~np.array(outwards)) <= (8 if name == "swimmer.glb" else 0)


@pytest.mark.parametrize("name", MODELS)
def test_bones_are_as_the_loader_needs_them(name):
    model = Model(ASSETS / name)
    nodes = model.gltf.nodes
    bones = model.skin.joints
    np.testing.assert_allclose(model.weights.sum(axis=1), 1.0, atol=1e-6)
    assert model.joints.max() < len(bones)

    inverse = model.array(model.skin.inverseBindMatrices).reshape(-1, 4, 4).transpose(0, 2, 1)
    for bone, matrix in zip(bones, inverse):
        np.testing.assert_allclose(matrix @ model.world(bone), np.eye(4), atol=1e-8)

    root = bones[0]
    above = [k for k in range(len(nodes)) if k not in bones and model.parents.get(k) not in bones]
    assert all(nodes[k].translation is None for k in above)
    assert model.parents[root] in above and model.gltf.scenes[0].nodes == [model.parents[root]]
    assert all(nodes[bone].children for bone in bones)
    names = [node.name for node in nodes]
    for bone in bones:
        assert [n for n in names if nodes[bone].name in n] == [nodes[bone].name]


@pytest.mark.parametrize("name", RIGID)
def test_each_vertex_goes_rigidly_with_the_nearest_link(name):
    model = Model(ASSETS / name)
    np.testing.assert_array_equal(model.weights.sum(axis=1), 1.0)
    # the sphere's links meet in its middle, the plate's at a quarter of its length from the end
    half = model.vertices[:, 0].max()
    border = (half + 0.02 / 16) / 2 if name == "plate.glb" else 0.0
    # vertices on the border belong to the first link
    assert set(model.joints[model.vertices[:, 0] <= border, 0]) == {0}
    assert set(model.joints[model.vertices[:, 0] > border, 0]) == {1}
    # no face centre lies on the border of two links: there, rounding would choose the link
    centres = model.vertices[model.faces].mean(axis=1)
    assert abs(centres[:, 0] - border).min() > 0.001 * half


@pytest.mark.parametrize("name", SWIMMERS)
def test_swimmers_are_blended_and_mirrored(name):
    model = Model(ASSETS / name)
    assert 3000 <= len(model.faces) <= 10000
    # the mirror images, left to right and top to bottom, have the same vertices
    places = {tuple(place) for place in model.vertices.tolist()}
    for mirror in ((1, 1, -1), (1, -1, 1)):
        assert {tuple(p * s for p, s in zip(place, mirror)) for place in places} == places
    # weights change little along an edge, so that a small bend of a bone does not tear the skin
    dense = np.zeros((len(model.vertices), len(model.bones())))
    np.put_along_axis(dense, model.joints.astype(int), model.weights, axis=1)
    dense[:, 0] = 1 - dense[:, 1:].sum(axis=1)  # unused slots name bone 0
    edges = model.faces[:, [0, 1, 1, 2, 2, 0]].reshape(-1, 2)
    upper_to_lower = np.sign(model.vertices[edges, 1]).prod(axis=1) <= 0
    steps = abs(dense[edges[:, 0]] - dense[edges[:, 1]]).max(axis=1)
    assert steps[~upper_to_lower].max() < 0.45
    assert (np.count_nonzero(dense > 1e-6, axis=1) <= 2).all()


@pytest.mark.parametrize("name", SWIMMERS)
def test_sampler_finds_candidates_on_every_face(name):
    # a mesh gets its share of the samples, a face ten times its share of these, both rounded down
    model = Model(ASSETS / name)
    samples = {"eel.glb": 4000, "swimmer.glb": 2000}[name]
    areas = [model.areas(faces) for faces in model.part_faces]
    for own in areas:
        wanted = int(samples * own.sum() / sum(map(np.sum, areas)))
        candidates = np.floor(own / own.sum() * wanted * 10)
        assert candidates.min() >= 1
        assert candidates.sum() > 5 * wanted


def test_swimmer_shares_its_bones_between_two_meshes():
    model = Model(ASSETS / "swimmer.glb")
    (mesh,) = model.gltf.meshes
    assert [primitive.material for primitive in mesh.primitives] == [0, 1]
    names = [material.name for material in model.gltf.materials]
    assert names == ["body", "fin"]
    tree = model.derived()
    links = [link.name for link in tree.links]
    spine = [f"[link]spine_{k:02d}" for k in range(8)]
    assert links[:10] == ["[link]head", *spine, "[link]caudal::caudal_intermediate_0"]
    assert set(links[10:]) == {
        *("[link]caudal_intermediate_0", "[link]caudal_intermediate_1"),
        *("[link]lobe_upper", "[link]lobe_lower"),
    }


@pytest.mark.parametrize("name", ["swimmer", "eel"])
def test_markers_lie_on_the_first_mesh(name):
    markers = json.loads((ASSETS / f"{name}.json").read_text())["markers_placements"]
    model = Model(ASSETS / f"{name}.glb")
    first = model.vertices[np.unique(model.part_faces[0])]
    assert 3 <= len(markers) <= 6
    for marker in markers:
        assert np.linalg.norm(first - marker, axis=1).min() < 1e-8
    # the nose, and pairs of markers on the flanks
    assert markers[0] == [0.1, 0.0, 0.0]
    assert markers[2] == [markers[1][0], 0.0, -markers[1][2]]


CHAIN = (["scene", "skin", "a", "b", "end"], [-1, 0, 0, 2, 3], ["a", "b"])
FORK = (["scene", "x", "p", "q", "p_end", "q_end"], [-1, 0, 1, 1, 2, 3], ["x", "p", "q"])
TWICE = (
    ["r", "f", "g", "s", "u", "v", "w"],  # r forks into f and s, f's child g into u, v and w
    [-1, 0, 1, 0, 2, 2, 2],
    ["g", "r"],
)


@pytest.mark.parametrize(
    ("scene", "joints", "links"),
    [
        (CHAIN, ["a", "b", "end"], ["[link]a", "[link]b"]),
        # the end nodes' names contain p and q, and the names of x's intermediate nodes contain x
        (
            FORK,
            ["x", "x_intermediate_0", "x_intermediate_1", "p", "q", "p_end", "q_end"],
            [
                *("[link]x::x_intermediate_0", "[link]x_intermediate_0", "[link]x_intermediate_1"),
                *("[link]p", "[link]q"),
            ],
        ),
        # f is no bone. It is a joint because its parent is an intermediate node, whose name contains r
        (
            TWICE,
            [
                *("g", "u", "v", "w", *(f"g_intermediate_{k}" for k in range(3))),
                *("r", "f", "s", "r_intermediate_0", "r_intermediate_1"),
            ],
            [
                *("[link]g::g_intermediate_0", *(f"[link]g_intermediate_{k}" for k in range(3))),
                *("[link]r::r_intermediate_0", "[link]f"),
                *("[link]r_intermediate_0", "[link]r_intermediate_1"),
            ],
        ),
    ],
)
def test_derived_joints_and_links(scene, joints, links):
    tree = derive(*scene)
    assert sorted(tree.names[k] for k in tree.joints) == sorted(joints)
    assert sorted(link.name for link in tree.links) == sorted(links)
    intermediate = [link.name for link in tree.links if link.intermediate]
    assert intermediate == [name for name in links if "::" in name]


@pytest.mark.parametrize("name", DESCRIPTIONS)
def test_description_covers_every_joint_and_link(name):
    text = json.loads((ASSETS / name).read_text())
    tree = Model(ROOT / text["model_file"]).derived()
    assert list(text["joints"]) == [tree.names[k] for k in tree.joints]
    assert list(text["links"]) == [link.name for link in tree.links]
    for joint in text["joints"].values():
        assert joint.keys() == {
            *("type", "actuator", "axis", "springStiffness"),
            *("useLimits", "limit", "useDynamcis", "dynamics"),
        }
        assert joint["dynamics"].keys() == {"damping", "friction"}
        assert joint["limit"].keys() == {"effort", "velocity", "lower", "upper"}
        assert joint["limit"]["velocity"] > 0
    for link in tree.links:
        body = text["links"][link.name]
        assert body.keys() == {"isIntermediate", "mass", "name", "size", "radius "}
        assert body["name"] == link.name
        assert body["isIntermediate"] == link.intermediate
    assert text["baseLinkName"] in text["links"]
    assert text["baseFrameName"] in ("", *text["links"])


def test_sphere_has_the_excess_mass_and_inertia_of_a_ball():
    text = json.loads((ASSETS / "sphere.json").read_text())
    links = list(text["links"].values())
    mass = sum(link["mass"] for link in links)
    assert mass == pytest.approx(1000 * math.pi / 6 * 0.02**3, rel=1e-8)
    ball = 0.4 * mass * 0.01**2
    offset = 0.02 / 8  # distance of the link centres from the sphere's centre
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


def test_a_link_too_easy_to_turn_is_refused():
    asset = swimmer_assets()[0]
    check(asset)
    # compact like a solid body: it has enough mass, but too little moment of inertia in roll
    link = asset.tree.links["[link]spine_04"]
    link.size = (link.size[0], 0.7 * link.size[1], 0.7 * link.size[2])
    with pytest.raises(AssetError, match=r"spine_04 has 0\.6.* times the moment of inertia"):
        check(asset)


def test_sphere_is_heavy_enough_at_eight_nodes_a_diameter(tmp_path):
    result = make_assets(tmp_path, "sphere", "--dx", "0.0025", "--samples", "200")
    assert result.returncode == 0, result.stderr
    assert sorted(path.name for path in tmp_path.iterdir()) == ["sphere.glb", "sphere.json"]
