"""Restart and state files: a run that goes on equals the uninterrupted one, bit for bit.

State files of equal states are equal, byte by byte, so that comparing them compares all that a run has.
"""

import os
import resource
import signal
import subprocess
import sys
import threading
import time

import drelt
import numpy as np
import pytest
from conftest import ROOT
from scenes import make_params, make_scene
from state_scenes import SCENES, TWO_WAY, plain, run, whole_run


def program(*arguments, **environment):
    command = [sys.executable, str(ROOT / "tests/python/state_scenes.py"), *map(str, arguments)]
    subprocess.run(command, cwd=ROOT, env={**os.environ, **environment}, check=True, timeout=300)


@pytest.mark.parametrize("name", SCENES)
@pytest.mark.parametrize("schedule", ["production", "operators"])
def test_a_run_goes_on_from_a_file_and_from_the_start(tmp_path, monkeypatch, name, schedule):
    monkeypatch.setenv("DRELT_SCHEDULE", schedule)
    whole, middle, half, again = (tmp_path / f"{file}.h5" for file in ("w", "m", "h", "a"))
    whole_run(name, middle, whole)
    # another number of threads in another process; this one has made other scenes before
    program("half", name, middle, half, OMP_NUM_THREADS="3")
    assert half.read_bytes() == whole.read_bytes() != middle.read_bytes()

    scene = SCENES[name]()
    simulator, world, body = scene
    run(scene, 3)
    simulator.saveScene(0, 0)
    run(scene, 2, drelt.COUPLE_MODE.EMPIRICAL)
    simulator.reset()  # goes back to less than a restart does
    if name == "options":
        simulator.setCurrent([0.0, 0.03, 0.0])
    world.setGravity([0.5, 0.0, 0.0])
    body.setHead(np.array([0.001, 0.0, 0.0]), np.array([1.0, 0.1, 0.0]))
    simulator.restart()
    assert (simulator.getIterNum(), world.time) == (0, 0.0)
    run(scene, 8)
    simulator.saveState(again)
    assert again.read_bytes() == whole.read_bytes()


@pytest.mark.parametrize("schedule", ["production", "operators"])
def test_what_waits_for_the_next_step_is_saved_too(tmp_path, monkeypatch, schedule):
    """A pose that no update has seen, a field that was read, and a reset that no step has uploaded."""
    monkeypatch.setenv("DRELT_SCHEDULE", schedule)
    middle, whole, half = (tmp_path / f"{file}.h5" for file in "mwh")

    def prepare(scene):
        simulator, _, body = scene
        run(scene, 4)
        simulator.saveScene(0, 0)
        run(scene, 2, drelt.COUPLE_MODE.EMPIRICAL)
        simulator.reset()
        body.getJoint("bone_00").setPosition(0, 1e-4)
        body.setForces(np.full(len(body.getForces()), 1e-6))
        simulator.saveState(middle)

    def finish(scene):
        run(scene, 2, drelt.COUPLE_MODE.NO_FLUID)  # markers still see the fluid before the reset
        run(scene, 3)
        scene[0].reset()
        run(scene, 2)

    scene = plain()
    prepare(scene)
    finish(scene)
    scene[0].saveState(whole)
    other = plain()
    other[0].loadState(middle)
    finish(other)
    other[0].saveState(half)
    assert half.read_bytes() == whole.read_bytes()


def test_a_script_gets_back_what_it_adds(tmp_path):
    simulator, _, _ = plain()
    controller = drelt.make_controller(2.0, 0.5, 0.1)
    controller.set_value(3.0)
    controller.feedback(1.25, 0.1)
    random = np.random.default_rng(1)
    extra = {
        "controller": controller.getState(),
        "array": np.arange(6, dtype=np.int16).reshape(2, 3)[::-1],
        "number": np.float32(0.1),
        "none at all": np.empty((0, 3), dtype=complex),
        "bytes": b"\x00\xff",
        "Größe": [1, None, "Ü", {"x": 0.1}],
        "random": random.bit_generator.state,
    }
    simulator.saveState(str(tmp_path / "new" / "folder" / "s.h5"), extra)
    back = simulator.loadState(tmp_path / "new" / "folder" / "s.h5")
    for key in ("array", "number", "none at all"):
        given, returned = extra.pop(key), back.pop(key)
        np.testing.assert_array_equal(returned, given, strict=True)
    assert back == extra
    twin = drelt.make_controller(0.0, 0.0, 0.0)
    twin.setState(back["controller"])
    assert twin.feedback(1.0, 0.1) == controller.feedback(1.0, 0.1)

    with pytest.raises(KeyError, match="has no 'Kp'"):
        twin.setState({"Kd": 1.0})
    for wrong in ({1: 2}, {"a": {1, 2}}, {"a": np.array([None])}, {"a": [np.zeros(1)]}, [1]):
        with pytest.raises(TypeError):
            simulator.saveState(tmp_path / "s.h5", wrong)
    assert not (tmp_path / "s.h5").exists()


def state_of(simulator, folder):
    simulator.saveState(folder / "now.h5")
    return (folder / "now.h5").read_bytes()


