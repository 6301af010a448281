"""Checks written files by reading them with the VTK library."""

import drelt
import numpy as np
import pytest
from scenes import make_scene
from vtk_files import read_fluid, read_polydata
from vtkmodules.util.numpy_support import vtk_to_numpy


def test_fluid_file_holds_the_fluid(tmp_path):
    simulator, _, _ = make_scene()
    simulator.mainDataFolderPath = f"{tmp_path}/"
    for _ in range(5):
        simulator.step(drelt.COUPLE_MODE.TWO_WAY)
    simulator.saveScene(3, drelt.SAVE_FLAG.FLUID)
    path = tmp_path / "Fluid" / "0_vis_fluid00003.vtk"
    (nx, ny, nz), origin, spacing, arrays = read_fluid(path)
    assert (nx, ny, nz) == (16, 14, 14)
    np.testing.assert_allclose(spacing, 0.0025)
    assert set(arrays) == {"cell_velocity", "density", "PML_type", "sigma"}

    # the absorbing layer by its definition
    z, y, x = np.indices((nz, ny, nx))
    margin = np.min([x, nx - 1 - x, y, ny - 1 - y, z, nz - 1 - z], axis=0)
    depth = np.clip(2 - margin, 0, None).astype(np.float32)
    sigma = depth * (np.float32(0.01) / np.float32(4) * depth)
    types = arrays["PML_type"][..., 0]
    for name in ("density", "PML_type", "sigma"):
        assert np.array_equal(arrays[name][..., 0], arrays[name][..., 1])
        assert np.array_equal(arrays[name][..., 0], arrays[name][..., 2])
    assert np.array_equal(arrays["sigma"][..., 0], sigma)
    assert np.array_equal(types == 9, margin >= 2)
    assert types[0, 0, 0] == types[-1, -1, -1] == 8
    assert types[5, 5, 0] == 4
    assert types[5, 5, -1] == 5

    # the fluid started at rest with density 1, and the body has set it in motion
    density = arrays["density"][..., 0]
    assert 0 < np.abs(density - 1).max() < 0.1
    assert np.abs(arrays["cell_velocity"]).max() > 1e-5

    # the data follow the text directly, and nothing lies between the blocks
    raw = path.read_bytes()
    start = raw.index(b"VECTORS cell_velocity float\n") + len(b"VECTORS cell_velocity float\n")
    size = 12 * nx * ny * nz
    velocity = np.frombuffer(raw, ">f4", 3 * nx * ny * nz, start).reshape(nz, ny, nx, 3)
    assert np.array_equal(velocity, arrays["cell_velocity"])
    assert raw[start + size :].startswith(b"VECTORS density float\n")


def test_object_file_holds_the_skin(tmp_path):
    simulator, _, body = make_scene()
    simulator.mainDataFolderPath = f"{tmp_path}/"
    simulator.step(drelt.COUPLE_MODE.NO_FLUID)
    simulator.saveObjectsData("skin")
    mesh = read_polydata(tmp_path / "Objects" / "00_skin.vtk")
    positions = vtk_to_numpy(mesh.GetPoints().GetData()).astype(np.float64)
    normals = vtk_to_numpy(mesh.GetPointData().GetNormals())
    assert mesh.GetNumberOfPolys() > 100
    assert len(positions) == len(normals)
    assert mesh.GetPointData().GetTCoords().GetNumberOfTuples() == len(positions)
    # a sphere around the centre of mass; the file has 4 decimals
    offset = positions - body.getCOM()
    radius = np.linalg.norm(offset, axis=1)
    np.testing.assert_allclose(radius, radius.mean(), rtol=0.02)
    assert np.sum(offset * normals, axis=1).min() > 0.9 * radius.mean()

    text = (tmp_path / "Objects" / "00_skin.vtk").read_text().splitlines()
    count = int(text[4].split()[1])
    printed = np.array([line.split() for line in text[5 : 5 + count]], dtype=float)
    np.testing.assert_allclose(positions, printed, rtol=1e-6)
    faces = [line.split() for line in text if line.startswith("3 ")]
    ids = vtk_to_numpy(mesh.GetPolys().GetConnectivityArray()).reshape(-1, 3)
    assert np.array_equal(ids, np.array(faces, dtype=int)[:, 1:])


