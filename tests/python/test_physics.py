"""Short flows with known answers, run as a script runs them."""

import math

import drelt
import numpy as np
import pytest
from support import ZERO, SettlingSphere, schiller_naumann_speed
from vtk_files import read_fluid

ONE_WAY, TWO_WAY = drelt.COUPLE_MODE.ONE_WAY, drelt.COUPLE_MODE.TWO_WAY


def simulator_around(description, param, samples, gravity=ZERO, out=None):
    """Simulator and body of one description, after commitInit. Files go to the folder out."""
    simulator = drelt.make_simulator(param, 0)
    body = drelt.make_skDynamics(
        drelt.skeletonFromJson(f"assets/{description}.json", 0), samples, 0, ZERO, ZERO, np.ones(3)
    )
    world = drelt.make_skWorld(np.asarray(gravity, float))
    world.addSkeleton(body)
    simulator.attachWorld(world)
    simulator.commitInit()
    if out is not None:
        simulator.mainDataFolderPath = f"{out}/"
    return simulator, body


def parameters(nodes, spacing_count, l0p, u0p, u0k, visp):
    """Parameters of a box with these numbers of nodes and the node spacing l0p / spacing_count."""
    param = drelt.make_simParams()
    param.setup_mode = drelt.SETUP_MODE.MANUAL
    param.l0p, param.N, param.u0p, param.u0k = l0p, spacing_count, u0p, u0k
    param.visp, param.rou0p = visp, 1000.0
    # half a spacing less than the count: rounding then cannot change the number of nodes
    param.width, param.height, param.depth = ((n - 0.5) * l0p / spacing_count for n in nodes)
    return param


def test_settling_sphere_on_fixed_and_following_grid():
    # at 8 nodes per diameter the body acts larger than its mesh, so it settles more slowly
    scene = SettlingSphere("assets/sphere.json", 8, 50.0, (14, 6, 6), samples=400)
    early, late = scene.steps_for(4.0), scene.steps_for(12.0)
    for step in range(1, late + 1):
        scene.simulator.step(TWO_WAY)
        if step == early:
            fixed = scene.speed()
    assert scene.speed() == pytest.approx(0.74, abs=0.03)
    assert scene.speed() < schiller_naumann_speed(50.0)

    # early on, before the open planes have an effect, both grids give the same speed
    scene = SettlingSphere("assets/sphere_follow.json", 8, 50.0, (14, 6, 6), samples=400)
    for _ in range(early):
        scene.simulator.step(TWO_WAY)
    assert scene.speed() == pytest.approx(fixed, rel=0.001)


PERIOD = 1000  # steps
PLATE_SPEED = 0.1  # m/s; 0.01 in lattice units, so the plate moves 1.6 nodes to each side
VISCOSITY = 0.1  # lattice units


