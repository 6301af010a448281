"""Runs the example scripts at a small size, as a user does."""

import os
import re
import subprocess
import sys
import time

import numpy as np
import pytest
from conftest import ROOT
from PIL import Image
from vtk_files import read_polydata


def run_example(name, out, *arguments):
    """What the script prints. Its files go to the folder out."""
    environment = {**os.environ, "MPLBACKEND": "Agg"}
    command = [sys.executable, str(ROOT / "examples" / f"{name}.py"), "--out", str(out), *arguments]
    done = subprocess.run(
        command,
        cwd=ROOT,
        env=environment,
        capture_output=True,
        encoding="utf-8",
        timeout=600,
        check=False,
    )
    assert done.returncode == 0, done.stderr
    return done.stdout


def test_settling_sphere_leaves_frames_and_a_picture(tmp_path):
    printed = run_example("settling_sphere", tmp_path, "--nodes", "8", "--duration", "1")
    result = re.search(r"D/u_g: (\S+)   Schiller and Naumann: (\S+)", printed)
    speed, reference = map(float, result.groups())
    assert 0.2 < speed < 0.5, "a third of the way to its terminal speed"
    assert reference == pytest.approx(0.907)
    assert (tmp_path / "settling_sphere.png").stat().st_size > 10000
    # a frame for every 13th of the 80 steps, and for the last
    assert len(list(tmp_path.glob("vis_data/Fluid/0_vis_fluid*.vtk"))) == 8
    assert len(list(tmp_path.glob("vis_data/Objects/00_vis_object_*.vtk"))) == 8


def test_a_sphere_in_a_stream_has_a_drag_and_a_wake(tmp_path):
    printed = run_example("current", tmp_path, "--nodes", "4", "--duration", "3")
    drag, reference = map(float, re.search(r"coefficient (\S+), .* (\S+)", printed).groups())
    assert reference == pytest.approx(1.538)
    assert 1.0 < drag / reference < 1.5, "at a coarse resolution, in a narrow box"
    assert (tmp_path / "current.png").stat().st_size > 10000


@pytest.mark.parametrize(("body", "nodes"), [("swimmer", "24"), ("eel", "32")])
def test_swimmers_as_heavy_as_the_fluid_swim_on_a_coarse_grid(tmp_path, body, nodes):
    size = ("--nodes", nodes, "--cycles", "1", "--no-frames")
    printed = run_example("swimming", tmp_path, "--neutral", "--body", body, *size)
    speed = float(re.search(r"mean forward speed over the last cycle: (-?\d+\.\d+)", printed)[1])
    assert 0.005 < speed < 0.3
    assert (tmp_path / f"{body}_neutral_two_way.png").stat().st_size > 10000


# the grid is too coarse for TWO_WAY; the other modes use the joints in the same way
@pytest.mark.parametrize("mode", ["one_way", "no_fluid", "empirical"])
def test_swimmer_runs_in_every_mode(tmp_path, mode):
    printed = run_example("swimming", tmp_path, "--mode", mode, "--nodes", "16", "--cycles", "2")
    speed = float(re.search(r"mean forward speed over the last cycle: (-?\d+\.\d+)", printed)[1])
    if mode == "empirical":
        assert speed > 0.1, "a travelling wave swims head first"
    else:
        assert abs(speed) < 0.05, "nothing pushes the body"
    assert (tmp_path / f"swimmer_{mode}.png").stat().st_size > 10000
    # each frame has a file for each of the two meshes and one for the markers
    assert len(list(tmp_path.glob("vis_data/Objects/00_*.vtk"))) == 32
    assert len(list(tmp_path.glob("vis_data/Objects/10_*.vtk"))) == 32
    assert len(list(tmp_path.glob("vis_data/Objects/markers_0_*.vtk"))) == 32
    assert len(list(tmp_path.glob("vis_data/Fluid/*.vtk"))) == 8


def test_without_frames_the_picture_still_finds_its_folder(tmp_path):
    out = tmp_path / "new" / "folder"
    run_example(
        "swimming", out, "--mode", "no_fluid", "--nodes", "16", "--cycles", "1", "--no-frames"
    )
    assert [path.name for path in out.iterdir()] == ["swimmer_no_fluid.png"]


