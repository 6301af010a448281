"""For bad models and descriptions, an exception or a warning says why, and the process goes on."""

import json
import os
import re
import struct
import subprocess
import sys
from pathlib import Path

import drelt
import numpy as np
import pytest

HOST = -1
ZERO = np.zeros(3)


def description(name="sphere"):
    return json.loads(Path(f"assets/{name}.json").read_text())


def load(text, folder):
    path = folder / "changed.json"
    path.write_text(text if isinstance(text, str) else json.dumps(text))
    return drelt.skeletonFromJson(str(path), HOST)


def body_of(text, folder):
    return drelt.make_skDynamics(load(text, folder), 20, HOST, ZERO, ZERO, np.ones(3))


def scene_of(*bodies):
    """A small simulator with these bodies."""
    world = drelt.make_skWorld(np.array([0, -9.81, 0]))
    for body in bodies:
        world.addSkeleton(body)
    params = drelt.make_simParams()
    params.setup_mode = drelt.SETUP_MODE.MANUAL
    params.l0p, params.N, params.u0p, params.u0k = 0.02, 4, 0.1, 0.1
    params.visp, params.rou0p = 4e-5, 1000.0
    params.width = params.height = params.depth = 0.0575
    simulator = drelt.make_simulator(params, HOST)
    simulator.attachWorld(world)
    simulator.commitInit()
    return simulator, world


def changed_glb(change, folder):
    """A copy of the sphere's model with a changed JSON chunk."""
    blob = Path("assets/sphere.glb").read_bytes()
    length = struct.unpack_from("<I", blob, 12)[0]
    model = json.loads(blob[20 : 20 + length])
    change(model)
    text = json.dumps(model).encode()
    text += b" " * (-len(text) % 4)
    rest = blob[20 + length :]
    head = struct.pack("<4sIIII", b"glTF", 2, 20 + len(text) + len(rest), len(text), 0x4E4F534A)
    path = folder / "changed.glb"
    path.write_bytes(head + text + rest)
    return str(path)


def nest(model):
    model["nodes"].append({})
    for _ in range(3000):
        model["nodes"].append({"children": [len(model["nodes"]) - 1]})


DAMAGED = [
    (lambda m: m["skins"][0].pop("inverseBindMatrices"), "skin without inverseBindMatrices"),
    (lambda m: m["skins"][0].update(joints=[2, 3, 4]), "3 joints and 2 inverseBindMatrices"),
    (lambda m: m["nodes"][4].update(children=[2]), "more than once"),
    (nest, "more than 2000 deep"),
    (lambda m: m["nodes"][3].update(translation=[1e300, 0, 0]), "the transform of node 'bone_01'"),
]


@pytest.mark.parametrize(("change", "text"), DAMAGED)
def test_damaged_models_are_refused(change, text, tmp_path):
    with pytest.raises(RuntimeError, match=f"the model '.*changed.glb' .*{text}"):
        drelt.make_skeletonSystem(changed_glb(change, tmp_path), HOST)


def set_all(part, **values):
    def change(text):
        for member in text[part].values():
            member.update(values)

    return change


def light_servos(text):
    set_all("joints", type="floating", actuator="servo")(text)
    set_all("links", mass=1e-12)(text)


UNBUILDABLE = [
    (set_all("joints", springStiffness=1e308), ValueError, "springStiffness"),
    (
        set_all("joints", useDynamcis=True, dynamics={"damping": 1e308, "friction": 0}),
        ValueError,
        "damping",
    ),
    (
        set_all("joints", useDynamcis=True, dynamics={"damping": 0, "friction": 1e308}),
        ValueError,
        "friction",
    ),
    (
        set_all("joints", mimic={"joint": "bone_00", "multiplier": 1e160, "offset": 0}),
        ValueError,
        "multiplier",
    ),
    (
        set_all("joints", mimic={"joint": "bone_00", "multiplier": 1, "offset": 1e300}),
        ValueError,
        "offset",
    ),
    (set_all("joints", axis=[0, 0, 0]), ValueError, "give a direction"),
    (light_servos, RuntimeError, "type 'floating' with the actuator 'servo'"),
]


@pytest.mark.parametrize(("change", "error", "text"), UNBUILDABLE)
def test_absurd_numbers_are_refused(change, error, text, tmp_path):
    changed = description()
    change(changed)
    with pytest.raises(error, match=text):
        body_of(changed, tmp_path)


