"""The gaits of the examples: rates are derivatives, waves run aft, amplitudes are as published."""

import numpy as np
import pytest
from gaits import (
    ANGUILLIFORM_GAIT,
    CARANGIFORM_GAIT,
    SPRINT_GAIT,
    joint_angles,
    ramp,
    segment_slopes,
    servo_command,
)

GAITS = pytest.mark.parametrize(
    ("midline", "tail"), [(ANGUILLIFORM_GAIT, 0.125), (CARANGIFORM_GAIT, 0.1), (SPRINT_GAIT, 0.2)]
)
ENDS = np.linspace(0.0, 1.0, 15)


@GAITS
def test_rates_are_derivatives_of_angles(midline, tail):
    h = 1e-5
    for t in (0.0, 0.3, 0.97, 1.0, 2.41):
        before, _ = joint_angles(midline, ENDS, t - h)
        after, _ = joint_angles(midline, ENDS, t + h)
        _, rates = joint_angles(midline, ENDS, t)
        np.testing.assert_allclose(rates, (after - before) / (2 * h), atol=1e-3)


@GAITS
def test_amplitude_and_direction_of_the_wave(midline, tail):
    t = np.linspace(1.0, 2.0, 2001)
    y = np.array([midline(ENDS, instant)[0] for instant in t])
    assert abs(y[:, -1]).max() == pytest.approx(tail, rel=1e-5)
    # the crest passes the stations in order
    crests = np.unwrap(TURN * t[np.argmax(y[:-1], axis=0)]) / TURN
    assert (np.diff(crests) > 0).all()
    assert crests[-1] - crests[0] == pytest.approx(1.0, abs=0.06)


TURN = 2 * np.pi


def test_ramp_starts_and_ends_smoothly():
    assert [ramp(t) for t in (-1.0, 0.0, 1.0, 7.0)] == [(0, 0), (0, 0), (1, 0), (1, 0)]
    assert ramp(0.5) == (0.5, 1.5)


@GAITS
def test_joints_bend_the_chain_onto_the_midline(midline, tail):
    # forward kinematics: a rotation by a about y takes the tailward direction (-1, 0) in the
    # plane (x, z) to (-cos a, sin a)
    t = 1.7
    angles, _ = segment_slopes(midline, ENDS, t)
    joints, _ = joint_angles(midline, ENDS, t)
    headings = angles[0] + np.concatenate([[0.0], np.cumsum(joints)])
    steps = np.diff(ENDS) / np.cos(headings)
    z = midline(ENDS[0], t)[0] + np.concatenate([[0.0], np.cumsum(steps * np.sin(headings))])
    np.testing.assert_allclose(z, midline(ENDS, t)[0], atol=1e-12)
    # the same, starting from the tail
    backwards, _ = joint_angles(midline, ENDS[::-1], t)
    np.testing.assert_allclose(backwards, -joints[::-1], atol=1e-12)


@GAITS
def test_servo_commands_track_the_gait(midline, tail):
    dt = 1 / 400
    actual = np.full(len(ENDS) - 2, 0.05)  # starts away from the gait
    for step in range(800):
        actual = actual + dt * servo_command(midline, ENDS, step * dt, dt, actual, bend=0.26)
    wanted, _ = joint_angles(midline, ENDS, 2.0)
    np.testing.assert_allclose(
        actual, wanted + 0.02, atol=1e-4
    )  # the bend is divided among 13 joints
