"""Mistakes in the use of the simulator raise an exception or print a warning."""

import gc
import math

import drelt
import numpy as np
import pytest

HOST = -1  # the device of host threads


def make_params(n=8, **changes):
    """A box of 0.039 x 0.034 x 0.034 m, two diameters of the sphere long."""
    params = drelt.make_simParams()
    params.setup_mode = drelt.SETUP_MODE.MANUAL
    params.N, params.l0p = n, 0.02
    params.u0k, params.u0p = 0.05, 0.1
    params.visp, params.rou0p = 4e-5, 1000.0
    params.width, params.height, params.depth = 0.039, 0.034, 0.034
    for name, value in changes.items():
        setattr(params, name, value)
    return params


def make_body(asset="sphere", at=(0, 0, 0)):
    description = drelt.skeletonFromJson(f"assets/{asset}.json", HOST)
    return drelt.make_skDynamics(description, 400, HOST, at, np.zeros(3), np.ones(3))


def make_world(*bodies):
    world = drelt.make_skWorld([0.5, 0, 0])
    for body in bodies or (make_body(),):
        world.addSkeleton(body)
    return world


def run(params, steps=5):
    """Velocities of the body after some steps."""
    simulator, world = drelt.make_simulator(params, HOST), make_world()
    simulator.attachWorld(world)
    simulator.commitInit()
    for _ in range(steps):
        simulator.step(drelt.COUPLE_MODE.TWO_WAY)
    return world.getSkeleton(0).getVelocities().tolist()


def test_reused_parameters_work_like_new_ones():
    expected = run(make_params(12))
    reused = make_params(8)
    reused.get_tp()
    drelt.make_simulator(reused, HOST).log()
    reused.N = 12
    assert run(reused) == expected
    reused = make_params(12, l0p=0.03)
    reused.get_tp()
    reused.l0p = 0.02
    assert run(reused) == expected


def test_derived_values_follow_what_they_were_derived_from():
    params = make_params(u0p=-1)
    assert params.get_tp() == pytest.approx(0.0003)
    first = params.u0p
    params.N, params.u0k = 16, 0.1  # half the spacing, twice the lattice velocity
    assert params.get_tp() == pytest.approx(0.0003)
    assert params.u0p == pytest.approx(first)
    params.u0p = first
    params.N = 8
    assert params.get_tp() == pytest.approx(0.0006), "an assigned u0p stays"

    params = drelt.make_simParams()
    params.get_tp()  # GRAVITY without a node spacing derives nonsense
    params.setup_mode = drelt.SETUP_MODE.MANUAL
    assert params.get_tp() == pytest.approx(0.0003)
    assert (params.N, params.l0p) == (256, 4)


def test_a_grid_that_no_longer_fits_its_parameters_is_refused(capfd):
    params = make_params(8)
    simulator = drelt.make_simulator(params, HOST)
    simulator.attachWorld(make_world())
    params.N = 16
    with pytest.raises(ValueError, match=r"made with a node spacing of 0\.0025 m, .* 0\.00125 m"):
        simulator.commitInit()
    params.N = 8
    params.width, params.visp = 0.05, 8e-5
    capfd.readouterr()
    simulator.commitInit()
    said = capfd.readouterr().err
    assert "keeps width 0.039 (now 0.05), lattice viscosity 0.008 (now 0.016)" in said
    assert said.count("[warning]") == 1


@pytest.mark.parametrize(
    ("name", "value", "right"),
    [("visp", -4e-5, 4e-5), ("slip_ratio", 7.0, 0.0), ("slip_ratio", -3.0, 0.5)],
)
def test_a_wrong_number_cannot_be_corrected_past_the_record(name, value, right):
    params = make_params(**{name: value})
    simulator = drelt.make_simulator(params, HOST)
    world = make_world()
    simulator.attachWorld(world)
    with pytest.raises(ValueError, match=rf"{name} {value:g}"):
        simulator.commitInit()
    setattr(params, name, right)
    with pytest.raises(ValueError, match="make the simulator anew"):
        simulator.commitInit()
    world.addSkeleton(make_body())  # a refused commit does not lock the world
    assert all(math.isfinite(v) for v in run(params))


def test_a_world_belongs_to_one_simulator_at_a_time():
    world = make_world()
    first, second = (drelt.make_simulator(make_params(), HOST) for _ in range(2))
    for simulator in (first, second):
        simulator.attachWorld(world)
    first.commitInit()
    with pytest.raises(RuntimeError, match="another simulator has committed this world"):
        second.commitInit()
    first.commitInit()
    first.step(drelt.COUPLE_MODE.TWO_WAY)
    del first, simulator
    gc.collect()
    second.commitInit()
    second.step(drelt.COUPLE_MODE.TWO_WAY)
    with pytest.raises(RuntimeError):
        world.addSkeleton(make_body())
    del second
    gc.collect()
    world.addSkeleton(make_body(at=(0.01, 0, 0)))


def test_modes_and_devices_that_are_none_are_refused():
    simulator = drelt.make_simulator(make_params(), HOST)
    simulator.attachWorld(make_world())
    simulator.commitInit()
    for mode in (7, -1):
        with pytest.raises(ValueError, match=f"the mode {mode} is none"):
            simulator.step(drelt.COUPLE_MODE(mode))
    assert simulator.getIterNum() == 0
    for device in (77, -2):
        with pytest.raises(ValueError, match=f"make_simulator: device id {device} names no device"):
            drelt.make_simulator(make_params(), device)


def test_bodies_outside_the_box_are_said_once(capfd):
    inside, outside = make_body(), make_body("sphere_floating", at=(0.03, 0, 0))
    simulator = drelt.make_simulator(make_params(), HOST)
    simulator.attachWorld(make_world(inside, outside))
    capfd.readouterr()
    simulator.commitInit()
    said = capfd.readouterr().err
    assert "samples of body 1 ('assets/sphere.glb') lie outside the fluid box" in said
    assert said.count("[warning]") == 1
    inside.setHead([0, 0, 0.05], [1, 0, 0])
    for _ in range(130):
        simulator.step(drelt.COUPLE_MODE.ONE_WAY)
    said = capfd.readouterr().err
    assert "body 0 (" in said
    assert said.count("[warning]") == 1


def test_bodies_inside_the_box_are_not_said(capfd):
    assert run(make_params(), steps=65)
    assert "[warning]" not in capfd.readouterr().err


def test_body_that_leaves_the_box_is_named_before_its_divergence(capfd):
    params = make_params(u0k=0.1, width=0.079, height=0.059, depth=0.059)
    simulator, world = drelt.make_simulator(params, HOST), make_world()
    world.setGravity([80.0, 0, 0])
    simulator.attachWorld(world)
    simulator.commitInit()
    with pytest.raises(RuntimeError, match="diverged"):
        for _ in range(60):
            simulator.step(drelt.COUPLE_MODE.TWO_WAY)
    assert "lie outside the fluid box" in capfd.readouterr().err


def test_two_equal_bodies_print_nothing_at_verbosity_zero(capfd):
    drelt.setVerbosity(0)
    try:
        make_world(make_body(), make_body(at=(0.02, 0, 0)))
    finally:
        drelt.setVerbosity(1)
    assert capfd.readouterr().out == ""
