"""The bundled swimmers as live bodies: forks, servo joints, and motion without fluid."""

import dataclasses

import drelt
import numpy as np
import pytest
from gaits import joint_angles
from support import LENGTH, SWIMMERS, make_swimmer
from swimming import swim

NO_FLUID = drelt.COUPLE_MODE.NO_FLUID


def scene(name, nodes=24):
    """A swimmer in a small box."""
    swimmer = dataclasses.replace(SWIMMERS[name], box=(1.4, 0.6, 0.8), samples=600)
    return (swimmer, *make_swimmer(name, swimmer, nodes))


@pytest.mark.parametrize("name", ["swimmer", "eel"])
def test_joints_follow_the_gait_and_nothing_moves_on_without_fluid(name):
    swimmer, simulator, body, dt, _ = scene(name)
    assert body.getNumDofs() == len(swimmer.ends) - 2
    start = np.ravel(body.getCOM())
    steps = round(1.25 / dt)
    states = list(swim(simulator, body, swimmer, NO_FLUID, steps, dt))
    wanted, _ = joint_angles(swimmer.midline, swimmer.ends, steps * dt)
    np.testing.assert_allclose(np.ravel(body.getPositions(False)), wanted, atol=2e-3)
    assert abs(wanted).max() > 0.05
    # the momentum stays zero, so the centre of mass rests up to the error of the first-order
    # integration: 0.005 lengths at these large steps, half of it at half the step
    assert np.linalg.norm(np.ravel(body.getCOM()) - start) < 0.01 * LENGTH
    assert states[-1][3] @ (1, 0, 0) > 0.9  # the head still points forward


def test_a_grid_too_coarse_for_its_links_raises():
    swimmer, simulator, body, dt, _ = scene("swimmer")
    with pytest.raises(RuntimeError, match=r"step \d+ .*link '\[link\].* the motion has diverged"):
        for _ in swim(simulator, body, swimmer, drelt.COUPLE_MODE.TWO_WAY, 200, dt):
            pass
    assert np.isfinite(body.getVelocities()).all()


def test_fork_has_a_weightless_link_and_its_branches():
    _, _, body, _, _ = scene("swimmer")
    fork = body.getLink("[link]caudal::caudal_intermediate_0")
    assert fork.getMass() == pytest.approx(1e-6)
    upper, lower = (body.getLink(f"[link]caudal_intermediate_{k}") for k in range(2))
    assert upper.getMass() == lower.getMass() > 1e-3
    # each link centre lies half-way between the fork, 0.36 L behind the middle, and its lobe's joint
    assert np.ravel(upper.getPosition()) == pytest.approx((-0.079, 0.004, 0.0), abs=1e-6)
    assert np.ravel(lower.getPosition()) == pytest.approx((-0.079, -0.004, 0.0), abs=1e-6)
    assert body.getLink("[link]caudal_intermediate_2") is None
    assert np.ravel(body.getBaseLinkFwd()) == pytest.approx((1.0, 0.0, 0.0), abs=1e-6)


def test_markers_start_on_their_places():
    _, _, body, _, _ = scene("swimmer")
    places = body.getMarkers().getMarkersPos()
    assert np.ravel(places[0]) == pytest.approx((0.1, 0.0, 0.0), abs=1e-6)
    left, right = np.ravel(places[1]), np.ravel(places[2])
    assert left * (1, 1, -1) == pytest.approx(right, abs=1e-6)
