"""The options of a simulation: what is refused, and what each does in a small run."""

import json
import sys

import drelt
import numpy as np
import pytest
from conftest import ROOT
from scenes import HOST, make_body, make_params
from vtk_files import read_fluid

sys.path.insert(0, str(ROOT / "tools"))

# they lie beside the generator
from assetgen.asset import Asset, write_asset
from assetgen.skeleton import Joint
from assetgen.sphere import sphere_chain, sphere_mesh

CHARACTERISTIC = drelt.OPEN_PLANES.CHARACTERISTIC
SEMI_IMPLICIT = drelt.COUPLING.SEMI_IMPLICIT
STREAM = {"open_planes": CHARACTERISTIC, "current": [0.1, 0, 0], "pml_width": 0}


def attached(params, gravity=(0.5, 0, 0), asset="sphere", body=None):
    simulator = drelt.make_simulator(params, HOST)
    world = drelt.make_skWorld(gravity)
    body = body or make_body(samples=400, asset=asset)
    world.addSkeleton(body)
    simulator.attachWorld(world)
    return simulator, world, body


def fluid(simulator, folder):
    """Momentum per node [lattice units] and density, arrays of nz x ny x nx."""
    simulator.mainDataFolderPath = f"{folder}/"
    simulator.saveFluidData("now")
    arrays = read_fluid(folder / "Fluid" / "0_now.vtk")[3]
    return arrays["cell_velocity"], arrays["density"][..., 0]


def speed_after(steps, **options):
    simulator, _, body = attached(make_params(**options))
    simulator.commitInit()
    for _ in range(steps):
        simulator.step(drelt.COUPLE_MODE.TWO_WAY)
    return body.getVelocities()[0]


def test_defaults_are_the_plain_step():
    params = drelt.make_simParams()
    assert params.coupling == drelt.COUPLING.EXPLICIT
    assert params.weights == drelt.WEIGHTS.AREA
    assert params.open_planes == drelt.OPEN_PLANES.COPY
    assert (params.retraction, params.far_density) == (0, 1)
    given = params.current
    given[0] = 3
    assert params.current.tolist() == [0, 0, 0], "reading gives a copy"
    params.current = (1, 2, 3)
    assert params.current.tolist() == [1, 2, 3]
    with pytest.raises(TypeError):
        params.current = [1, 2]


@pytest.mark.parametrize(
    ("options", "message"),
    [
        ({"retraction": -0.5}, r"retraction is -0\.5 node spacings"),
        ({"retraction": np.inf}, "retraction is inf"),
        ({"retraction": 4.2}, r"0\.0105 m, more than half the largest extent of body 0"),
        ({"current": [0.1, 0, 0]}, r"current is \(0\.1, 0, 0\) m/s, but the open planes copy"),
        ({"current": [0, np.nan, 0], "open_planes": CHARACTERISTIC}, "three finite numbers"),
        # 0.05 / 0.1 lattice units to 1 m/s
        (
            {"current": [0, 0.36, 0], "open_planes": CHARACTERISTIC},
            r"speed of 0\.18 .* more than 0\.173205",
        ),
        ({"far_density": np.nan, "open_planes": CHARACTERISTIC}, "far_density is nan"),
        ({"far_density": 1.2, "open_planes": CHARACTERISTIC}, r"far_density is 1\.2"),
        ({"far_density": 1.05}, "nothing holds it"),
        ({"coupling": drelt.COUPLING(5)}, "coupling is 5; give a member of COUPLING"),
        ({"open_planes": drelt.OPEN_PLANES(3)}, "open_planes is 3"),
        (
            {"weights": drelt.WEIGHTS.NORMALISED},
            "set coupling to SEMI_IMPLICIT, or weights to AREA",
        ),
        ({"weights": drelt.WEIGHTS(2)}, "weights is 2; give a member of WEIGHTS"),
    ],
)
def test_a_refused_option_changes_nothing(options, message):
    params = make_params(**options)
    simulator, world, body = attached(params)
    with pytest.raises(ValueError, match=message):
        simulator.commitInit()
    with pytest.raises(RuntimeError, match="not initialised"):
        simulator.step(drelt.COUPLE_MODE.TWO_WAY)
    world.addSkeleton(make_body(samples=0))  # not locked
    plain = drelt.make_simParams()
    for name in options:
        setattr(params, name, getattr(plain, name))
    simulator.commitInit()
    simulator.step(drelt.COUPLE_MODE.TWO_WAY)
    assert np.isfinite(body.getVelocities()).all()


