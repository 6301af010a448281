"""Draws the scenes of test_renderer.py into a folder. Each kind of context needs its own process."""

import dataclasses
import sys
from pathlib import Path

import drelt

ROOT = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "examples"))

WIDTH, HEIGHT = 321, 241  # a row has 963 bytes, which is no multiple of 4
LIGHT = (0.6, 0.4, 2.5)
DIFFUSE, SPECULAR = (0.5, 0.6, 0.7), (0.4, 1, 1)
TOP, BEHIND, AHEAD = 0.7, 0.2, -0.2  # heights of lines
UP = (0, 1, 0)
SWIMMER_CAMERA = (0.15, 0.2, 0.3), (0, 0, 0), UP


def trajectory(*points):
    path = drelt.make_trajectory()
    path.setPoints(control_points(*points))
    return path


def control_points(*points):
    made = []
    for place in points:
        made.append(drelt.trajectoryPoint3d())
        made[-1].data = place
    return made


def level_line(height, z, half=2.0):
    """A line from left to right. Its third point makes a segment that must not be drawn."""
    return trajectory((-half, height, z), (half, height, z), (0, -3, z))


def cube_scenes(out):
    cube = drelt.make_renderer(WIDTH, HEIGHT)
    cube.addCube()
    cube.addTrajectory(trajectory())
    cube.addTrajectory(trajectory((0, 0, 1)))
    cube.setLight(LIGHT, DIFFUSE, SPECULAR)
    file = out / "cube.ppm"
    file.write_bytes(bytes(10**6))  # the frame must replace a longer file
    cube.render()
    cube.savePPM(str(file))
    cube.savePPM(str(out / "no folder" / "cube.ppm"))

    other = drelt.tinyRenderer(width=64, height=48)  # has another size; the two draw in turns
    other.addCube()
    for step in range(3):
        other.setCamera((0, 0, 3 + step), (0, 0, 0), UP)
        other.render()
        cube.render()
    other.savePPM(str(out / "other.ppm"))
    cube.setLight((0, 0, 20), (0, 0, 0), (0, 0, 0))  # only the position still counts
    cube.render()
    cube.savePPM(str(out / "cube_relit.ppm"))
    del other
    cube.setLight(LIGHT)
    cube.render()
    cube.savePPM(str(out / "cube_again.ppm"))

    late = level_line(0, 0)
    cube.addTrajectory(late)
    late.setPoints(control_points((0, -2, TOP), (0, 2, TOP), (0, 2, -1)))
    cube.setCamera((3, 0, 0), (0, 0, 0), (0, 0, 1))
    cube.render()
    cube.savePPM(str(out / "cube_from_the_right.ppm"))


def line_scene(out):
    renderer = drelt.make_renderer(WIDTH, HEIGHT)
    renderer.addTrajectory(level_line(TOP, 0))
    renderer.addTrajectory(level_line(BEHIND, -1))
    renderer.addTrajectory(level_line(AHEAD, 1))
    renderer.addCube()
    renderer.render()
    renderer.savePPM(str(out / "lines.ppm"))


def shape_scene(out):
    """A millimetre-sized triangle before a line, 2 mm ahead of the camera; then the same without the depth."""
    renderer = drelt.make_renderer(WIDTH, HEIGHT)
    flat = [[-1e-3, -1e-3, 0], [1e-3, -1e-3, 0], [0, 1e-3, 0]]
    renderer.addTriangles(flat, [[0, 0, 1]] * 3, (0, 0.5, 1))
    hidden, shown = (
        [[-1e-3, 0, -1e-4], [1e-3, 0, -1e-4]],
        [[-1e-3, -5e-4, -1e-4], [1e-3, -5e-4, -1e-4]],
    )
    renderer.addLines(hidden, (1, 1, 0))
    renderer.addLines(shown, (1, 0, 1), True)
    renderer.addGrid(height=-9e-4, spacing=1e-4, cells=5)
    renderer.addAxes((0.0, 6e-4, 1e-4), 3e-4)
    renderer.setCamera((0, 0, 4e-3), (0, 0, 0), UP)
    renderer.setLight((0, 0, 1), (1, 1, 1), (0, 0, 0))
    renderer.render()  # all is nearer than the near plane
    renderer.savePNG(str(out / "shapes_cut.png"))
    renderer.setDepthFromScene()
    renderer.render()
    renderer.savePNG(str(out / "shapes.png"))
    renderer.savePPM(str(out / "shapes.ppm"))


def swimmer_scenes(out):
    from support import SWIMMERS, make_swimmer
    from swimming import swim

    swimmer = dataclasses.replace(SWIMMERS["swimmer"], box=(1.4, 0.6, 0.8), samples=600)
    simulator, body, dt, _ = make_swimmer("swimmer", swimmer, 16)
    simulator.mainDataFolderPath = f"{out}/"
    renderer = drelt.make_renderer(WIDTH, HEIGHT)
    renderer.addDynamics(body)
    renderer.setCamera(*SWIMMER_CAMERA)
    renderer.setLight(SWIMMER_CAMERA[0])  # a light at the eye: it lights all that the eye sees
    for pose in ("rest", "bent"):
        if pose == "bent":
            list(swim(simulator, body, swimmer, drelt.COUPLE_MODE.NO_FLUID, round(1.3 / dt), dt))
        renderer.render()
        renderer.savePPM(str(out / f"swimmer_{pose}.ppm"))
        simulator.saveObjectsData(pose)
    del body, simulator
    renderer.render()  # the renderer keeps the skin alive
    renderer.savePPM(str(out / "swimmer_kept.ppm"))


if __name__ == "__main__":
    folder = Path(sys.argv[1])
    scenes = sys.argv[2:] or ["cube_scenes", "line_scene", "shape_scene", "swimmer_scenes"]
    for scene in scenes:
        globals()[scene](folder)
