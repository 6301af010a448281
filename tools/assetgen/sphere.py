"""A sphere twice as dense as the fluid, on a welded chain of two bones along x."""

import math

import numpy as np

from .asset import Asset
from .checks import FLUID_DENSITY
from .mesh import Mesh, unit
from .skeleton import Joint, Link, chain

DIAMETER = 0.02  # m
NODES = 12  # node spacings per diameter for which the retraction is made, as in the demo
DENSITY_RATIO = 2.0  # body to fluid
SUBDIVISIONS = 3  # 20 * 4^3 = 1,280 faces: finer ones would get no candidates from 800 samples
SAMPLES = 800
# N/m, of the held sphere: a quarter of rho V / dt^2 at 12 nodes a diameter and 0.1 lattice units to 0.1
# m/s. The spring comes to rest within tens of steps and yields a few thousandths of a node spacing.
SPRING = 400.0


def icosahedron():
    """Vertices on the unit sphere with two of them on the x axis, and faces.

    With this orientation the plane x = 0 is a circle of edges from the first subdivision on, so
    that no face lies across the border of the two links.
    """
    cos72, cos36 = (math.sqrt(5.0) - 1.0) / 4.0, (math.sqrt(5.0) + 1.0) / 4.0
    sin72, sin36 = (math.sqrt(1.0 - c * c) for c in (cos72, cos36))
    ring = [(1.0, 0.0), (cos72, sin72), (-cos36, sin36), (-cos36, -sin36), (cos72, -sin72)]
    height, radius = 1.0 / math.sqrt(5.0), 2.0 / math.sqrt(5.0)
    vertices = [(1.0, 0.0, 0.0)]
    vertices += [(height, radius * y, radius * z) for y, z in ring]
    vertices += [(-x, -y, -z) for x, y, z in vertices]
    # Vertex 1 + k stands at 72 k degrees round x and its antipode 7 + k at 72 k + 180. So the lower
    # vertex between 1 + k and its neighbour is 7 + (k + 3) % 5.
    faces = []
    for k in range(5):
        a, b = 1 + k, 1 + (k + 1) % 5
        c, d = 7 + (k + 3) % 5, 7 + (k + 4) % 5
        faces += [(0, a, b), (a, c, b), (b, c, d), (6, d, c)]
    return np.array(vertices), np.array(faces)


def subdivide(vertices, faces):
    """Each face becomes four, with new vertices in the middle of the edges, on the unit sphere."""
    middles = {}
    points = vertices.tolist()

    def middle(a, b):
        key = (min(a, b), max(a, b))
        if key not in middles:
            middles[key] = len(points)
            points.append([0.5 * (p + q) for p, q in zip(points[a], points[b])])
        return middles[key]

    finer = []
    for a, b, c in faces.tolist():
        ab, bc, ca = middle(a, b), middle(b, c), middle(c, a)
        finer += [(a, ab, ca), (ab, b, bc), (ca, bc, c), (ab, bc, ca)]
    return unit(np.array(points)), np.array(finer)


def sphere_mesh(radius):
    """An icosphere with the volume of the ball of this radius."""
    vertices, faces = icosahedron()
    for _ in range(SUBDIVISIONS):
        vertices, faces = subdivide(vertices, faces)
    vertices[np.abs(vertices) < 1e-12] = 0.0
    volume = Mesh(vertices, faces, vertices).volume()
    scale = round((4.0 / 3.0 * math.pi / volume) ** (1.0 / 3.0), 12)
    return Mesh(radius * scale * vertices, faces, vertices)


def sphere_chain(root):
    """Two links, D/8 either side of the centre, with the excess mass halved between them.

    The fluid inside the skin counts as mass too and has no buoyancy, so links carry the excess
    over it. The ellipsoids are flattened along x so that both together have the moments of inertia
    of the ball: 2/5 R^2 = (a^2 + R^2)/5 + (D/8)^2 gives the half-axis a = sqrt(11)/8 D.
    """
    b = DIAMETER / 4.0
    mass = (DENSITY_RATIO - 1.0) * FLUID_DENSITY * math.pi / 6.0 * DIAMETER**3
    link = Link(mass / 2.0, (math.sqrt(11.0) / 4.0 * DIAMETER, DIAMETER, DIAMETER), DIAMETER / 10.0)
    points = [(-b, 0.0, 0.0), (0.0, 0.0, 0.0), (b, 0.0, 0.0)]
    return chain(points, [root, Joint("fixed")], [link, link])


def sphere_assets(retraction, dx=None):
    """The sphere itself, and one whose skin is drawn in by a retraction (in node spacings).

    An immersed surface acts about 0.85 dx outside its samples in steady drag; the retraction makes
    up for it. One more sphere is held along x by a stiff spring, whose deflection tells the drag.
    """
    dx = DIAMETER / NODES if dx is None else dx
    falling = sphere_chain(Joint("prismatic", axis=(1.0, 0.0, 0.0)))
    floating = sphere_chain(Joint("floating"))
    held = sphere_chain(Joint("prismatic", axis=(1.0, 0.0, 0.0), spring=SPRING))
    mesh = sphere_mesh(DIAMETER / 2.0)
    small = sphere_mesh(DIAMETER / 2.0 - retraction * dx)
    first = falling.link_names()[0]
    shared = {"samples": SAMPLES, "dx": dx, "spacings": (DIAMETER / 8.0,)}
    return [
        Asset("sphere", "sphere", mesh, falling, **shared),
        Asset("sphere_follow", "sphere", mesh, falling, frame=first, **shared),
        Asset("sphere_floating", "sphere", mesh, floating, frame=first, **shared),
        Asset("sphere_held", "sphere", mesh, held, **shared),
        Asset("sphere_retracted", "sphere_retracted", small, falling, **shared),
    ]