def test_a_retracted_body_falls_faster_and_looks_the_same(tmp_path, capfd):
    def fall(simulator, body):
        for _ in range(60):
            simulator.step(drelt.COUPLE_MODE.TWO_WAY)
        return body.getVelocities()[0]

    params = make_params()
    simulator, _, body = attached(params)
    simulator.commitInit()
    on_skin = fall(simulator, body)

    params.retraction = 0.8
    retracted, _, body = attached(params)
    retracted.commitInit()
    # a radius of 4 spacings acts like 4.85 on the skin, 4.05 retracted: 1.7 times the volume
    assert 1.3 * on_skin < fall(retracted, body) < 1.9 * on_skin
    retracted.mainDataFolderPath = f"{tmp_path}/"
    retracted.saveObjectsData("body")
    rows = (tmp_path / "Objects" / "00_body.vtk").read_text().split("\n")
    start = next(i for i, row in enumerate(rows) if row.startswith("POINTS"))
    count = int(rows[start].split()[1])
    skin = np.array([row.split() for row in rows[start + 1 : start + 1 + count]], float)
    radii = np.linalg.norm(skin - skin.mean(axis=0), axis=1)
    assert radii.min() == pytest.approx(0.01, rel=0.02)

    params.retraction = 0
    retracted.reset()
    retracted.commitInit()
    assert fall(retracted, body) == on_skin, "a second commit takes the new value"
    assert "retraction" not in capfd.readouterr().err


def test_a_skin_with_normals_that_point_inwards_is_said(tmp_path, capfd):
    mesh = sphere_mesh(0.01)
    mesh.normals = -mesh.normals
    tree = sphere_chain(Joint("floating"))
    write_asset(Asset("turned", "turned", mesh, tree, 400, 1.0), tmp_path, tmp_path)
    zero = np.zeros(3)
    description = drelt.skeletonFromJson(str(tmp_path / "turned.json"), HOST)
    body = drelt.SkeletonDynamics(description, 400, HOST, zero, zero)
    simulator, _, _ = attached(make_params(retraction=0.8), body=body)
    simulator.commitInit()
    assert "no sample of body 0" in capfd.readouterr().err
    simulator.step(drelt.COUPLE_MODE.TWO_WAY)
    assert np.isfinite(body.getVelocities()).all()


@pytest.mark.parametrize("schedule", ["operators", "production"])
def test_the_fluid_starts_with_the_current_and_keeps_it(tmp_path, monkeypatch, schedule):
    monkeypatch.setenv("DRELT_SCHEDULE", schedule)
    params = make_params(**STREAM)
    simulator, _, body = attached(params, gravity=(0, 0, 0), asset="sphere")
    simulator.commitInit()
    assert simulator.getCurrent().tolist() == [0.1, 0, 0]
    start = np.array([0.05, 0, 0])  # u0k for a current of u0p
    momentum, density = fluid(simulator, tmp_path)
    np.testing.assert_allclose(momentum, np.broadcast_to(start, momentum.shape), atol=1e-7)
    np.testing.assert_allclose(density, 1.0, atol=1e-6)
    for _ in range(30):
        simulator.step(drelt.COUPLE_MODE.TWO_WAY)
    momentum, _ = fluid(simulator, tmp_path)
    assert momentum[..., 0].mean() == pytest.approx(0.05, rel=0.15)
    assert body.getVelocities()[0] > 0.0, "the stream takes the sphere along"

    simulator.reset()
    momentum, _ = fluid(simulator, tmp_path)
    assert abs(momentum - start).max() < 0.005, "at rest in the stream, at the density of the save"


def test_a_grid_that_moves_along_sees_the_same_stream(tmp_path):
    simulator, _, body = attached(make_params(**STREAM), (0, 0, 0), "sphere_follow")
    body.getJoint("bone_00").setVelocity(0, 0.04)
    simulator.commitInit()
    for _ in range(3):
        momentum, _ = fluid(simulator, tmp_path)
        # files hold velocities in the world; little of the sphere has reached the edges of the box yet
        edges = momentum[::13, ::13]
        np.testing.assert_allclose(edges, np.broadcast_to((0.05, 0, 0), edges.shape), atol=1e-3)
        simulator.step(drelt.COUPLE_MODE.TWO_WAY)


