"""The package around the extension: names, types, texts, and its effects on its process."""

import importlib
import inspect
import os
import pickle
import subprocess
import sys
from pathlib import Path

import drelt
import numpy as np
import pytest
from conftest import ROOT
from scenes import make_body, make_params, make_scene

PACKAGE = Path(drelt.__file__).parent
SPIN_SETTINGS = ("OMP_WAIT_POLICY", "GOMP_SPINCOUNT", "KMP_BLOCKTIME")
CLASSES = [member for member in vars(drelt).values() if isinstance(member, type)]


def run_script(script, **environment):
    """A process that imports the module and runs the script in the repository's folder."""
    inherited = {k: v for k, v in os.environ.items() if k not in SPIN_SETTINGS}
    return subprocess.run(
        [sys.executable, "-c", f"import os, drelt\n{script}"],
        cwd=ROOT,
        env={**inherited, "PYTHONPATH": str(PACKAGE.parent), **environment},
        capture_output=True,
        text=True,
        check=True,
    )


def test_all_that_is_public_is_described():
    described = {}
    for name, member in vars(drelt).items():
        if name.startswith("_"):
            continue
        described[f"drelt.{name}"] = member
        if inspect.isclass(member) and not hasattr(member, "__members__"):
            for inner in vars(member):
                if not inner.startswith("_"):
                    described[f"{name}.{inner}"] = getattr(member, inner)
    assert {"simParam.get_tp", "VTKWriter.writeLines", "drelt.make_skWorld"} <= described.keys()
    # pybind11 writes the lines with an arrow
    bare = [
        name
        for name, member in described.items()
        if all("->" in line for line in (member.__doc__ or "").splitlines() if line)
    ]
    assert bare == []


def test_classes_and_pickles_name_the_package():
    for cls in CLASSES:
        assert cls.__module__ == "drelt"
    assert not hasattr(importlib.reload(drelt), "drelt")
    for member in (drelt.SETUP_MODE.MANUAL, drelt.COUPLE_MODE.EMPIRICAL, drelt.SAVE_FLAG.FLUID):
        assert pickle.loads(pickle.dumps(member)) == member


def test_the_stub_has_the_names_of_the_module(tmp_path):
    pytest.importorskip("mypy")
    (tmp_path / "extension").write_text(r"drelt\.drelt")
    environment = dict(os.environ, PYTHONPATH=str(PACKAGE.parent), MYPYPATH=str(PACKAGE.parent))
    done = subprocess.run(
        [sys.executable, "-m", "mypy.stubtest", "drelt", "--allowlist", "extension"],
        env={**environment, "MYPY_CACHE_DIR": str(tmp_path)},
        cwd=tmp_path,
        capture_output=True,
        text=True,
        check=False,
    )
    assert done.returncode == 0, done.stdout + done.stderr


RIGHT_USE = """
import drelt, numpy as np
from typing import List
params = drelt.make_simParams()
params.pml_width = 3
params.setup_mode = drelt.SETUP_MODE.MANUAL
simulator = drelt.make_simulator(params, 0)
description = drelt.skeletonFromJson(json_name="a.json", gpuId=np.int64(0))
body = drelt.make_skDynamics(description, 400, 0, np.zeros(3), [0, 0, 1], np.ones(3))
speed: float = float(body.getCOMLinearVelocity()[0])
simulator.saveScene(0, drelt.SAVE_FLAG.BODY)
simulator.saveScene(0, drelt.SAVE_FLAG.BODY | drelt.SAVE_FLAG.FLUID)
line = drelt.debugLine()
line.vertices = [np.zeros(3), [0.0, 1.0, 2.0]]
points: List[drelt.trajectoryPoint3d] = [drelt.trajectoryPosePoint3d()]
path = drelt.make_trajectory()
path.setPoints(points)
drelt.VTKWriter.writeTrajectory(path, "a.vtk")
"""
WRONG_USE = """
body.getLink("tail").getMass()
simulator.step(3)
line.vertices = 3
drelt.make_controller(Kp=1.0, Kd=1.0, timestep=1.0)
body.getMarkers().getMarkersPos() + 1
drelt.SkeletonLink()
"""


@pytest.mark.skipif(sys.version_info < (3, 9), reason="their mypy knows one type per attribute")
def test_the_stub_takes_and_gives_what_scripts_use(tmp_path):
    pytest.importorskip("mypy")
    script = tmp_path / "script.py"
    script.write_text(RIGHT_USE + WRONG_USE)
    done = subprocess.run(
        [sys.executable, "-m", "mypy", "--cache-dir", str(tmp_path), str(script)],
        env={**os.environ, "MYPYPATH": str(PACKAGE.parent)},
        capture_output=True,
        text=True,
        check=False,
    )
    errors = [int(line.split(":")[1]) for line in done.stdout.splitlines() if " error: " in line]
    lines = (RIGHT_USE + WRONG_USE).splitlines()
    assert sorted(set(errors)) == [
        lines.index(line) + 1 for line in WRONG_USE.splitlines() if line
    ], done.stdout


UNMADE = "made without its constructor"


def refusal(call):
    """Calls with 0 to 6 arguments and returns the TypeError's message about the constructor, if any."""
    messages = []
    for count in range(7):
        with pytest.raises(TypeError) as raised:
            call(*[0] * count)
        messages.append(str(raised.value))
    return max(messages, key=lambda text: UNMADE in text)


