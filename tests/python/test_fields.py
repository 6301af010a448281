"""Fields of the fluid, samples and skins as arrays, and flows set from arrays."""

import gc
import sys

import drelt
import numpy as np
import pytest
from scenes import make_body, make_params, make_scene
from vtk_files import read_fluid, read_polydata
from vtkmodules.util.numpy_support import vtk_to_numpy

LATTICE, SI = drelt.UNITS.LATTICE, drelt.UNITS.SI
ONE_WAY, TWO_WAY = drelt.COUPLE_MODE.ONE_WAY, drelt.COUPLE_MODE.TWO_WAY
SPACING, SPEED_UNIT = 0.0025, 2.0  # of the scene [m], and 0.1 m/s over 0.05
ALL_FIELDS = ("getVelocity", "getDensity", "getPressure", "getSpreadForce")


@pytest.fixture(params=["production", "operators"])
def _schedule(request, monkeypatch):
    monkeypatch.setenv("DRELT_SCHEDULE", request.param)


def still_box(nodes, u0k=0.1, viscosity=0.02, **options):
    """A fixed box of (nx, ny, nz) nodes with the viscosity in lattice units and a body without samples."""
    size = dict(zip(("width", "height", "depth"), (SPACING * (n - 0.5) for n in nodes)))
    visp = viscosity * (0.1 / u0k) * SPACING
    params = make_params(u0k=u0k, visp=visp, pml_width=0, **{**size, **options})
    simulator, world = drelt.make_simulator(params, -1), drelt.make_skWorld([0, 0, 0])
    world.addSkeleton(make_body(samples=0, asset="sphere"))
    simulator.attachWorld(world)
    simulator.commitInit()
    return simulator


@pytest.mark.usefixtures("_schedule")
def test_fields_are_those_of_the_file(tmp_path):
    simulator, _, body = make_scene()
    simulator.mainDataFolderPath = f"{tmp_path}/"
    for _ in range(5):
        simulator.step(TWO_WAY)
    simulator.saveFluidData("now")
    sizes, origin, spacing, arrays = read_fluid(tmp_path / "Fluid" / "0_now.vtk")
    assert simulator.getGridShape() == sizes[::-1]
    np.testing.assert_allclose(simulator.getGridOrigin(), origin, atol=1e-7)
    assert simulator.getGridSpacing() == pytest.approx(spacing[0])
    assert np.array_equal(simulator.getLayerTypes(), arrays["PML_type"][..., 0])

    density, velocity = simulator.getDensity(LATTICE), simulator.getVelocity(LATTICE)
    assert np.array_equal(density, arrays["density"][..., 0])
    frame = simulator.getGridVelocity()
    np.testing.assert_allclose(frame, body.getCOMLinearVelocity(), rtol=1e-6, atol=1e-12)
    momentum = velocity * density[..., None] + frame / SPEED_UNIT
    np.testing.assert_allclose(momentum, arrays["cell_velocity"], rtol=1e-5, atol=3e-9)
    assert np.abs(velocity).max() > 1e-5
    np.testing.assert_allclose(simulator.getVelocity(), velocity * SPEED_UNIT, rtol=1e-6)
    np.testing.assert_allclose(simulator.getDensity(SI), density * 1000, rtol=1e-6)
    pressure = (density.astype(float) - 1) / 3 * 1000 * SPEED_UNIT**2
    np.testing.assert_allclose(simulator.getPressure(), pressure, rtol=1e-5, atol=1e-9)

    kept, at = simulator.getDensity(), simulator.getDensity()[3, 4, 5]
    del simulator, body
    gc.collect()
    assert kept[3, 4, 5] == at


@pytest.mark.usefixtures("_schedule")
def test_reading_leaves_a_run_as_it_is():
    ends = []
    for reads in (False, True):
        simulator, _, body = make_scene()
        for step in range(24):
            if step == 12:
                simulator.reset()
            if reads:
                for name in ALL_FIELDS:
                    assert np.isfinite(getattr(simulator, name)()).all()
                body.getSampleVelocities(), body.getSampleForces(), body.getSkinVertices()
            simulator.step(TWO_WAY)
        values = [getattr(simulator, name)() for name in ALL_FIELDS]
        ends.append([*values, body.getVelocities(), body.getSamplePositions()])
    for without, read in zip(*ends):
        assert np.array_equal(without, read)


