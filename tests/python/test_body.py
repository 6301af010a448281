"""Imports of meshes with bones as they come from modelling programs, and what describes the results."""

import json
import math
import shutil
import struct
import subprocess
import sys
from pathlib import Path

import drelt
import numpy as np
import pytest
from conftest import ROOT
from drelt.body import BodyError, check, import_mesh, schema, show
from scenes import HOST

sys.path.insert(0, str(ROOT / "tools"))
from assetgen.wild import WILD, Skin, Wild, at, row, tube

AXES = {
    "y": np.eye(3),
    "z": np.array([[0, -1, 0], [0, 0, 1], [-1, 0, 0]]),
}  # by the axis that is up


def imported(tmp_path, wild, **options):
    mesh = tmp_path / "wild.glb"
    mesh.write_bytes(wild.data)
    options = {"picture": False, **wild.options, **options}
    return import_mesh(mesh, tmp_path / "out", **options)


def live(description, samples=300):
    zero = np.zeros(3)
    system = drelt.skeletonFromJson(str(description), HOST)
    return drelt.make_skDynamics(system, samples, HOST, zero, zero, np.ones(3))


def held_by_bones(wild, skin):
    """Where each bone holds a skin's vertices at rest (bones x n x 3)."""
    moves = [wild.moves.get(bone, np.eye(4)) for bone in skin.joints]
    return np.array([skin.vertices @ move[:3, :3].T + move[:3, 3] for move in moves])


def blend(skin, held):
    return np.einsum("nb,bni->ni", skin.weights, held)


def in_body_axes(wild):
    """The similarity from the file to the body, by what the options say."""
    turn = AXES[wild.options.get("up", "y")]
    points = (
        np.concatenate([blend(skin, held_by_bones(wild, skin)) for skin in wild.skins]) @ turn.T
    )
    extent = np.ptp(points, axis=0)
    scale = wild.options["length"] / extent.max() if "length" in wild.options else 1.0
    middle = (points.min(axis=0) + points.max(axis=0)) / 2
    return lambda p: scale * (np.asarray(p) @ turn.T - middle)


def bone_motions(wild, to_body, angles):
    """Motions (4 x 4) of all bones for angles about the body's z axis at the bones' places."""
    motions = {}
    for name, place in wild.places.items():  # parents come first
        c, s = math.cos(angles.get(name, 0)), math.sin(angles.get(name, 0))
        own = at(np.zeros(3), np.array([[c, -s, 0], [s, c, 0], [0, 0, 1]]))
        p = to_body(place)
        motions[name] = motions.get(wild.parents[name], np.eye(4)) @ at(p) @ own @ at(-p)
    return motions


@pytest.mark.parametrize("name", WILD)
def test_wild_meshes_become_bodies_that_bend_as_their_weights_say(tmp_path, name):
    wild = WILD[name]()
    body = imported(tmp_path, wild, joint=["*=Z"])
    to_body = in_body_axes(wild)
    own = [r for r in body.joint_records if r["link"] and "intermediate" not in r["name"]]
    assert len(own) == wild.bones
    assert check(body.description) == []

    skeleton = live(body.description)
    rest = skeleton.getSkinVertices()
    volume = sum(link.solid.volume for link in body.links if link.solid)
    assert volume == pytest.approx(skeleton.getVolume(), rel=1e-5)
    bent = {}
    for k, joint in enumerate(r["name"] for r in own):
        if skeleton.getJoint(joint).getNumDofs() == 1:
            bent[joint] = 0.3 if k % 2 else -0.2
            skeleton.getJoint(joint).setPositions([bent[joint]])
    assert len(bent) >= 2
    skeleton.update()
    skin = skeleton.getSkinVertices()
    angles = {bone: bent.get(bone.replace("intermediate", "inter"), 0) for bone in wild.places}
    motions = bone_motions(wild, to_body, angles)
    assert len(bent) == sum(angle != 0 for angle in angles.values())
    half = 0.51 * wild.options.get("thickness", 1e-4)
    size = np.ptp(rest, axis=0).max()
    for made in wild.skins:
        held = to_body(held_by_bones(wild, made))
        places = blend(made, held)
        bones = [motions[bone] for bone in made.joints]
        wanted = blend(made, [p @ m[:3, :3].T + m[:3, 3] for p, m in zip(held, bones)])
        for place, want in zip(places, wanted):
            there = np.linalg.norm(rest - place, axis=1) < half
            # both sides of a sheet; elsewhere tubes may touch, and one of them is meant
            found = (
                [skin[there].mean(axis=0), *skin[there]] if name == "open_sheet" else skin[there]
            )
            assert min(np.linalg.norm(found - want, axis=1)) < 1e-4 * size
    assert np.abs(skin - rest).max() > 0.02 * size


