"""Forces of the fluid and power of the joints, as a script reads them."""

import gc
import json
import math

import drelt
import numpy as np
import pytest
from scenes import HOST, make_body, make_params

ZERO = np.zeros(3)
DIAMETER, DENSITY = 0.02, 1000.0
VOLUME = math.pi / 6 * DIAMETER**3
ON_LINK = drelt.FLUID_FORCE.ON_LINK
TWO_WAY, ONE_WAY = drelt.COUPLE_MODE.TWO_WAY, drelt.COUPLE_MODE.ONE_WAY
CUBE = {"width": 0.0787, "height": 0.0787, "depth": 0.0787}  # 32 nodes of 2.5 mm, 4 diameters


def simulator_around(body, gravity=ZERO, **changes):
    simulator = drelt.make_simulator(make_params(**changes), HOST)
    world = drelt.make_skWorld(np.asarray(gravity, float))
    world.addSkeleton(body)
    simulator.attachWorld(world)
    simulator.commitInit()
    return simulator


def driven_sphere(folder):
    """A sphere whose velocity along x is prescribed."""
    with open("assets/sphere.json") as file:
        description = json.load(file)
    description["joints"]["bone_00"]["actuator"] = "velocity"
    path = folder / "driven.json"
    path.write_text(json.dumps(description))
    return drelt.make_skDynamics(
        drelt.skeletonFromJson(str(path), HOST), 800, HOST, ZERO, ZERO, np.ones(3)
    )


@pytest.mark.parametrize("coupling", ["EXPLICIT", "SEMI_IMPLICIT"])
def test_a_falling_sphere_shows_what_moves_it(coupling):
    body = make_body(500)
    assert np.array_equal(body.getFluidWrench(), np.zeros(6))
    simulator = simulator_around(
        body, (0.5, 0, 0), coupling=drelt.COUPLING.__members__[coupling], visp=4e-5, **CUBE
    )
    link = body.getLink("[link]bone_00")
    mass, dt = 2 * link.getMass(), make_params().get_tp()
    speeds = [0.0, 0.0]
    for _ in range(30):
        simulator.step(TWO_WAY)
        speeds.append(body.getCOMLinearVelocity()[0])
        force = body.getFluidWrench(ON_LINK)[0]
        gain = mass * (speeds[-1] - speeds[-2]) / dt
        assert gain - mass * 0.5 == pytest.approx(force, rel=1e-6, abs=1e-9)
    # the fluid inside gains its momentum in the same step, or in the explicit coupling one step later
    late = 1 if coupling == "EXPLICIT" else 0
    gained = DENSITY * VOLUME * (speeds[-1 - late] - speeds[-2 - late]) / dt
    outer = body.getFluidWrench()
    assert outer[0] - body.getFluidWrench(ON_LINK)[0] == pytest.approx(gained, rel=0.02)
    parts = [body.getLink(f"[link]bone_0{i}").getFluidForce() for i in (0, 1)]
    assert sum(parts) == pytest.approx(outer[:3])
    assert body.getJointPower().shape == (0,)  # no actuator
    with pytest.raises(RuntimeError, match="frame without a body"):
        body.getLink("simple_frame").getFluidForce()

    simulator.step(ONE_WAY)
    asked = body.getFluidWrench(ON_LINK)
    assert np.any(asked != 0)
    simulator.reset()
    assert np.array_equal(body.getFluidWrench(), np.zeros(6))
    assert np.array_equal(link.getFluidTorque(), ZERO)


def test_a_link_keeps_its_forces_after_its_body_is_gone():
    body = make_body(500)
    simulator = simulator_around(body, (0.5, 0, 0), **CUBE)
    for _ in range(5):
        simulator.step(ONE_WAY)
    link, other = body.getLink("[link]bone_00"), body.getLink("[link]bone_01")
    force = link.getFluidForce(ON_LINK)
    assert force[0] < 0
    del simulator, body
    gc.collect()
    assert np.array_equal(link.getFluidForce(ON_LINK), force)
    assert other.getFluidForce(ON_LINK)[0] < 0


def test_drag_in_steady_fall_is_weight_less_buoyancy():
    # the mass of the description is that in excess of the fluid, so gravity acts as weight less buoyancy
    body = make_body(400)
    simulator = simulator_around(
        body,
        (0.5, 0, 0),
        u0k=0.1,
        visp=2e-4,
        open_planes=drelt.OPEN_PLANES.CHARACTERISTIC,
        **CUBE,
    )
    for _ in range(3000):
        simulator.step(TWO_WAY)
    weight = 0.5 * 2 * body.getLink("[link]bone_00").getMass()
    assert -body.getFluidWrench()[0] == pytest.approx(weight, rel=0.005)