def oscillating_plate_vorticity(description, out):
    """Heights above the plate [nodes], and the complex amplitude of the vorticity there."""
    # The plate is 56 nodes long, so its ends stay at least one node inside the box. The stencil of a
    # sample next to an open plane is incomplete, and its force would be too strong.
    param = parameters((60, 80, 12), 16, 0.02, PLATE_SPEED, 0.01, VISCOSITY / 80)
    simulator, body = simulator_around(description, param, 4000, out=out)
    joint = body.getJoint("bone_00")
    rate = 2 * math.pi / PERIOD
    angles, signal = [], []
    for step in range(1, 2 * PERIOD + 1):
        joint.setCommand(np.array([PLATE_SPEED * math.cos(rate * step)]))
        simulator.step(ONE_WAY)
        if step > PERIOD and step % (PERIOD // 8) == 0:
            simulator.saveFluidData("plate")
            sizes, origin, spacing, arrays = read_fluid(f"{out}/Fluid/0_plate.vtk")
            velocity = arrays["cell_velocity"].mean(axis=0)  # over z
            along_y, along_x = (
                np.gradient(velocity[..., 0], axis=0),
                np.gradient(velocity[..., 1], axis=1),
            )
            middle = slice(sizes[0] // 2 - 8, sizes[0] // 2 + 8)
            angles.append(rate * step)
            signal.append((along_x - along_y)[:, middle].mean(axis=1))
    phases = np.exp(1j * np.array(angles))  # over a whole period
    heights = (origin[1] + spacing[1] * np.arange(sizes[1])) / spacing[1]
    return heights, 2 * np.mean(np.array(signal) * phases[:, None], axis=0)


def test_oscillating_plate_on_fixed_and_following_grid(tmp_path):
    # Stokes' second problem: u = U exp(-y/d) cos(wt - y/d), d = sqrt(2 nu / w). The open box does not
    # hold the far field at rest. This adds a motion without vorticity, so the test compares vorticity.
    depth = math.sqrt(2 * VISCOSITY * PERIOD / (2 * math.pi))
    profiles = {}
    for name in ("plate", "plate_follow"):
        heights, vorticity = oscillating_plate_vorticity(name, tmp_path / name)
        fit = (heights > 3) & (heights < 16)
        decay = np.polyfit(heights[fit], np.log(np.abs(vorticity[fit])), 1)[0]
        lag = np.polyfit(heights[fit], np.unwrap(np.angle(vorticity[fit])), 1)[0]
        assert -1 / decay == pytest.approx(depth, rel=0.02), name
        assert 1 / lag == pytest.approx(depth, rel=0.02), name
        profiles[name] = vorticity[fit]
    ratio = np.abs(profiles["plate_follow"]) / np.abs(profiles["plate"])
    assert np.mean(ratio) == pytest.approx(1, abs=0.01)


def test_evenly_accelerated_frame_leaves_the_fluid_at_rest(tmp_path):
    # the grid follows a falling body without samples, and the fluid must stay at rest in the world
    param = parameters((24, 20, 22), 16, 0.02, 0.1, 0.1, 4e-5)
    dt = param.get_tp()
    simulator, body = simulator_around("sphere_follow", param, 0, (0.5, 0.0, 0.0), tmp_path)
    steps = 100
    for _ in range(steps):
        centre = body.getBaseLink().getPosition()[0]  # the grid moves before the bodies do
        simulator.step(ONE_WAY)
    simulator.saveFluidData("frame")
    sizes, origin, _, arrays = read_fluid(tmp_path / "Fluid" / "0_frame.vtk")
    speed = 0.5 * steps * dt
    assert body.getVelocities()[0] == pytest.approx(speed, rel=1e-6)
    inner = (slice(2, -2),) * 3
    # the file holds the velocity in the inertial frame: zero for any motion of the grid
    assert np.abs(arrays["cell_velocity"][inner]).max() < 1e-6
    assert np.abs(arrays["density"][inner] - 1).max() < 1e-6
    assert origin[0] + param.width / 2 == pytest.approx(centre, abs=1e-6)


def test_jerked_sphere_sends_sound_at_the_lattice_speed(tmp_path):
    param = parameters((96, 96, 96), 12, 0.02, 0.1, 0.1, 1e-4)
    simulator, body = simulator_around("sphere", param, 400, out=tmp_path)
    joint = body.getJoint("bone_00")
    joint.setVelocity(0, 0.05)
    for step in range(1, 61):
        simulator.step(ONE_WAY)
        if step == 1:
            joint.setVelocity(0, 0.0)
        if step in (20, 40, 60):
            simulator.saveFluidData("sound")
            sizes, _, _, arrays = read_fluid(tmp_path / "Fluid" / "0_sound.vtk")
            middle = sizes[0] // 2
            ahead = np.abs(arrays["density"][middle, middle, middle:, 0] - 1)
            # the pulse starts at the surface, 6 nodes from the centre; slower motion stays behind it
            behind = 6 + int(0.7 * step / math.sqrt(3))
            peak = behind + np.argmax(ahead[behind:])
            assert peak == pytest.approx(6 + step / math.sqrt(3), abs=1.5), step