def test_links_weigh_what_their_part_of_the_skin_holds(tmp_path):
    """A bar of square section: two equal links, whose inertia is that of bars."""
    places = row(2, 0.4)
    corners = np.array(
        [[x, y, z] for x in (-0.2, 0.2) for y in (-0.02, 0.02) for z in (-0.03, 0.03)]
    )
    faces = [(0, 1, 3), (0, 3, 2), (4, 6, 7), (4, 7, 5), (0, 4, 5), (0, 5, 1), (2, 3, 7), (2, 7, 6),
             (0, 2, 6), (0, 6, 4), (1, 5, 7), (1, 7, 3)]  # fmt: skip
    weights = np.array([[1.0, 0] if x < 0 else [0, 1.0] for x in corners[:, 0]])
    nodes = [("Scene", None, np.eye(4)), ("surface", "Scene", np.eye(4)), ("p", "Scene", at(places[0])),
             ("q", "p", at(places[1] - places[0])), ("end", "q", at(places[2] - places[1]))]  # fmt: skip
    wild = Wild(nodes, {}, [Skin(corners, np.array(faces)[:, ::-1], weights, ["p", "q"])], {}, 2)
    body = imported(tmp_path, wild, density=1200, samples=400)
    assert any("looked inwards" in note for note in body.notes)
    for link in body.links:
        assert link.mass == pytest.approx(200 * 0.2 * 0.04 * 0.06, rel=1e-5)
        # mean square of a bar along its side a: a^2 / 12, of an ellipsoid of diameter d: d^2 / 20
        assert link.size == pytest.approx(np.sqrt(20 / 12) * np.array([0.2, 0.04, 0.06]), rel=1e-5)
    shutil.rmtree(body.folder)
    heavy = imported(tmp_path, wild, density=1200, samples=400, mass="total")
    assert heavy.links[0].mass == pytest.approx(1200 * 0.2 * 0.04 * 0.06, rel=1e-5)
    shutil.rmtree(body.folder)
    weak = imported(tmp_path, wild, density=1010, samples=400, coupling="explicit", spacing=0.01)
    assert "too light for the explicit coupling" in weak.warnings[0]
    # 0.55 rho A dx over the volume; both caps of the bar count, the cut between the links does not
    area = 2 * 0.2 * (0.04 + 0.06) + 0.04 * 0.06
    need = 1000 + 0.55 * 1000 * area * 0.01 / (0.2 * 0.04 * 0.06)
    assert f"density of {need:.4g} kg/m^3" in weak.warnings[1]


def test_words_by_pattern_say_what_joints_do(tmp_path):
    wild = WILD["fork_of_three"]()
    joint = [
        "*=velocity,y",
        "le*=prismatic,force,axis=0:3:4,limits=-0.1:0.2,spring=2",
        "tail=mimic=left:2:0.1",
    ]
    body = imported(tmp_path, wild, joint=joint)
    text = json.loads(body.description.read_text())["joints"]
    assert (text["waist"]["type"], text["waist"]["actuator"], text["waist"]["axis"]) == (
        "revolute",
        "velocity",
        [0, 1, 0],
    )
    left = text["left"]
    assert (left["type"], left["actuator"], left["springStiffness"]) == ("prismatic", "force", 2)
    assert left["axis"] == pytest.approx([0, 0.6, 0.8]) and left["limit"]["upper"] == 0.2
    assert text["tail"]["actuator"] == "mimic" and text["tail"]["mimic"]["multiplier"] == 2
    skeleton = live(body.description)
    assert len(skeleton.getDofNames()) == len(skeleton.getPositions()) == 6 + 4
    assert skeleton.getDofNames()[6:] == [
        n for n in skeleton.getJointNames() if skeleton.getJoint(n).getNumDofs() == 1
    ]
    assert skeleton.getSkinFaceLinks().max() < len(skeleton.getLinkNames()) - 1
    low, high = skeleton.getBoundingBox()
    assert np.allclose(low, -high, atol=1e-6)  # centred
    assert skeleton.getVolume() == pytest.approx(body.surface.volume(), rel=1e-5)
    assert skeleton.getSurfaceArea() == pytest.approx(body.surface.area(), rel=1e-5)
    told = show(body.description)
    for name in (*skeleton.getLinkNames()[1:-1], *skeleton.getJointNames()):
        assert name in told


def test_the_script_beside_the_body_runs(tmp_path):
    body = imported(tmp_path, WILD["several_roots"](), nodes=24)
    command = [sys.executable, str(body.folder / "run.py"), "--steps", "20"]
    folder = Path(drelt.__file__).parents[1]
    done = subprocess.run(command, cwd=tmp_path, env={"PYTHONPATH": str(folder), "PATH": "/usr/bin:/bin"},
                          capture_output=True, text=True, check=False)  # fmt: skip
    assert done.returncode == 0, done.stdout + done.stderr
    assert "step 19" in done.stdout


def without_bones(data):
    """The same file without its skins."""
    (length,) = struct.unpack_from("<I", data, 12)
    text = json.loads(data[20 : 20 + length])
    del text["skins"]
    for node in text["nodes"]:
        node.pop("skin", None)
    raw = json.dumps(text).encode().ljust(length)
    return data[:20] + raw + data[20 + length :]


