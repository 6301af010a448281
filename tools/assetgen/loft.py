"""Closed surfaces stretched over cross sections, mirrored in the planes y = 0 and z = 0.

A section is given by its upper right quarter (y, z >= 0), which starts at the top, in the plane
z = 0. If the quarter ends in the plane y = 0, the section is whole. If it ends in z = 0 above that
plane, the section belongs to a branch, which has a mirror image below. Sections may have different
numbers of points, so that the faces have about the same size from a blunt nose to a thin tail: the
sampler cannot use smaller ones. As in mesh.py, the code uses only exactly rounded operations.
"""

import math

import numpy as np

from .mesh import WHOLE, Mesh, length, smooth_normals

HALVINGS = 8  # how often the right angle is halved to trace a section's outline
MIRRORS = ((1.0, 1.0), (1.0, -1.0), (-1.0, -1.0), (-1.0, 1.0))  # signs of y and z


def quarter_circle():
    """Points from (1, 0) to (0, 1) on the unit circle, evenly spaced."""
    points = np.array([[1.0, 0.0], [0.0, 1.0]])
    for _ in range(HALVINGS):
        middle = points[:-1] + points[1:]
        middle /= np.sqrt(middle[:, 0] * middle[:, 0] + middle[:, 1] * middle[:, 1])[:, None]
        finer = np.empty((2 * len(points) - 1, 2))
        finer[::2], finer[1::2] = points, middle
        points = finer
    return points


QUARTER = quarter_circle()
HALF = np.concatenate([QUARTER, (QUARTER * (-1.0, 1.0))[-2::-1]])


def evenly(points, spacing):
    """Points along a polyline (n x 3), with both ends, at equal distances of about the spacing."""
    steps = length(np.diff(points, axis=0))
    count = max(1, round(math.fsum(steps) / spacing))
    along = np.concatenate([[0.0], np.cumsum(steps)])
    wanted = along[-1] * np.arange(count + 1) / count
    last = np.clip(np.searchsorted(along, wanted, side="right") - 1, 0, len(steps) - 1)
    fraction = ((wanted - along[last]) / steps[last])[:, None]
    chosen = points[last] + fraction * (points[last + 1] - points[last])
    chosen[0], chosen[-1] = points[0], points[-1]
    return chosen


def whole_section(x, half_height, half_width, spacing):
    """Quarter of an ellipse about the x axis; a line if it has no width."""
    y, z = half_height * QUARTER[:, 0], half_width * QUARTER[:, 1]
    return evenly(np.stack([np.full(len(y), x), y, z], axis=1), spacing)


def branch_section(x, top, bottom, half_width, spacing):
    """Half of an ellipse between two heights above the plane y = 0."""
    y = 0.5 * (top + bottom) + 0.5 * (top - bottom) * HALF[:, 0]
    y[-1] = bottom
    return evenly(np.stack([np.full(len(y), x), y, half_width * HALF[:, 1]], axis=1), spacing)


def even_stations(radius, start, end, spacing):
    """Stations from start to end, at distances of about the spacing along the outline radius(s).

    The outline is traced at even steps of q, s = start + (end - start) q^2: finer at a blunt start.
    """
    q = np.arange(2001) / 2000
    s = start + (end - start) * q * q
    return evenly(np.stack([s, radius(s), 0.0 * s], axis=1), spacing)[:, 0]


class Loft:
    """Collects sections, from the head (high x) to the tail, and the faces between them."""

    def __init__(self):
        self.points = []
        self.faces = []
        self.last = None

    def add(self, section):
        """Adds a section, a quarter of k x 3 points, and the faces between it and the last one."""
        index = {}
        sides = []
        for sign_y, sign_z in MIRRORS:
            side = []
            for x, y, z in section.tolist():
                point = (x, sign_y * y + 0.0, sign_z * z + 0.0)  # no negative zeros
                if point not in index:
                    index[point] = len(self.points)
                    self.points.append(point)
                side.append(index[point])
            sides.append(side)
        if self.last:
            for front, back, (sign_y, sign_z) in zip(self.last, sides, MIRRORS):
                self.bridge(front, back, sign_y * sign_z < 0.0)
        self.last = sides

    def bridge(self, front, back, mirrored):
        """Faces between two rows of vertices, front at higher x; both run down from the top."""
        p, q = len(front) - 1, len(back) - 1
        i = j = 0
        while i < p or j < q:
            if j == q or (i < p and (i + 1) * q <= (j + 1) * p):
                face = (front[i], back[j], front[i + 1])
                i += 1
            else:
                face = (front[i], back[j], back[j + 1])
                j += 1
            self.faces.append(face[::-1] if mirrored else face)

    def mesh(self, parts=(WHOLE,)):
        vertices, faces = np.array(self.points), np.array(self.faces)
        return Mesh(vertices, faces, smooth_normals(vertices, faces), parts)