@pytest.mark.parametrize("cls", CLASSES, ids=lambda cls: cls.__name__)
def test_objects_without_a_constructor_call_raise(cls):
    unmade = cls.__new__(cls)
    for name, member in inspect.getmembers(cls):
        if isinstance(inspect.getattr_static(cls, name), (staticmethod, cls)):
            continue
        if isinstance(member, property):
            with pytest.raises(TypeError, match=UNMADE):
                getattr(unmade, name)
        elif not name.startswith("_"):
            assert UNMADE in refusal(getattr(unmade, name)), name
    if hasattr(cls, "__members__"):
        with pytest.raises(TypeError, match=UNMADE):
            int(unmade)


def test_functions_refuse_objects_without_a_constructor_call():
    def unmade(cls):
        return cls.__new__(cls)

    simulator, world, _ = make_scene()
    calls = [
        lambda: drelt.make_simulator(unmade(drelt.simParam), -1),
        lambda: drelt.make_simulator(make_params(), -1).attachWorld(unmade(drelt.DartWorld)),
        lambda: world.addSkeleton(unmade(drelt.SkeletonDynamics)),
        lambda: drelt.SkeletonDynamics(unmade(drelt.SkeletonSystem)),
        lambda: simulator.step(unmade(drelt.COUPLE_MODE)),
        lambda: drelt.trajectory3d().setPoints([unmade(drelt.trajectoryPoint3d)]),
        lambda: drelt.VTKWriter.writeLines([unmade(drelt.debugLine)], ""),
        lambda: drelt.VTKWriter.writeTrajectory(unmade(drelt.trajectory3d), ""),
    ]
    for call in calls:
        with pytest.raises(TypeError, match=UNMADE):
            call()

    class Early(drelt.DartWorld):
        def __init__(self):
            self.reset()
            super().__init__()

    with pytest.raises(TypeError, match=UNMADE):
        Early()


def test_what_attributes_gave_stays_as_it_was():
    point = drelt.trajectoryPosePoint3d()
    before = point.data
    point.data = [1, 2, 3]
    assert (point.data - before).tolist() == [1, 2, 3]
    line = drelt.debugLine()
    line.vertices = [[1, 2, 3]]
    vertices = line.vertices
    line.vertices = [[4, 5, 6]] * 100
    assert [v.tolist() for v in vertices] == [[1, 2, 3]]
    vertices[0][0] = 7
    assert line.vertices[0].tolist() == [4, 5, 6]
    params = make_params(setup_mode=drelt.SETUP_MODE.GRAVITY)
    mode = params.setup_mode
    params.setup_mode = drelt.SETUP_MODE.MANUAL
    assert mode == drelt.SETUP_MODE.GRAVITY
    body = make_body(samples=0)
    start = body.getPositions()
    body.getJoint(body.getBaseLink().getName().replace("[link]", "")).setPosition(0, 0.5)
    assert (body.getPositions() - start).tolist() == [0.5]


QUIET_RUN = f"""
import sys
sys.path.insert(0, {str(Path(__file__).parent)!r})
from scenes import make_scene, make_body
simulator, world, body = make_scene()
simulator.log()
simulator.step(drelt.COUPLE_MODE.TWO_WAY)
description = drelt.skeletonFromJson("assets/sphere_follow.json", -1)
drelt.SkeletonDynamics(description, 0, -1)
drelt.SkeletonDynamics(description, 0, -1)  # a second body on it draws a warning
"""


@pytest.mark.parametrize(
    ("script", "environment"),
    [("drelt.setVerbosity(0)", {}), ("", {"DRELT_VERBOSITY": "0"})],
    ids=["call", "environment"],
)
def test_verbosity_zero_leaves_warnings_alone(script, environment):
    done = run_script(script + QUIET_RUN, **environment)
    shown = (done.stdout + done.stderr).splitlines()
    assert len(shown) == 1, shown
    assert shown[0].startswith("[warning] a second skeleton on the description")
    assert len(run_script(QUIET_RUN).stdout.splitlines()) > 5
    with pytest.raises(ValueError, match="setVerbosity: got 2"):
        drelt.setVerbosity(2)


def test_waiting_threads_spin_for_a_short_time_only():
    # the OpenMP runtime prints the settings that it took, on standard error
    def spin(**environment):
        done = run_script(
            "print(os.environ.get('GOMP_SPINCOUNT'))", OMP_DISPLAY_ENV="verbose", **environment
        )
        line = next(line for line in done.stderr.splitlines() if "GOMP_SPINCOUNT" in line)
        return int(line.split("'")[1]), done.stdout.splitlines()[-1]

    assert spin() == (2000, "None")
    assert spin(GOMP_SPINCOUNT="7") == (7, "7")
    assert spin(OMP_WAIT_POLICY="passive") == (0, "None")


def test_vectors_of_another_kind_are_converted():
    path = drelt.make_trajectory()
    points = [drelt.trajectoryPoint3d() for _ in range(4)]
    for i, point in enumerate(points):
        point.data = (i, 0, 0)
    path.setPoints(points)
    path.fit()
    path.sample(np.int64(5))
    assert path.getReferencePose(np.array([1, 0, 0], np.float32)) == 0.0
