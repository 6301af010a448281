"""A thin plate in the x-z plane, driven along x or about z.

It is made to oscillate in its own plane in a box of 16 x 16 nodes. At a peak speed of 0.05 lattice
units and a period of 2,000 steps, it travels 16 nodes to each side. Its ends must always lie outside
the box, where samples are skipped. So it is 56 nodes long (8 + 16 and 4 to spare on each side) and
24 wide.

The thickness is one node. Peskin's kernel then reaches 2.5 nodes from the middle plane, so the
flow is free of the forcing beyond 3. Both faces force nearly the same nodes and share the load,
which halves the slip of a single sheet. With a sample area of 0.907 per lattice area and face, the
coupling removes 0.907 (3/8 + 1/4) = 0.57 of the slip per step. 3/8 is the sum of the squared kernel
weights, 1/4 that of their products one node apart. The share is below 1, so the coupling does not
overshoot. Two faces in one plane would remove 0.68, but they enclose no volume and so give the links
no mass.
"""

import math

import numpy as np

from .asset import Asset
from .checks import FLUID_DENSITY
from .mesh import Mesh, smooth_normals
from .skeleton import Joint, Link, chain

SPACING = 0.02 / 16  # m, unless another node spacing is asked for
CELLS = (56, 1, 24)  # nodes along x, y, z: cubic cells of one node, so all faces are equal
# Body to fluid. It gives each link a mass of 1.4 rho A dx, because thin parts need more than the limit.
DENSITY_RATIO = 4.0
SAMPLES = 4000  # 1.4 per lattice area


def plate_mesh(dx):
    """The surface of a block of cells of size dx, centred at the origin. Cell faces have two triangles.

    The diagonals alternate, so that the plate is its own mirror image in x and in z.
    """
    index = {}
    faces = []

    def vertex(point):
        return index.setdefault(point, len(index))

    for axis in range(3):
        u, v = (axis + 1) % 3, (axis + 2) % 3  # u x v points along axis
        for side in (0, CELLS[axis]):
            for i in range(CELLS[u]):
                for j in range(CELLS[v]):
                    quad = []
                    for du, dv in ((0, 0), (1, 0), (1, 1), (0, 1)):
                        point = [0, 0, 0]
                        point[axis], point[u], point[v] = side, i + du, j + dv
                        quad.append(vertex(tuple(point)))
                    if side == 0:
                        quad.reverse()
                    # a reversed quad starts at another corner, which swaps its diagonals
                    first = (i + j + (side == 0)) % 2
                    a, b, c, d = quad[first:] + quad[:first]
                    faces += [(a, b, c), (a, c, d)]

    vertices = (np.array(list(index)) - 0.5 * np.array(CELLS)) * dx
    faces = np.array(faces)
    return Mesh(vertices, faces, smooth_normals(vertices, faces))


def plate_chain(root, dx):
    """Two welded links along x; the root joint is on the low-x edge.

    The first link has its centre in the plate's, so that a grid which follows it is centred on the
    plate. The second link has its centre past the high-x edge and is nearest to a quarter of the
    plate. A box has the inertia of the ellipsoid whose diameters are its edges times sqrt(5/3). The
    second link has the inertia of its quarter about a point on the far edge, which is that of a
    centred box of twice the length.
    """
    length, thickness, width = (n * dx for n in CELLS)

    def part(share, reach):
        mass = (DENSITY_RATIO - 1.0) * FLUID_DENSITY * share * length * thickness * width
        edges = (reach * length, thickness, width)
        return Link(mass, tuple(math.sqrt(5.0 / 3.0) * edge for edge in edges), 0.001)

    half = length / 2.0
    points = [(-half, 0.0, 0.0), (half, 0.0, 0.0), (half + 2.0 * dx, 0.0, 0.0)]
    return chain(points, [root, Joint("fixed")], [part(0.75, 0.75), part(0.25, 0.5)])


def plate_assets(dx=None):
    """The plate driven along x, on a fixed and on a following grid, and turned about its edge."""
    dx = SPACING if dx is None else dx
    mesh = plate_mesh(dx)
    slide = plate_chain(Joint("prismatic", "velocity", (1.0, 0.0, 0.0), use_limits=True), dx)
    flap = plate_chain(Joint("revolute", "velocity", (0.0, 0.0, 1.0), use_limits=True), dx)
    shared = {"samples": SAMPLES, "dx": dx}
    return [
        Asset("plate", "plate", mesh, slide, **shared),
        Asset("plate_follow", "plate", mesh, slide, frame=slide.link_names()[0], **shared),
        Asset("plate_flap", "plate", mesh, flap, **shared),
    ]