def test_a_current_set_later_comes_in_through_the_planes(tmp_path):
    simulator, _, _ = attached(make_params(open_planes=CHARACTERISTIC), gravity=(0, 0, 0))
    for call in (simulator.getCurrent, lambda: simulator.setCurrent([0.1, 0, 0])):
        with pytest.raises(RuntimeError, match="call commitInit first"):
            call()
    simulator.commitInit()
    for wrong in ([np.inf, 0, 0], [0.4, 0, 0]):
        with pytest.raises(ValueError, match="setCurrent: the current"):
            simulator.setCurrent(wrong)
    assert simulator.getCurrent().tolist() == [0, 0, 0]
    simulator.setCurrent([0.1, 0, 0])
    momentum, _ = fluid(simulator, tmp_path)
    assert abs(momentum).max() == 0.0, "the fluid inside is still at rest"
    for _ in range(100):
        simulator.step(drelt.COUPLE_MODE.ONE_WAY)
    momentum, _ = fluid(simulator, tmp_path)
    assert 0.01 < momentum[..., 0].mean() < 0.06

    plain, _, _ = attached(make_params())
    plain.commitInit()
    with pytest.raises(ValueError, match="open planes copy"):
        plain.setCurrent([0.1, 0, 0])
    plain.setCurrent([0, 0, 0])


def sphere_of_mass(mass, folder):
    """The bundled sphere, with a grid that follows it, with another excess mass [kg]."""
    text = json.loads((ROOT / "assets" / "sphere_follow.json").read_text())
    for link in text["links"].values():
        link["mass"] = mass / 2
    file = folder / "sphere.json"
    file.write_text(json.dumps(text))
    zero = np.zeros(3)
    return drelt.SkeletonDynamics(drelt.skeletonFromJson(str(file), HOST), 400, HOST, zero, zero)


def test_a_sphere_as_heavy_as_the_fluid_goes_with_the_stream(tmp_path):
    params = make_params(**STREAM)
    for refused, change, message in (
        (0.0, {}, "mass"),
        (0.0, {"coupling": SEMI_IMPLICIT, "slip_ratio": 0.3}, "slip"),
        (-0.005, {"coupling": SEMI_IMPLICIT}, r"\[link\]bone_00"),  # 1.2 times the fluid inside
    ):
        body = sphere_of_mass(refused, tmp_path)
        simulator, _, _ = attached(make_params(**STREAM, **change), (0, 0, 0), body=body)
        with pytest.raises(ValueError, match=message):
            simulator.commitInit()

    params.coupling, params.retraction = SEMI_IMPLICIT, 0.8
    body = sphere_of_mass(0.0, tmp_path)
    simulator, _, _ = attached(params, (0, 0, 0), body=body)
    simulator.commitInit()
    for _ in range(100):
        simulator.step(drelt.COUPLE_MODE.TWO_WAY)
        assert body.getVelocities()[0] == pytest.approx(0.1, rel=1e-5)
    with pytest.raises(RuntimeError):
        simulator.step(drelt.COUPLE_MODE.NO_FLUID)  # nothing to move without the fluid


@pytest.mark.parametrize(
    ("option", "later"),
    [
        ("coupling", SEMI_IMPLICIT),
        ("weights", drelt.WEIGHTS.NORMALISED),
        ("retraction", 0.8),
        ("open_planes", CHARACTERISTIC),
        ("far_density", 1.01),
        ("current", [0.1, 0, 0]),
    ],
)
def test_an_option_changed_after_the_commit_stops_the_run_until_it_is_set_back(option, later):
    params = make_params()
    simulator, _, body = attached(params)
    simulator.commitInit()
    before = getattr(params, option)
    setattr(params, option, later)
    with pytest.raises(RuntimeError, match=f"the option {option} was changed after commitInit"):
        simulator.step(drelt.COUPLE_MODE.TWO_WAY)
    assert simulator.getIterNum() == 0
    setattr(params, option, before)
    for _ in range(20):
        simulator.step(drelt.COUPLE_MODE.TWO_WAY)
    assert body.getVelocities()[0] == speed_after(20)
    assert simulator.getCurrent().tolist() == [0, 0, 0]
