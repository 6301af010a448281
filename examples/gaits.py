"""Swimming gaits as joint angles and rates over time.

A body has length 1 and beats with period 1; s runs along it from the nose (0) to the tail (1). A gait
gives the lateral position of the midline. Each segment of the chain of links follows a chord of the
midline. Angles are about the upward axis y, the lateral direction is z, and the head points along +x.
"""

import numpy as np

TWO_PI = 2.0 * np.pi


def ramp(t):
    """Growth of the amplitude from 0 to 1 over the first period, and its rate (per period)."""
    u = np.clip(t, 0.0, 1.0)
    return u * u * (3.0 - 2.0 * u), 6.0 * u * (1.0 - u)


def travelling_wave(envelope, wavelength):
    """The gait y = ramp(t) envelope(s) sin(2 pi (s / wavelength - t)).

    Returns (y, dy/dt) in lengths and lengths per period. The wave runs towards the tail.
    """

    def midline(s, t):
        growth, growth_rate = ramp(t)
        phase = TWO_PI * (s / wavelength - t)
        wave, wave_rate = np.sin(phase), -TWO_PI * np.cos(phase)
        return (
            growth * envelope(s) * wave,
            envelope(s) * (growth_rate * wave + growth * wave_rate),
        )

    return midline


def carling(s, tail=0.125):
    """Envelope of an eel's midline (Carling, Williams and Bowtell, 1998); `tail` is its value at s = 1."""
    return tail * (s + 0.03125) / 1.03125


def carangiform(s):
    """Envelope of a mackerel's midline (Videler and Hess, 1984): 0.1 at the tail, least at 0.25."""
    return 0.02 - 0.0825 * s + 0.1625 * s * s


ANGUILLIFORM_GAIT = travelling_wave(carling, wavelength=1.0)
CARANGIFORM_GAIT = travelling_wave(carangiform, wavelength=0.95)
# At Reynolds numbers of about 1,000 a body of any form swims faster if its whole length undulates
# (Borazjani and Sotiropoulos, J. Exp. Biol. 213, 2010, 89). A large amplitude, for starts from rest.
SPRINT_GAIT = travelling_wave(lambda s: carling(s, tail=0.2), wavelength=1.0)


def segment_slopes(midline, ends, t):
    """Angles of straight segments about y, and their rates (per period).

    ends: positions s of the segments' ends, one more than segments. A segment follows the chord of the
    midline; its slope is the mean of dy/ds over the segment.
    """
    ends = np.asarray(ends, float)
    place, speed = midline(ends, t)
    slope, rate = np.diff(place) / np.diff(ends), np.diff(speed) / np.diff(ends)
    return np.arctan(slope), rate / (1.0 + slope * slope)


def joint_angles(midline, ends, t):
    """Angles and rates (per period) of the joints between neighbouring segments.

    A joint turns the later segment relative to the earlier one. ends may run from head to tail or from
    tail to head, as the bones do: the segments' angles are the same.
    """
    angles, rates = segment_slopes(midline, ends, t)
    return np.diff(angles), np.diff(rates)


def servo_command(midline, ends, t, dt, actual, bend=0.0):
    """Joint rates (per period) for the step from t to t + dt.

    Adds to the gait's rate in the middle of the step a correction that removes the error of the angles
    `actual` within about a fiftieth of a period. bend: additional angle between head and tail, spread
    evenly over the joints; the correction brings it in.
    """
    wanted, _ = joint_angles(midline, ends, t)
    wanted = wanted + bend / len(wanted)
    _, rates = joint_angles(midline, ends, t + 0.5 * dt)
    return rates + 50.0 * (wanted - actual)