def many_bones():
    count = 1000
    places = row(count, 1.0)
    vertices, faces = tube(places[0], places[-1], 0.05, count + 1)
    weights = np.zeros((len(vertices), count))
    weights[np.arange(len(vertices)), np.minimum(np.arange(len(vertices)) // 12, count - 1)] = 1
    nodes = [("Scene", None, np.eye(4)), ("surface", "Scene", np.eye(4))]
    nodes += [(f"b{k}", f"b{k - 1}" if k else "Scene", at((1 / count, 0, 0))) for k in range(count)]
    return Wild(
        nodes, {}, [Skin(vertices, faces, weights, [f"b{k}" for k in range(count)])], {}, 0
    ).data


def not_a_number():
    data = bytearray(WILD["two_skins"]().data)
    (length,) = struct.unpack_from("<I", data, 12)
    data[28 + length : 32 + length] = struct.pack("<f", math.nan)
    return bytes(data)


def flat():
    """A sheet whose vertices all lie on one line."""
    wild = WILD["open_sheet"]()
    wild.skins[0].vertices[:, 2] = 0
    return wild.data


PLAIN = WILD["open_sheet"]().data
FAULTS = {
    "no bones": (without_bones(PLAIN), {}, "--rigid"),
    "not finite": (not_a_number(), {}, "not finite"),
    "a thousand bones": (many_bones, {}, "has 1000 bones"),
    "no model": (b"nothing", {}, "cannot be read"),
    "no density": (PLAIN, {"density": 0.0}, "positive"),
    "no pattern": (PLAIN, {"joint": ["wing*=servo"]}, "front, middle, rear"),
    "no bone to drop": (PLAIN, {"drop": ["wing*"]}, "front, middle, rear"),
    "no mesh to skip": (PLAIN, {"skip": ["floor*"]}, "surface"),
    "nothing left": (PLAIN, {"skip": ["surf*"]}, "no triangles"),
    "no surface": (flat, {}, "no surface"),
    "no word": (PLAIN, {"joint": ["front=bendy"]}, "'bendy' is no word"),
    "one axis twice": (PLAIN, {"up": "-x"}, "lie on one axis"),
    "unknown option": (PLAIN, {"weight": 3}, "no option 'weight'"),
    "no link to follow": (PLAIN, {"follow": "wing"}, "front, middle, rear"),
}


@pytest.mark.parametrize("fault", FAULTS)
def test_faults_name_the_cause_and_write_nothing(tmp_path, fault):
    data, options, text = FAULTS[fault]
    (tmp_path / "mesh.glb").write_bytes(data() if callable(data) else data)
    with pytest.raises(BodyError, match=text):
        import_mesh(tmp_path / "mesh.glb", tmp_path / "out", **options)
    assert [path.name for path in tmp_path.iterdir()] == ["mesh.glb"]


def test_a_folder_that_exists_stays_as_it_is(tmp_path):
    (tmp_path / "mesh.glb").write_bytes(PLAIN)
    with pytest.raises(BodyError, match="exists"):
        import_mesh(tmp_path / "mesh.glb", tmp_path)
    assert len(list(tmp_path.iterdir())) == 1


def test_a_mesh_without_bones_becomes_one_rigid_link(tmp_path):
    (tmp_path / "mesh.glb").write_bytes(without_bones(WILD["fork_of_three"]().data))
    body = import_mesh(tmp_path / "mesh.glb", tmp_path / "out", rigid=True, picture=False)
    (link,) = body.links
    assert np.allclose(link.frame[:3, 3], link.solid.centre, atol=1e-6)
    assert len(live(body.description).getPositions()) == 6


def test_check_lists_all_problems_at_once(tmp_path):
    body = imported(tmp_path, WILD["open_sheet"]())
    text = json.loads(body.description.read_text())
    text["joints"]["front"]["type"] = "hinge"
    text["joints"]["middle"]["axis"] = [0, 0, 0]
    del text["joints"]["rear"]["limit"]["upper"]
    text["links"]["[link]middle"]["size"] = [0.1, -1, 0.1]
    text["links"]["[link]rear"]["radius"] = text["links"]["[link]rear"].pop("radius ")
    text["baseFrameName"] = "[link]wing"
    text["joints"]["wing"] = text["joints"]["front"]
    wrong = tmp_path / "wrong.json"
    wrong.write_text(json.dumps(text))
    found = {problem.path: problem for problem in check(wrong)}
    assert set(found) == {
        "joints.front.type", "joints.middle.axis", "joints.rear.limit.upper", "links.[link]middle.size",
        "links.[link]rear.radius ", "baseFrameName", "joints.wing", "joints.wing.type",
    }  # fmt: skip
    assert "revolute" in found["joints.front.type"].allowed
    assert "blank" in found["links.[link]rear.radius "].allowed
    assert "[link]front" in found["baseFrameName"].allowed
    command = [sys.executable, "-m", "drelt.body", "check", str(wrong)]
    folder = Path(drelt.__file__).parents[1]
    done = subprocess.run(
        command, env={"PYTHONPATH": str(folder)}, capture_output=True, text=True, check=False
    )
    assert done.returncode == 1 and "8 problems" in done.stdout


def test_bundled_descriptions_fit_the_schema_and_have_no_problems():
    assert schema()["required"][0] == "model_file"
    for file in ("assets/sphere.json", "assets/swimmer.json"):
        assert check(file) == []