@pytest.mark.parametrize("name", ["swimming", "steering"])
def test_no_cycles_are_refused(name):
    command = [sys.executable, str(ROOT / "examples" / f"{name}.py"), "--cycles", "0"]
    done = subprocess.run(command, cwd=ROOT, capture_output=True, text=True, check=False)
    assert done.returncode == 2
    assert "argument --cycles: 0 is too few; give 1 or more" in done.stderr


def steered(out, cycles, *arguments):
    """Progress along the path, and the mean distance from it, in a run without fluid."""
    size = ("--mode", "empirical", "--nodes", "16", "--cycles", cycles)
    printed = run_example("steering", out, *size, *arguments)
    along = re.search(r"progress along the path: (\S+) L", printed)[1]
    aside = re.search(r"distance from the path: mean (\S+) L", printed)[1]
    return float(along), float(aside)


def test_steering_keeps_to_the_path_and_pictures_it(tmp_path):
    along, aside = steered(tmp_path / "steered", "3")
    whole, _ = steered(tmp_path / "whole", "5", "--no-frames")
    _, astray = steered(tmp_path / "free", "3", "--no-control", "--no-frames")
    assert along > 1.0
    assert 1.75 < whole < 1.9, "swims to the end and stops there"
    assert aside < 0.04 < 0.09 < astray

    frames = tmp_path / "steered" / "vis_data"
    assert len(list(frames.glob("Objects/00_*.vtk"))) == 48
    assert len(list(frames.glob("Fluid/*.vtk"))) == 3
    way, path = read_polydata(frames / "way.vtk"), read_polydata(frames / "path.vtk")
    assert (way.GetNumberOfLines(), path.GetNumberOfLines()) == (1, 1)
    assert read_polydata(frames / "to_targets.vtk").GetNumberOfLines() == 13
    assert (tmp_path / "steered" / "steering.png").stat().st_size > 10000

    # the body heads to the right and the path bends to its left, so the path rises in the picture
    with Image.open(tmp_path / "steered" / "steering.gif") as film:
        assert film.n_frames == len(list(tmp_path.glob("steered/pictures/*.ppm"))) == 25
        film.seek(24)
        picture = np.asarray(film.convert("RGB")).astype(int)
    green = picture[..., 1] - np.maximum(picture[..., 0], picture[..., 2]) > 100
    rows, places = np.nonzero(green)
    assert places.max() - places.min() > 200
    assert rows[places.argmax()] < rows[places.argmin()] - 20
    body = picture[..., 2] > 80
    assert 0.005 < body.mean() < 0.2


def kill_in_a_save(command, folder):
    """Starts a long run and kills it while it writes a state, after a first whole one."""
    for _ in range(5):  # a save may end before the signal comes
        before = set(folder.glob("*.partial-*"))
        with subprocess.Popen(command, cwd=ROOT, stdout=subprocess.DEVNULL) as process:
            while process.poll() is None:
                saving = set(folder.glob("*.partial-*")) - before
                if saving and (folder / "long_run.h5").exists():
                    break
                time.sleep(0.001)
            process.kill()
        if set(folder.glob("*.partial-*")) - before:
            return
    pytest.fail("no kill hit a save")


def test_a_long_run_goes_on_after_kills_as_if_nothing_had_happened(tmp_path):
    whole, killed = tmp_path / "whole", tmp_path / "killed"
    size = ("--nodes", "24", "--cycles", "1", "--every", "20")
    run_example("long_run", whole, *size)
    command = [sys.executable, str(ROOT / "examples" / "long_run.py"), "--out", str(killed), *size]
    for _ in range(2):
        kill_in_a_save(command, killed)
    printed = run_example("long_run", killed, *size)
    assert re.search(r"goes on at step [1-9]\d* of", printed)
    assert (killed / "long_run.h5").read_bytes() == (whole / "long_run.h5").read_bytes()
    assert sorted(path.name for path in killed.iterdir()) == ["long_run.h5", "long_run.png"]