def test_files_that_cannot_be_read_say_where(tmp_path):
    with pytest.raises(RuntimeError, match=r"parse_error.*in 'none\.json', which cannot be opened"):
        drelt.skeletonFromJson("none.json", HOST)
    text = description()
    del text["joints"]["bone_01"]["limit"]["upper"]
    with pytest.raises(
        RuntimeError, match=r"'upper' not found .*changed\.json' at joints\.bone_01"
    ):
        load(text, tmp_path)
    for bad in ('{"model_file": NaN}', '{"model_file": 1e999}', "[" * 100000, ""):
        with pytest.raises(RuntimeError, match=r"json\.exception.*changed\.json"):
            load(bad, tmp_path)


def test_devices_that_do_not_exist_are_refused():
    for make in (
        lambda: drelt.skeletonFromJson("assets/sphere.json", 77),
        lambda: drelt.make_skeletonSystem("assets/sphere.glb", 77),
        lambda: drelt.make_skDynamics(
            drelt.skeletonFromJson("assets/sphere.json", HOST), 20, 77, ZERO, ZERO, np.ones(3)
        ),
    ):
        with pytest.raises(ValueError, match="device id 77 names no device"):
            make()


def test_a_body_is_in_one_world_at_a_time():
    body = drelt.make_skDynamics(
        drelt.skeletonFromJson("assets/sphere.json", HOST), 20, HOST, ZERO, ZERO, np.ones(3)
    )
    first = drelt.make_skWorld(ZERO)
    first.addSkeleton(body)
    second = drelt.make_skWorld(np.ones(3))
    with pytest.raises(ValueError, match="in another world"):
        second.addSkeleton(body)
    del first
    second.addSkeleton(body)


def test_a_body_without_mass_has_no_centre(tmp_path):
    text = description()
    set_all("joints", type="fixed")(text)
    set_all("links", mass=0)(text)
    body = body_of(text, tmp_path)
    for read in (body.getCOM, body.getCOMLinearVelocity, body.getCOMAngularVelocity):
        with pytest.raises(RuntimeError, match="has no mass"):
            read()


def test_divergence_names_the_body(tmp_path):
    calm = body_of(description(), tmp_path)
    wild = body_of(description("sphere_floating"), tmp_path)
    simulator, _ = scene_of(calm, wild)
    wild.getJoint("bone_00").setVelocity(3, 1e6)
    with pytest.raises(RuntimeError, match=r"of skeleton 1 of the world.* the motion has diverged"):
        simulator.step(drelt.COUPLE_MODE.TWO_WAY)


PRINTS = """
import numpy as np, drelt
d = drelt.skeletonFromJson({path!r}, -1)
b = drelt.make_skDynamics(d, 20, -1, np.zeros(3), np.zeros(3), np.ones(3))
b.setForces(np.ones(len(b.getForces())))
"""


def printed(path, verbosity):
    """Standard output and standard error of a script that builds a body."""
    done = subprocess.run(
        [sys.executable, "-c", PRINTS.format(path=str(path))],
        capture_output=True,
        text=True,
        check=True,
        env={**os.environ, "DRELT_VERBOSITY": verbosity},
    )
    return done.stdout, done.stderr


def test_only_warnings_are_printed_at_verbosity_zero(tmp_path):
    text = description("sphere_floating")
    text["joints"]["bone_01"]["actuator"] = "rocket"
    set_all("links", isIntermediate=True)(text)  # faces find no link
    # without weights, the vertices follow no bone
    text["model_file"] = changed_glb(
        lambda m: m["meshes"][0]["primitives"][0]["attributes"].pop("WEIGHTS_0"), tmp_path
    )
    path = tmp_path / "changed.json"
    path.write_text(json.dumps(text))
    loud, warnings = printed(path, "1")
    assert loud.startswith("factor 1\nExists!Exists!")
    assert "\ns\ns\n" in loud
    assert re.search(r"\[warning\].*joint 'bone_01' has the unknown actuator \"rocket\"", warnings)
    assert re.search(r"\[warning\] setForces.*'bone_00' \(passive\)", warnings)
    silent, same_warnings = printed(path, "0")
    assert same_warnings == warnings
    assert all(line.startswith("[warning]") for line in silent.splitlines())
