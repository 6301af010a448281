"""Checks what frames show. Mesa's software rasteriser draws them, in a window and without one."""

import os
import shutil
import subprocess
import sys
from pathlib import Path
from types import SimpleNamespace

import drelt
import numpy as np
import pytest
from conftest import ROOT
from PIL import Image
from render_scenes import (
    AHEAD,
    BEHIND,
    DIFFUSE,
    HEIGHT,
    LIGHT,
    SPECULAR,
    SWIMMER_CAMERA,
    TOP,
    WIDTH,
)
from vtk_files import read_polydata
from vtkmodules.util.numpy_support import vtk_to_numpy

SCENES = ROOT / "tests" / "python" / "render_scenes.py"
GREEN = (0, 255, 0)
BACKGROUND = 26  # 0.1 of 255
FOCAL = 1 / np.tan(np.radians(22.5))  # half the image's height at a distance of 1


def draw(command, cwd=ROOT, **variables):
    """What a Python process prints. It sees these environment variables, and no other display."""
    environment = {k: v for k, v in os.environ.items() if "DISPLAY" not in k and k[:4] != "LOGL"}
    environment["PYTHONPATH"] = f"{Path(drelt.__file__).parents[1]}:{SCENES.parent}"
    environment.update(LIBGL_ALWAYS_SOFTWARE="1", OMP_WAIT_POLICY="passive", **variables)
    done = subprocess.run(
        [sys.executable, *map(str, command)],
        cwd=cwd,
        env=environment,
        capture_output=True,
        text=True,
        timeout=300,
        check=False,
    )
    assert done.returncode == 0, done.stdout + done.stderr
    return done.stdout


@pytest.fixture(scope="module")
def surfaceless(tmp_path_factory):
    """The folder of the scenes drawn without a display, and what was printed."""
    if "Failed to" in draw(["-c", "import drelt; drelt.make_renderer(8, 8).render()"]):
        pytest.skip("no EGL context: install libegl1 and libgl1-mesa-dri")
    folder = tmp_path_factory.mktemp("surfaceless")
    return SimpleNamespace(folder=folder, printed=draw([SCENES, folder]))


@pytest.fixture
def display():
    if shutil.which("Xvfb") is None:
        pytest.skip("no Xvfb: install the Debian package xvfb")
    reading, writing = os.pipe()
    server = subprocess.Popen(
        # without -noreset the server restarts when the last window closes, and misses connections
        ["Xvfb", "-displayfd", str(writing), "-noreset", "-nolisten", "tcp"],
        pass_fds=(writing,),
        stderr=subprocess.DEVNULL,
    )
    os.close(writing)
    with os.fdopen(reading) as numbers:
        yield ":" + numbers.readline().strip()
    server.terminate()
    server.wait()


def read_ppm(path):
    """The image (height, width, 3) with its top row first. The file has its bottom row first."""
    magic, sizes, largest, pixels = path.read_bytes().split(b"\n", 3)
    width, height = map(int, sizes.split())
    assert (magic, largest, len(pixels)) == (b"P6", b"255", 3 * width * height)
    return np.frombuffer(pixels, np.uint8).reshape(height, width, 3)[::-1].astype(int)


@pytest.fixture
def image(surfaceless):
    return lambda name: read_ppm(surfaceless.folder / f"{name}.ppm")


def project(points, eye, target, up):
    """Columns and rows of world positions (n, 3), counted from the top left corner of the image."""
    front = np.subtract(target, eye) / np.linalg.norm(np.subtract(target, eye))
    right = np.cross(front, up) / np.linalg.norm(np.cross(front, up))
    seen = (points - np.array(eye)) @ np.array([right, np.cross(right, front), front]).T
    scale = FOCAL * HEIGHT / 2 / seen[:, 2]
    return WIDTH / 2 + scale * seen[:, 0], HEIGHT / 2 - scale * seen[:, 1]


def height_of(row, distance):
    """Height [m] that the centre of a row shows at this distance, for an eye at height 0."""
    return (HEIGHT / 2 - row - 0.5) / (FOCAL * HEIGHT / 2) * distance


