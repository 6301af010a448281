"""Closed triangle surfaces.

The code uses only additions, products, divisions, square roots and exactly rounded sums, so that
every machine writes the same bytes as the committed files.
"""

import math
from collections import Counter
from dataclasses import dataclass

import numpy as np


class AssetError(ValueError):
    """An asset that the simulator could not use as intended."""


@dataclass
class Part:
    """Faces with one material. The simulator makes one mesh per part."""

    name: str
    colour: tuple
    faces: slice


WHOLE = Part("surface", (0.8, 0.8, 0.8, 1.0), slice(None))


@dataclass
class Mesh:
    """A surface of triangles.

    vertices: n x 3, m. faces: m x 3 vertex indices, counter-clockwise from outside. normals: n x 3,
    unit vectors at the vertices. parts: the faces by material, in order.
    """

    vertices: np.ndarray
    faces: np.ndarray
    normals: np.ndarray
    parts: tuple = (WHOLE,)

    def corners(self):
        """The three corner positions of all faces, each (m x 3)."""
        return tuple(self.vertices[self.faces[:, k]] for k in range(3))

    def face_centres(self):
        a, b, c = self.corners()
        return (a + b + c) / 3.0

    def face_areas(self):
        return 0.5 * length(face_vectors(self.vertices, self.faces))

    def area(self):
        return math.fsum(self.face_areas())

    def volume(self):
        """Enclosed volume by the divergence theorem; positive when the faces look outwards."""
        a, b, c = self.corners()
        return math.fsum(dot(a, np.cross(b, c)) / 6.0)

    def check_closed(self):
        """Raises AssetError unless every edge joins two faces that pass it in opposite directions."""
        directed = Counter()
        for a, b, c in self.faces.tolist():
            directed.update(((a, b), (b, c), (c, a)))
        for (a, b), times in directed.items():
            if times != 1 or directed.get((b, a), 0) != 1:
                raise AssetError(f"the surface is open or wound inconsistently at edge {a}-{b}")


def dot(a, b):
    """Row-wise scalar product in a fixed order of additions."""
    return a[:, 0] * b[:, 0] + a[:, 1] * b[:, 1] + a[:, 2] * b[:, 2]


def coordinates(points, axis):
    """Coordinates of points (n x 3) along an axis, which is a unit vector."""
    return points[:, 0] * axis[0] + points[:, 1] * axis[1] + points[:, 2] * axis[2]


def length(a):
    return np.sqrt(dot(a, a))


def unit(a):
    return a / length(a)[:, None]


def face_vectors(vertices, faces):
    """Outward normals of the faces. The length of each is twice the face's area."""
    a, b, c = (vertices[faces[:, k]] for k in range(3))
    return np.cross(b - a, c - a)


def smooth_normals(vertices, faces):
    """Unit vertex normals, weighted by the areas of the faces round a vertex."""
    normals = np.zeros_like(vertices)
    vectors = face_vectors(vertices, faces)
    for k in range(3):
        np.add.at(normals, faces[:, k], vectors)
    return unit(normals)