def test_other_files_are_refused_and_change_nothing(tmp_path):
    scene = plain()
    simulator = scene[0]
    with pytest.raises(RuntimeError, match="loadState: the simulator is not initialised"):
        drelt.make_simulator(make_params(), -1).loadState("s.h5")
    run(scene, 2)
    good = state_of(simulator, tmp_path)
    run(scene, 1)
    before = state_of(simulator, tmp_path)
    file = tmp_path / "s.h5"

    for content in (b"", b"{}", good[:600], good[:-1], good[: len(good) // 2]):
        file.write_bytes(content)
        with pytest.raises(
            RuntimeError, match=r"cannot load .*(no state file|damaged or cut short)"
        ):
            simulator.loadState(file)
    for at in range(0, len(good), len(good) // 100):
        file.write_bytes(good[:at] + bytes([good[at] ^ 0x55]) + good[at + 1 :])
        with pytest.raises(RuntimeError, match="nothing was changed"):
            simulator.loadState(file)
    file.write_bytes(good.replace(b"drelt state 0001", b"drelt state 0002"))
    with pytest.raises(RuntimeError, match="its format is 0002, this program reads 0001"):
        simulator.loadState(file)
    for path in (tmp_path / "none.h5", tmp_path, "assets/sphere.json"):
        with pytest.raises(RuntimeError, match=r"cannot load .*; give (a file|one) that saveState"):
            simulator.loadState(path)
    assert state_of(simulator, tmp_path) == before

    file.write_bytes(good)
    for changes, difference in (
        ({"width": 0.044}, "'fluid 0: nodes' is 16 14 14 in the file and 18 14 14 here"),
        ({"visp": 5e-5}, "'fluid 0: lattice viscosity' is"),
        ({"retraction": 0.8}, "'body 0: checksum of the samples' is"),
    ):
        with pytest.raises(
            ValueError, match=f"is of another scene: {difference}.*nothing was changed"
        ):
            make_scene(**changes)[0].loadState(file)
    os.environ["DRELT_SCHEDULE"] = "operators"
    try:
        other = plain()[0]
    finally:
        del os.environ["DRELT_SCHEDULE"]
    with pytest.raises(ValueError, match="'fluid 0: schedule' is production on host threads"):
        other.loadState(file)
    with pytest.raises(RuntimeError, match=r"description|JSON|json|parse"):
        drelt.skeletonFromJson(str(file), -1)


def test_a_full_disk_leaves_the_last_file(tmp_path):
    scene = plain()
    file = tmp_path / "s.h5"
    scene[0].saveState(file)
    last = file.read_bytes()
    run(scene, 1)
    limits = resource.getrlimit(resource.RLIMIT_FSIZE)
    for share in (0, 100, len(last) // 2, len(last) - 200):
        resource.setrlimit(resource.RLIMIT_FSIZE, (share, limits[1]))
        try:
            with pytest.raises(
                RuntimeError, match=r"cannot write .* File too large; what was there"
            ):
                scene[0].saveState(file)
        finally:
            resource.setrlimit(resource.RLIMIT_FSIZE, limits)
        assert [path.name for path in tmp_path.iterdir()] == ["s.h5"]
        assert file.read_bytes() == last
    for path in (tmp_path, tmp_path / "s.h5" / "below", "/proc/none/s.h5"):
        with pytest.raises(RuntimeError, match="saveState: cannot write"):
            scene[0].saveState(path)
    scene[0].saveState(file)
    assert file.read_bytes() != last


def test_threads_go_on_beside_a_step_and_cannot_share_a_simulator(tmp_path):
    scenes = [plain(), plain()]
    threads = [threading.Thread(target=s[0].step, args=(TWO_WAY, 150)) for s in scenes]
    for thread in threads:
        thread.start()
    refusals, ticks = set(), 0
    while threads[0].is_alive() and scenes[0][0].getIterNum() == 0:
        time.sleep(0.001)  # until the thread is inside its step
    while threads[0].is_alive():
        ticks += 1
        for call in ("step(TWO_WAY)", "reset()", "saveScene(0, 0)", "saveState('x')", "restart()"):
            try:
                eval(f"simulator.{call}", {"simulator": scenes[0][0], "TWO_WAY": TWO_WAY})
            except RuntimeError as error:
                refusals.add(str(error).split(";")[0])
        if refusals:
            time.sleep(0.001)
            break
    for thread in threads:
        thread.join()
    assert "step: another thread is in step of this simulator" in refusals
    assert len(refusals) == 5 and ticks > 0
    alone = plain()
    alone[0].step(TWO_WAY, 150)
    assert len({state_of(scene[0], tmp_path) for scene in (*scenes, alone)}) == 1
    with pytest.raises(ValueError, match="the count is -1; give 0 or more"):
        alone[0].step(TWO_WAY, -1)


def test_ctrl_c_stops_between_two_steps(tmp_path):
    stopped, twin = plain(), plain()
    timer = threading.Timer(0.3, lambda: os.kill(os.getpid(), signal.SIGINT))
    timer.start()
    with pytest.raises(KeyboardInterrupt):
        stopped[0].step(TWO_WAY, 10**6)
    timer.join()
    twin[0].step(TWO_WAY, stopped[0].getIterNum())
    assert state_of(stopped[0], tmp_path) == state_of(twin[0], tmp_path)