def bounds(mask):
    rows, columns = np.nonzero(mask)
    return columns.min(), columns.max() + 1, rows.min(), rows.max() + 1


def front_of_cube():
    """World positions in the plane z = 0.5 that the pixels show, for an eye at (0, 0, 3)."""
    columns, rows = np.meshgrid(np.arange(WIDTH), np.arange(HEIGHT))
    scale = FOCAL * HEIGHT / 2 / 2.5
    x, y = (columns + 0.5 - WIDTH / 2) / scale, (HEIGHT / 2 - rows - 0.5) / scale
    return np.stack([x, y, np.full_like(x, 0.5)], axis=-1)


def phong(points, light, eye=(0, 0, 3), normal=(0, 0, 1)):
    """Colours 0 to 255 of a white surface with red highlights."""
    to_light, to_eye = (
        (v - points) / np.linalg.norm(v - points, axis=-1, keepdims=True)
        for v in (np.array(light), np.array(eye))
    )
    facing = to_light @ normal
    mirrored = 2 * facing[..., None] * normal - to_light
    highlight = np.maximum((mirrored * to_eye).sum(axis=-1), 0) ** 32
    red = highlight[..., None] * (SPECULAR[0], 0, 0)
    return 255 * np.clip(0.1 + facing[..., None] * DIFFUSE + red, 0, 1)


def test_window_and_surfaceless_context_give_the_same_images(surfaceless, display, tmp_path):
    printed = draw([SCENES, tmp_path], DISPLAY=display)
    said = [
        [line for line in text.splitlines() if line.startswith("[Info] renderer")]
        for text in (printed, surfaceless.printed)
    ]
    assert [len(lines) for lines in said] == [1, 1]
    assert ["GLFW" in said[0][0], "EGL" in said[1][0]] == [True, True]
    names = sorted(file.name for file in surfaceless.folder.glob("*.ppm"))
    assert len(names) == 10
    for name in names:
        assert (tmp_path / name).read_bytes() == (surfaceless.folder / name).read_bytes(), name
    wider = "import drelt; r = drelt.make_renderer(16384, 2); r.render(); r.savePPM('wide.ppm')"
    draw(["-c", wider], cwd=tmp_path, DISPLAY=display)
    assert read_ppm(tmp_path / "wide.ppm").shape == (2, 16384, 3), "wider than the display"


def test_cube_is_in_its_place_and_lit(image):
    points = front_of_cube()
    inside = np.abs(points[..., :2]).max(axis=-1)  # perspective hides all faces but the front
    half_pixel = 0.5 * 2.5 / (FOCAL * HEIGHT / 2)
    for name, light in (("cube", LIGHT), ("cube_relit", (0, 0, 20))):
        shown = image(name)
        assert np.all(shown[inside > 0.5 + half_pixel] == BACKGROUND)
        face = inside < 0.5 - half_pixel
        # one level for rounding, one for the interpolation across the triangles
        assert np.abs(shown - phong(points, light))[face].max() <= 2
    brightest = np.unravel_index(image("cube")[..., 0].argmax(), (HEIGHT, WIDTH))
    assert points[brightest][0] > 0.2, "right of the middle"
    assert points[brightest][1] > 0.1, "above the middle"


def test_renderers_take_turns(image, surfaceless):
    read = [(surfaceless.folder / f"cube{name}.ppm").read_bytes() for name in ("", "_again")]
    assert read[0] == read[1], "the other renderer has come and gone"
    lit = image("other").max(axis=-1) != BACKGROUND
    left, right, top, bottom = bounds(lit)
    edge = FOCAL * 24 / 4.5  # half the width of the front face, seen from (0, 0, 5), in pixels
    assert lit.shape == (48, 64)
    assert (right - left, bottom - top) == (pytest.approx(edge, abs=1), pytest.approx(edge, abs=1))
    assert (left + right, top + bottom) == (64, 48)


