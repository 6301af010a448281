"""Spheres of diameter D = 0.02 m with any excess mass, on any root joint; what theory says of them."""

from __future__ import annotations

import math
from dataclasses import replace

import numpy as np
from assetgen.asset import Asset
from assetgen.skeleton import Joint, chain
from assetgen.sphere import DIAMETER, SAMPLES, sphere_chain, sphere_mesh

from .scene import DENSITY, body_of

VOLUME = math.pi / 6.0 * DIAMETER**3  # m^3
AREA = math.pi / 4.0 * DIAMETER**2  # frontal, m^2
SPEED = 0.1  # the reference speed u_g of a sphere twice as heavy as the fluid, m/s
GRAVITY = 0.5  # u_g^2 / D, m/s^2
TIME = DIAMETER / SPEED  # D/u_g, s

MODEL = "independent model of the scheme"
BASSET = "Basset (1888)"
DRAG_LAW = "Schiller and Naumann (1933)"


def settling_speed(galileo):
    """Terminal speed over u_g = sqrt(|s - 1| g D) for Ga = u_g D / nu (Schiller and Naumann, 1933).

    Balance of drag and weight: Cd Re^2 = 4/3 Ga^2 with Cd = drag_law(Re), Re < 1000.
    """
    low, high = 1e-6, 1000.0
    for _ in range(100):
        reynolds = math.sqrt(low * high)
        if drag_law(reynolds) * reynolds**2 < 4.0 / 3.0 * galileo**2:
            low = reynolds
        else:
            high = reynolds
    return reynolds / galileo


def drag_law(reynolds):
    return 24.0 / reynolds * (1.0 + 0.15 * reynolds**0.687)


def basset(ratio, viscosity, step, count, pull=0.0, stiffness=0.0, start=0.0, diameter=DIAMETER):
    """Displacements and speeds after 0 .. count steps of a sphere that starts at rest from `start`.

    Slow motion with added mass, Stokes' drag and its history (Basset 1888), per mass rho V:
    (s + 1/2) x'' + 18 nu/D^2 x' + 9/D sqrt(nu/pi) int x''(t') dt' / sqrt(t - t') = pull - stiffness x,
    with the acceleration constant over each step. Any consistent units.
    """
    ends = 2.0 * np.sqrt(np.arange(count + 1) * step)
    memory = 9.0 / diameter * math.sqrt(viscosity / math.pi) * np.diff(ends)  # of k steps ago
    friction = 18.0 * viscosity / diameter**2
    rates, places, speeds = np.zeros(count), [start], [0.0]
    for n in range(count):
        past = np.dot(memory[1 : n + 1], rates[:n][::-1]) + friction * speeds[-1]
        middle = places[-1] + 0.5 * step * speeds[-1]
        rates[n] = (pull - stiffness * middle - past) / (
            ratio + 0.5 + memory[0] + 0.5 * friction * step
        )
        speeds.append(speeds[-1] + step * rates[n])
        places.append(places[-1] + 0.5 * step * (speeds[-2] + speeds[-1]))
    return np.array(places), np.array(speeds)


def sphere(excess, joint=None, follow=False, place=(0.0, 0.0, 0.0), samples=SAMPLES):
    """A sphere on its root joint. excess: its mass over that of the displaced fluid, in rho V."""
    tree = sphere_chain(joint or Joint("prismatic", axis=(1.0, 0.0, 0.0)))
    half = 0.5 * excess * DENSITY * VOLUME
    tree.links = {name: replace(link, mass=half) for name, link in tree.links.items()}
    frame = tree.link_names()[0] if follow else ""
    mesh = sphere_mesh(DIAMETER / 2.0)
    asset = Asset("sphere", "sphere", mesh, tree, samples, DIAMETER / 8.0, frame=frame)
    return body_of(asset, place=place)


def towed_sphere(excess, spring):
    """A sphere on a spring along x, whose other end a carriage without surface carries.

    The carriage's joint takes a velocity as its command. The grid follows the sphere.
    """
    ball = sphere_chain(Joint("prismatic", axis=(1.0, 0.0, 0.0), spring=spring))
    link = replace(next(iter(ball.links.values())), mass=0.5 * excess * DENSITY * VOLUME)
    # all faces of the sphere are nearer to its own links than to the middle of the carriage
    quarter = DIAMETER / 4.0
    points = [(-4.0 * DIAMETER, 0.0, 0.0), *((x, 0.0, 0.0) for x in (-quarter, 0.0, quarter))]
    drive = Joint("prismatic", "velocity", (1.0, 0.0, 0.0), use_limits=True)
    joints = [drive, ball.nodes[0].joint, Joint("fixed")]
    tree = chain(points, joints, [link, link, link])
    frame = tree.link_names()[1]
    mesh = sphere_mesh(DIAMETER / 2.0)
    asset = Asset("towed", "towed", mesh, tree, SAMPLES, DIAMETER / 8.0, frame=frame)
    return body_of(asset)
