"""Volume, centre and second moments of the parts of a closed surface that belong to the links.

A link owns what is nearer to its centre than to all other links' centres: the rule by which loading gives faces
to links. So its part is the surface cut by planes half-way to the other centres, and closed by flat caps. The
integrals follow from those over the triangles by the divergence theorem (B. Mirtich, Fast and accurate
computation of polyhedral mass properties, J. Graphics Tools 1(2), 1996). Caps need no triangulation: a cap is the
sum of triangles from one point of its plane to the edges of the cut, with signs, and integrals are sums.
"""

from dataclasses import dataclass

import numpy as np

SAME = 1e-6  # centres closer than this, beside the size of the body, count as one

ON_PLANE = 1e-9  # of the largest distance


@dataclass
class Solid:
    """volume [m^3], centre [m], moments: integral of x x^T about the centre [m^5], area of the skin [m^2]."""

    volume: float
    centre: np.ndarray
    moments: np.ndarray
    area: float = 0.0


def integrals(triangles):
    """Volume, first and second moments about the origin of a closed set of triangles (n x 3 x 3)."""
    if not len(triangles):
        return 0.0, np.zeros(3), np.zeros((3, 3))
    a, b, c = triangles[:, 0], triangles[:, 1], triangles[:, 2]
    # tetrahedra from the origin
    six = np.einsum("ij,ij->i", a, np.cross(b, c))
    total = a + b + c
    first = np.einsum("i,ij->j", six, total) / 24
    second = sum(np.einsum("i,ij,ik->jk", six, p, p) for p in (a, b, c, total)) / 120
    return float(six.sum() / 6), first, second


def solid_of(triangles, area=0.0):
    """The solid inside a closed set of triangles."""
    if not len(triangles):
        return Solid(0.0, np.zeros(3), np.zeros((3, 3)), area)
    start = triangles.reshape(-1, 3).mean(axis=0)  # limits rounding far from the origin
    volume, first, second = integrals(triangles - start)
    scale = np.ptp(triangles.reshape(-1, 3), axis=0).max() ** 3
    if abs(volume) <= 1e-12 * scale:
        return Solid(0.0, start, np.zeros((3, 3)), area)
    centre = first / volume
    moments = second - volume * np.outer(centre, centre)
    return Solid(volume, start + centre, moments, area)


def clipped(triangles, normal, offset):
    """The side normal . x <= offset of a closed set of triangles, with its cap."""
    height = triangles @ normal - offset
    # corners on the plane, as those of earlier caps: rounding must not take them for one side or the other
    height[np.abs(height) <= ON_PLANE * np.abs(height).max(initial=0)] = 0.0
    inside = height <= 0
    count = inside.sum(axis=1)
    kept = [triangles[count == 3]]
    if not ((count > 0) & (count < 3)).any():
        return kept[0]
    edges = []
    for alone_inside in (True, False):
        rows = np.flatnonzero(count == (1 if alone_inside else 2))
        if not len(rows):
            continue
        corner = np.argmax(inside[rows] == alone_inside, axis=1)
        order = (corner[:, None] + np.arange(3)) % 3
        points = np.take_along_axis(triangles[rows], order[:, :, None], axis=1)
        h = np.take_along_axis(height[rows], order, axis=1)
        first = crossing(points[:, 0], points[:, 1], h[:, 0], h[:, 1])
        last = crossing(points[:, 0], points[:, 2], h[:, 0], h[:, 2])
        if alone_inside:
            kept.append(np.stack([points[:, 0], first, last], axis=1))
            edges.append(np.stack([last, first], axis=1))
        else:
            kept.append(np.stack([first, points[:, 1], points[:, 2]], axis=1))
            kept.append(np.stack([first, points[:, 2], last], axis=1))
            edges.append(np.stack([first, last], axis=1))
    edges = np.concatenate(edges)
    apex = np.broadcast_to(edges[:, 0].mean(axis=0), (len(edges), 3))
    kept.append(np.stack([edges[:, 0], edges[:, 1], apex], axis=1))
    return np.concatenate(kept)


def crossing(a, b, height_a, height_b):
    share = height_a / (height_a - height_b)
    return a + share[:, None] * (b - a)


def cell(triangles, centres, k):
    """What is nearer to centre k than to the others."""
    order = np.argsort(((centres - centres[k]) ** 2).sum(axis=1))
    extent = np.ptp(triangles, axis=(0, 1)).max() if len(triangles) else 0.0
    for other in order:
        if other == k or not len(triangles):
            continue
        normal = centres[other] - centres[k]
        if np.abs(normal).max() <= SAME * extent:
            if other < k:  # the first of two at one place owns all
                return triangles[:0]
            continue
        triangles = clipped(triangles, normal, normal @ (centres[other] + centres[k]) / 2)
    return triangles


def owners(points, centres):
    """Index of the nearest centre for each point, the first one at equal distance."""
    best, owner = np.full(len(points), np.inf), np.zeros(len(points), dtype=int)
    for k, centre in enumerate(centres):
        away = np.linalg.norm(points - centre, axis=1).astype(np.float32)
        nearer = away < best
        best[nearer], owner[nearer] = away[nearer], k
    return owner


def link_solids(vertices, faces, centres):
    """The solid of each centre; area is that of the faces that loading gives to it."""
    triangles = vertices[faces]
    owner = owners(triangles.mean(axis=1), centres)
    vectors = np.cross(triangles[:, 1] - triangles[:, 0], triangles[:, 2] - triangles[:, 0])
    areas = np.bincount(owner, 0.5 * np.linalg.norm(vectors, axis=1), minlength=len(centres))
    return [solid_of(cell(triangles, centres, k), float(area)) for k, area in enumerate(areas)]