def test_nearer_surfaces_hide_what_is_behind(image):
    shown = image("lines")
    green = np.all(shown == GREEN, axis=-1)
    assert set(np.unique(shown[green], axis=0).ravel()) == {0, 255}
    heights = []
    for row in np.nonzero(green.any(axis=1))[0]:
        covered = np.all(green[row]), np.any(green[row, WIDTH // 2 - 55 : WIDTH // 2 + 55])
        for name, height, distance, seen in (
            ("above", TOP, 3, (True, True)),
            ("behind", BEHIND, 4, (False, False)),
            ("ahead", AHEAD, 2, (True, True)),
        ):
            if abs(height_of(row, distance) - height) < 0.02:
                assert covered == seen, name
                heights.append(name)
    assert heights == ["above", "behind", "ahead"], "three lines, without the last segments"
    assert np.count_nonzero(green.any(axis=1)) == 3, "the last segments are left out"


def test_camera_moves_and_late_lines_take_the_points_of_the_next_frame(image):
    shown = image("cube_from_the_right")
    green = np.all(shown == GREEN, axis=-1)
    rows = np.unique(np.nonzero(green)[0])
    assert [height_of(row, 3) for row in rows] == [pytest.approx(TOP, abs=0.01)], "z points up"
    cube = (shown.max(axis=-1) != BACKGROUND) & ~green
    assert np.count_nonzero(cube) ** 0.5 == pytest.approx(FOCAL * HEIGHT / 5, abs=1)


def test_swimmer_is_drawn_in_its_pose(image, surfaceless):
    poses = []
    for pose in ("rest", "bent"):
        shown = image(f"swimmer_{pose}")
        lit = np.any(np.abs(shown - BACKGROUND) > 1, axis=-1)
        files = list(surfaceless.folder.glob(f"Objects/[0-9]*_{pose}.vtk"))
        assert len(files) == 2, "body and fin"
        skin = np.vstack([vtk_to_numpy(read_polydata(f).GetPoints().GetData()) for f in files])
        columns, rows = project(skin, *SWIMMER_CAMERA)
        expected = columns.min(), columns.max(), rows.min(), rows.max()
        # the fin's tips and edges are thinner than a pixel
        np.testing.assert_allclose(bounds(lit), expected, atol=2.5)
        near = np.any([np.roll(lit, (i, j), (0, 1)) for i in (-1, 0, 1) for j in (-1, 0, 1)], 0)
        assert near[rows.astype(int), columns.astype(int)].mean() > 0.97
        assert len(np.unique(shown[lit][:, 2])) > 50, "shaded"
        poses.append(lit)
    assert np.count_nonzero(poses[0] ^ poses[1]) > 0.2 * np.count_nonzero(poses[0])
    assert np.array_equal(image("swimmer_kept"), image("swimmer_bent"))


def test_shaders_are_looked_for_where_the_environment_says(surfaceless, tmp_path):
    missing = draw([SCENES, tmp_path, "line_scene"], LOGL_ROOT_PATH=str(tmp_path))
    assert missing.count("ERROR::SHADER::FILE_NOT_SUCCESFULLY_READ\n") == 2
    assert missing.count("ERROR::PROGRAM_LINKING_ERROR of type: PROGRAM\n") == 2
    assert np.all(read_ppm(tmp_path / "lines.ppm") == BACKGROUND), "nothing can be drawn"

    shutil.copytree(ROOT / "src" / "tinyRenderer" / "shaders", tmp_path / "shaders")
    below = tmp_path / "three" / "folders" / "below"
    below.mkdir(parents=True)
    (tmp_path / "shaders" / "flat.fs").write_text("#version 330 core\nwrong")
    broken = draw([SCENES, tmp_path, "line_scene"], cwd=below, LOGL_ROOT_PATH="")
    assert broken.count("ERROR::SHADER_COMPILATION_ERROR of type: FRAGMENT\n") == 1
    assert "\n -- --------------------------------------------------- -- \n" in broken
    shown = read_ppm(tmp_path / "lines.ppm")
    assert not np.any(np.all(shown == GREEN, axis=-1))
    assert np.any(shown != BACKGROUND), "the cube's shader is whole"


def test_what_cannot_be_drawn_is_refused(tmp_path):
    for size, side in (((0, 10), 0), ((10, -1), -1), ((16385, 10), 16385), ((10, 10**5), 10**5)):
        with pytest.raises(ValueError, match=f"{side} pixels; give 1 to 16384"):
            drelt.make_renderer(*size)
    renderer = drelt.make_renderer(8, 8)
    with pytest.raises(ValueError, match="dynamics"):
        renderer.addDynamics(None)
    with pytest.raises(ValueError, match="trajectory"):
        renderer.addTrajectory(None)
    with pytest.raises(RuntimeError, match=r"call render\(\) first"):
        renderer.savePPM(str(tmp_path / "frame.ppm"))
    assert not (tmp_path / "frame.ppm").exists()

    nowhere = "import drelt; r = drelt.make_renderer(8, 8); r.addCube(); r.render(); r.render()\n"
    nowhere += "try: r.savePPM('frame.ppm')\nexcept RuntimeError as error: print(error)"
    printed = draw(["-c", nowhere], cwd=tmp_path, __EGL_VENDOR_LIBRARY_DIRS=str(tmp_path))
    assert printed.startswith("Failed to create GLFW window\n'frame.ppm' cannot be saved")
    assert "this machine gave render() no OpenGL 3.3 context" in printed


def test_frame_that_cannot_be_written_gives_one_warning(surfaceless, tmp_path):
    (tmp_path / "full.ppm").symlink_to("/dev/full")
    script = "import os, drelt; os.dup2(1, 2); r = drelt.make_renderer(8, 8); r.render()\n"
    script += "for name in ('missing/a.ppm', 'missing/b.ppm', 'full.ppm'): r.savePPM(name)"
    printed = draw(["-c", script], cwd=tmp_path)
    warnings = [line for line in printed.splitlines() if "[warning]" in line]
    assert len(warnings) == 2
    assert "'missing/a.ppm' cannot be written: No such file or directory" in warnings[0]
    assert "'full.ppm' cannot be written: No space left on device" in warnings[1]
    assert not (tmp_path / "missing").exists()


def test_shapes_show_in_their_colours_and_depth_follows_the_scene(surfaceless, image):
    cut = np.array(Image.open(surfaceless.folder / "shapes_cut.png")).astype(int)
    assert (cut == BACKGROUND).all()
    shapes = np.array(Image.open(surfaceless.folder / "shapes.png")).astype(int)
    assert np.array_equal(shapes, image("shapes"))
    middle, column = HEIGHT // 2, WIDTH // 2
    # ambient light adds a tenth; the line at the height of the eye lies behind the triangle
    assert np.abs(shapes[middle, column - 9] - [0, 140, 255]).max() < 8
    magenta = (shapes == [255, 0, 255]).all(axis=2)
    row = round(middle + 5e-4 / 4.1e-3 * FOCAL * HEIGHT / 2)
    assert magenta[row - 1 : row + 2, column].any() and not magenta[: row - 2].any()
    assert (shapes == [89, 89, 89]).all(axis=2).sum() > 100  # the grid
    assert (shapes == [255, 0, 0]).all(axis=2)[:middle].any()  # the x axis, before the triangle


def test_shapes_that_cannot_be_drawn_are_refused():
    renderer = drelt.make_renderer(8, 8)
    with pytest.raises(ValueError, match="two for each line"):
        renderer.addLines(np.zeros((3, 3)))
    with pytest.raises(ValueError, match="not finite"):
        renderer.addLines(np.full((2, 3), np.nan))
    with pytest.raises(ValueError, match="three of each"):
        renderer.addTriangles(np.zeros((3, 3)), np.zeros((2, 3)))
    with pytest.raises(ValueError, match="near one first"):
        renderer.setDepthRange(1, 0.5)
    with pytest.raises(ValueError, match="1 to 1000 cells"):
        renderer.addGrid(cells=0)
    with pytest.raises(RuntimeError, match=r"call render\(\) first"):
        renderer.savePNG("nothing.png")