def test_samples_and_skin_are_those_of_the_body(tmp_path):
    simulator, _, body = make_scene()
    assert not simulator.getSpreadForce().any()
    for _ in range(3):
        simulator.step(TWO_WAY)
    positions, forces = body.getSamplePositions(), body.getSampleForces()
    assert positions.shape == forces.shape == (len(body.getSampleLinks()), 3)
    # the sphere falls without turning
    np.testing.assert_allclose(
        body.getSampleVelocities(), np.tile(body.getCOMLinearVelocity(), (len(positions), 1))
    )
    radius = np.linalg.norm(positions - body.getCOM(), axis=1)
    np.testing.assert_allclose(radius, 0.01, rtol=0.02)
    assert body.getSampleArea() * len(positions) == pytest.approx(0.907 * np.pi * 4e-4, rel=0.02)

    spread = simulator.getSpreadForce()
    assert abs(forces[:, 0].sum()) > 1e-6
    np.testing.assert_allclose(
        spread.sum((0, 1, 2)) * SPACING**3, forces.sum(0), rtol=1e-5, atol=1e-9
    )
    unit = 1000 * SPEED_UNIT**2 / SPACING
    np.testing.assert_allclose(simulator.getSpreadForce(LATTICE) * unit, spread, rtol=1e-6)
    simulator.reset()
    assert not body.getSampleForces().any()

    simulator.mainDataFolderPath = f"{tmp_path}/"
    simulator.saveObjectsData("skin")
    vertices, faces = body.getSkinVertices(), body.getSkinFaces()
    written = read_polydata(tmp_path / "Objects" / "00_skin.vtk")
    np.testing.assert_allclose(vtk_to_numpy(written.GetPoints().GetData()), vertices, atol=6e-5)
    ids = vtk_to_numpy(written.GetPolys().GetConnectivityArray()).reshape(-1, 3)
    assert np.array_equal(ids, faces)
    # all but the world and the frame of the grid have a share of the skin
    names = body.getLinkNames()
    for links in (body.getSkinFaceLinks(), body.getSampleLinks()):
        assert {names[i] for i in links} == set(names[1:-1])


def test_dataset_has_the_fields_over_metres(monkeypatch):
    simulator, _, _ = make_scene()
    simulator.step(TWO_WAY)
    with monkeypatch.context() as hidden:
        hidden.setitem(sys.modules, "xarray", None)
        with pytest.raises(ImportError, match="pip install xarray"):
            simulator.toDataset()
    pytest.importorskip("xarray")
    data = simulator.toDataset()
    assert data.velocity.dims == ("z", "y", "x", "component")
    assert np.array_equal(data.velocity.sel(component="y"), simulator.getVelocity()[..., 1])
    assert np.array_equal(data.density, simulator.getDensity())
    np.testing.assert_allclose(data.x[0], simulator.getGridOrigin()[0])
    np.testing.assert_allclose(np.diff(data.z), SPACING, rtol=1e-5)
    assert (data.attrs["steps"], data.velocity.units) == (1, "m/s")