def test_markers_file_of_a_body_without_markers(tmp_path):
    simulator, _, _ = make_scene()
    simulator.mainDataFolderPath = f"{tmp_path}/"
    simulator.saveObjectsData("skin")
    markers = read_polydata(tmp_path / "Objects" / "markers_0_skin.vtk")
    assert markers.GetNumberOfPoints() == 0


def cells_of(polydata):
    """The point indices of each line."""
    lines = polydata.GetLines()
    ends = vtk_to_numpy(lines.GetOffsetsArray())
    return [list(cell) for cell in np.split(vtk_to_numpy(lines.GetConnectivityArray()), ends[1:-1])]


def points_of(polydata):
    return vtk_to_numpy(polydata.GetPoints().GetData())


def test_lines_file_holds_the_lines(tmp_path):
    rng = np.random.default_rng(3)
    lines, vertices = [], [rng.uniform(-50, 50, (count, 3)) for count in (4, 1, 3)]
    for places in vertices:
        line = drelt.debugLine()
        line.vertices = list(places)
        lines.append(line)
    path = tmp_path / "new" / "lines.vtk"
    assert drelt.VTKWriter.writeLines(lines=lines, file_path=str(path))
    read = read_polydata(path)
    np.testing.assert_allclose(points_of(read), np.concatenate(vertices), rtol=0, atol=5.1e-5)
    assert cells_of(read) == [[0, 1, 2, 3], [4], [5, 6, 7]]


def test_files_that_cannot_be_written_give_false_and_one_warning(tmp_path, capfd):
    (tmp_path / "taken").write_text("a file where a folder is needed")
    path = str(tmp_path / "taken" / "lines.vtk")
    for _ in range(2):
        assert drelt.VTKWriter.writeLines([drelt.debugLine()], path) is False
    printed = capfd.readouterr()
    assert (printed.out, printed.err.count("[warning]")) == ("", 1)


def uniform_b_spline(control, at):
    """Positions and first derivatives of the uniform cubic B-spline at parameters 0 .. n - 3."""
    basis = np.array([[-1, 3, -3, 1], [3, -6, 3, 0], [-3, 0, 3, 0], [1, 4, 1, 0]]) / 6
    places, tangents = [], []
    for parameter in at:
        segment = min(int(parameter), len(control) - 4)
        t = parameter - segment
        coefficients = basis @ control[segment : segment + 4]
        places.append([t**3, t**2, t, 1] @ coefficients)
        tangents.append([3 * t**2, 2 * t, 1, 0] @ coefficients)
    return np.array(places), np.array(tangents)


@pytest.mark.parametrize("make", [drelt.trajectory3d, drelt.make_trajectory])
def test_trajectory_file_holds_the_curve(tmp_path, make):
    control = np.random.default_rng(4).uniform(-2, 2, (6, 3))
    points = [drelt.trajectoryPoint3d() for _ in control]
    for point, place in zip(points, control):
        point.data = place
    trajectory = make()
    trajectory.setPoints(points)
    trajectory.fit()
    path = tmp_path / "trajectory.vtk"
    assert drelt.VTKWriter.writeTrajectory(trajectory=trajectory, file_path=str(path))
    read = read_polydata(path)
    count = 200 * len(control)
    places, tangents = uniform_b_spline(control, 3 * np.arange(count) / count)
    # the file has 4 decimals, and the parameter of the curve is a float
    np.testing.assert_allclose(points_of(read), places, rtol=0, atol=6e-5)
    written = vtk_to_numpy(read.GetPointData().GetVectors("tagents"))
    np.testing.assert_allclose(written, tangents, rtol=0, atol=6e-5)
    assert cells_of(read) == [list(range(count))]