def test_bad_fields_are_refused_and_change_nothing():
    params = make_params()
    early = drelt.make_simulator(params, -1)
    for name in (*ALL_FIELDS, "getLayerTypes", "getGridOrigin", "toDataset"):
        with pytest.raises(RuntimeError, match=f"{name}: .*call commitInit first"):
            getattr(early, name)()
    simulator, _, _ = make_scene()
    simulator.step(TWO_WAY)
    before = simulator.getVelocity()
    still = np.zeros_like(before)

    def at_one_node(value, scalar=False):
        field = np.ones(still.shape[:3]) * 1000 if scalar else still.copy()
        field[3, 4, 5] = value
        return field

    for message, arguments in (
        (r"shape \(14, 14, 16\); the grid needs \(14, 14, 16, 3\)", (still[..., 0],)),
        (r"density has the shape \(3,\)", (still, np.ones(3))),
        (r"\(5, 4, 3\) is \(nan, nan, nan\); give finite", (at_one_node(np.nan),)),
        (r"speed of 0.2 in lattice units .* more than 0.173", (at_one_node((0, 0.4, 0)),)),
        (r"density at node .* is 0; give", (still, at_one_node(0, scalar=True))),
        (r"density at node .* is inf; give", (still, at_one_node(np.inf, scalar=True))),
    ):
        with pytest.raises(ValueError, match=message):
            simulator.setFields(*arguments)
    with pytest.raises(ValueError, match="give a member of UNITS"):
        simulator.getVelocity(drelt.UNITS(7))
    assert np.array_equal(simulator.getVelocity(), before)


def vortices(nx, ny, nz, wavelength, speed):
    """Taylor and Green's vortices in the planes of constant z, and the density of their pressure."""
    k = 2 * np.pi / wavelength
    x, y = np.arange(nx)[None, None, :], np.arange(ny)[None, :, None]
    velocity = np.zeros((nz, ny, nx, 3))
    velocity[..., 0] = speed * np.sin(k * x) * np.cos(k * y)
    velocity[..., 1] = -speed * np.cos(k * x) * np.sin(k * y)
    pressure = speed**2 / 4 * (np.cos(2 * k * x) + np.cos(2 * k * y))
    return velocity, np.broadcast_to(1 + 3 * pressure, velocity.shape[:3])


@pytest.mark.usefixtures("_schedule")
def test_set_fields_are_read_back():
    simulator, _, body = make_scene()
    for _ in range(3):
        simulator.step(TWO_WAY)
    nz, ny, nx = simulator.getGridShape()
    velocity, density = vortices(nx, ny, nz, 8, 0.05)
    for _ in range(2):
        place = body.getPositions()
        simulator.setFields(velocity * SPEED_UNIT, density * 1000)
        np.testing.assert_allclose(simulator.getVelocity(LATTICE), velocity, rtol=1e-6, atol=1e-8)
        np.testing.assert_allclose(simulator.getDensity(LATTICE), density, rtol=1e-6)
        assert np.array_equal(body.getPositions(), place)
        simulator.reset()  # waits for the next step, and the fields set now come after it
    simulator.setFields(velocity, units=LATTICE)
    assert np.array_equal(simulator.getDensity(), np.full((nz, ny, nx), 1000, np.float32))


def vortex_amplitude(viscosity, steps, **how):
    """Amplitudes of vortices in the middle of a box, over that at the start, after the given steps."""
    nx, length = 96, 32
    simulator = still_box((nx, nx, 6), viscosity=viscosity)
    velocity, density = vortices(nx, nx, 6, length, 0.03)
    simulator.setFields(velocity, density, units=LATTICE, **how)
    middle = (3, slice(length, 2 * length), slice(length, 2 * length))
    shape, found = velocity[middle], []
    for step in range(1, max(steps) + 1):
        simulator.step(ONE_WAY)
        if step in steps:
            now = simulator.getVelocity(LATTICE)[middle]
            found.append(np.sum(now * shape) / np.sum(shape**2))
    return np.array(found)


def test_vortices_decay_as_theory_says():
    # exp(-2 nu k^2 t); sound from the planes needs 55 steps to the middle
    viscosity, steps = 0.1, np.array([1, 2, 4, 8, 50])
    rate = 2 * viscosity * (2 * np.pi / 32) ** 2
    errors = {
        full: vortex_amplitude(viscosity, steps, non_equilibrium=full) / np.exp(-rate * steps) - 1
        for full in (True, False)
    }
    assert np.abs(errors[True]).max() < 0.002
    assert (np.abs(errors[True]) < 0.1 * np.abs(errors[False]))[:4].all()
