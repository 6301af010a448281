"""Triangle surfaces with weights: welded, wound outwards, closed, and coarse enough for the samples.

Vertices at one place are one site. A surface is closed if every edge between two sites is passed as often in one
direction as in the other; then the divergence theorem holds for it, even where pieces touch.
"""

from dataclasses import dataclass

import numpy as np

WELD = 2e-6  # vertices closer than this, beside the size of the body, are at one place
ALIKE = 1e-3  # weights that differ less than this belong to one vertex
SHARE_OF_HOLES = 0.25  # holes with more than this share of a piece's area mean a sheet, not a body


@dataclass
class Surface:
    """vertices (n x 3), weights (n x bones), faces (m x 3), part: index of each face's material."""

    vertices: np.ndarray
    weights: np.ndarray
    faces: np.ndarray
    part: np.ndarray

    def corners(self):
        return tuple(self.vertices[self.faces[:, k]] for k in range(3))

    def face_areas(self):
        a, b, c = self.corners()
        return 0.5 * np.linalg.norm(np.cross(b - a, c - a), axis=1)

    def area(self):
        return float(self.face_areas().sum())

    def volume(self):
        a, b, c = (corner - self.vertices.mean(axis=0) for corner in self.corners())
        return float(np.einsum("ij,ij->", a, np.cross(b, c)) / 6)

    def size(self):
        return float(np.linalg.norm(np.ptp(self.vertices, axis=0)))

    def sites(self):
        """For each vertex the index of its place."""
        return places(self.vertices, WELD * (self.size() or 1.0))


def places(points, step):
    """The same index for points that are closer than step along each axis, also by way of others."""
    labels = []
    for axis in range(3):
        order = np.argsort(points[:, axis], kind="stable")
        jumps = np.diff(points[order, axis]) > step
        label = np.empty(len(points), dtype=np.int64)
        label[order] = np.concatenate([[0], np.cumsum(jumps)])
        labels.append(label)
    return np.unique(np.column_stack(labels), axis=0, return_inverse=True)[1].ravel()


def joined(parts):
    """One surface of all parts of a model."""
    first = np.cumsum([0] + [len(part.vertices) for part in parts])
    return Surface(
        np.concatenate([part.vertices for part in parts]),
        np.concatenate([part.weights for part in parts]),
        np.concatenate([part.faces + start for part, start in zip(parts, first)]),
        np.concatenate([np.full(len(part.faces), k) for k, part in enumerate(parts)]),
    )


def welded(surface, notes):
    """Makes one vertex of those at one place with the same weights; drops faces without area and doubles."""
    before, faces_before = len(surface.vertices), len(surface.faces)
    site = surface.sites()
    key = np.column_stack([site, np.round(surface.weights / ALIKE).astype(np.int64)])
    _, first, index = np.unique(key, axis=0, return_index=True, return_inverse=True)
    _, shown = np.unique(site, return_index=True)
    vertices = surface.vertices[shown][site]  # all vertices of a site exactly at one place
    faces = index.ravel()[surface.faces]
    at = site[first][faces]
    whole = (at[:, 0] != at[:, 1]) & (at[:, 1] != at[:, 2]) & (at[:, 2] != at[:, 0])
    faces, at, part = faces[whole], at[whole], surface.part[whole]
    single = np.arange(len(at))
    if len(open_edges(at)):  # bodies that touch share faces too, but they are closed
        single = np.sort(np.unique(np.sort(at, axis=1), axis=0, return_index=True)[1])
    result = compact(Surface(vertices[first], surface.weights[first], faces[single], part[single]))
    gone, less = faces_before - len(faces), len(faces) - len(single)
    if before != len(result.vertices):
        notes.append(f"{before} vertices were welded to {len(result.vertices)}.")
    if gone > 0:
        notes.append(f"{gone} faces without area were left out.")
    if less:
        notes.append(f"{less} faces that lie on another one were left out.")
    return result


def compact(surface):
    """Without vertices that no face uses."""
    used, faces = np.unique(surface.faces, return_inverse=True)
    return Surface(
        surface.vertices[used], surface.weights[used], faces.reshape(-1, 3), surface.part
    )


def directed_edges(faces):
    """All edges (3 m x 2) in the direction of their faces, and the face of each."""
    edges = np.concatenate([faces[:, [0, 1]], faces[:, [1, 2]], faces[:, [2, 0]]])
    return edges, np.tile(np.arange(len(faces)), 3)


def open_edges(faces):
    """Rows of directed_edges that no edge in the other direction answers."""
    edges, _ = directed_edges(faces)
    low, high = edges.min(axis=1), edges.max(axis=1)
    sign = np.where(edges[:, 0] == low, 1, -1)
    _, index = np.unique(np.column_stack([low, high]), axis=0, return_inverse=True)
    index = index.ravel()
    surplus = np.bincount(index, weights=sign).astype(int)
    # as many edges of the direction in surplus as there are too many
    order = np.argsort(index, kind="stable")
    open_rows, left = [], surplus.copy()
    for row in order[surplus[index[order]] != 0]:
        if left[index[row]] * sign[row] > 0:
            open_rows.append(row)
            left[index[row]] -= sign[row]
    return np.array(open_rows, dtype=int)


def linked(count, pairs):
    """A label for each of count things: the same for things that pairs (k x 2) connect."""
    label = np.arange(count)
    while True:
        low = np.minimum(label[pairs[:, 0]], label[pairs[:, 1]])
        new = label.copy()
        np.minimum.at(new, pairs[:, 0], low)
        np.minimum.at(new, pairs[:, 1], low)
        new = new[new]
        if np.array_equal(new, label):
            return np.unique(label, return_inverse=True)[1]
        label = new


def wound(surface, notes):
    """The surface with the faces of a piece wound the same way."""
    site = surface.sites()
    faces = site[surface.faces]
    edges, owner = directed_edges(faces)
    low, high = edges.min(axis=1), edges.max(axis=1)
    order = np.lexsort((high, low))
    same = (low[order][1:] == low[order][:-1]) & (high[order][1:] == high[order][:-1])
    # an edge of exactly two faces
    run = np.concatenate([[False], same])
    double = np.flatnonzero(same & ~run[:-1] & ~np.concatenate([same[1:], [False]]))
    first, second = order[double], order[double + 1]
    pairs = np.column_stack([owner[first], owner[second]])
    agree = edges[first, 0] != edges[second, 0]
    flip = consistent(len(faces), pairs, agree)
    result = Surface(surface.vertices, surface.weights, surface.faces.copy(), surface.part)
    result.faces[flip] = result.faces[flip][:, ::-1]
    if flip.any():
        notes.append(f"{int(flip.sum())} faces were wound like their neighbours.")
    return result


def consistent(count, pairs, agree):
    """Which faces to turn so that all pairs agree, as far as that is possible."""
    neighbours = [[] for _ in range(count)]
    for (a, b), good in zip(pairs.tolist(), agree.tolist()):
        neighbours[a].append((b, good))
        neighbours[b].append((a, good))
    flip = np.full(count, -1)
    for start in range(count):
        if flip[start] >= 0:
            continue
        flip[start], members, pending = 0, [start], [start]
        while pending:
            face = pending.pop()
            for other, good in neighbours[face]:
                if flip[other] < 0:
                    flip[other] = flip[face] if good else 1 - flip[face]
                    members.append(other)
                    pending.append(other)
        if 2 * int(flip[members].sum()) > len(members):  # turn the minority
            flip[members] = 1 - flip[members]
    return flip.astype(bool)


def outwards(surface, piece, notes):
    """Turns closed pieces whose faces look inwards."""
    a, b, c = (corner - surface.vertices.mean(axis=0) for corner in surface.corners())
    volumes = np.bincount(piece, weights=np.einsum("ij,ij->i", a, np.cross(b, c)) / 6)
    turned = volumes[piece] < 0
    surface.faces[turned] = surface.faces[turned][:, ::-1]
    if turned.any():
        notes.append(
            f"{len(np.unique(piece[turned]))} closed pieces looked inwards and were turned."
        )


def closed(surface, how, thickness, notes):
    """Closes a surface. how: 'auto', 'fill' holes, or 'thicken' open pieces to `thickness`."""
    surface = wound(surface, notes)
    piece = pieces(surface)
    site = surface.sites()
    rows = open_edges(site[surface.faces])
    edges, owner = directed_edges(surface.faces)
    edges, owner = edges[rows], owner[rows]
    areas = surface.face_areas()
    added, thick, filled = [surface], [], []
    for k in np.unique(piece[owner]):
        rim = edges[piece[owner] == k]
        mine = piece == k
        caps = fans(surface, rim, site, surface.part[mine][0])
        share = caps.area() / max(areas[mine].sum(), 1e-300)
        if how == "thicken" or (how == "auto" and share > SHARE_OF_HOLES):
            thick.append(k)
            added.append(backs(surface, mine, rim, thickness))
        else:
            filled.append(k)
            added.append(caps)
    if thick:
        half_out(surface, np.isin(piece, thick), thickness)
        notes.append(
            f"{len(thick)} open pieces became sheets of a thickness of {thickness:.4g} m: a surface of "
            "one layer encloses no volume. Choose with --thickness and --open-surface."
        )
    if filled:
        notes.append(f"The holes of {len(filled)} open pieces were filled.")
    result = welded(stacked(added), [])
    outwards(result, pieces(result), notes)
    return result


def pieces(surface):
    """A label for each face: the same for faces that edges connect."""
    site = surface.sites()
    edges, owner = directed_edges(site[surface.faces])
    order = np.lexsort((edges.max(axis=1), edges.min(axis=1)))
    low, high = edges.min(axis=1)[order], edges.max(axis=1)[order]
    same = np.flatnonzero((low[1:] == low[:-1]) & (high[1:] == high[:-1]))
    return linked(len(surface.faces), np.column_stack([owner[order[same]], owner[order[same + 1]]]))


def fans(surface, rim, site, part):
    """Caps over the open edges: triangles from the middle of each connected rim."""
    ends = np.unique(site[rim], return_inverse=True)[1].reshape(-1, 2)
    loop = linked(ends.max() + 1, ends)[ends[:, 0]]
    vertices, weights, faces = [], [], []
    used, local = np.unique(rim, return_inverse=True)
    local = local.reshape(-1, 2)
    for k in range(loop.max() + 1):
        own = np.unique(local[loop == k])
        vertices.append(surface.vertices[used[own]].mean(axis=0))
        weights.append(surface.weights[used[own]].mean(axis=0))
        middle = len(used) + k
        faces.append(
            np.column_stack([local[loop == k][:, ::-1], np.full((loop == k).sum(), middle)])
        )
    faces = np.concatenate(faces)
    return Surface(
        np.concatenate([surface.vertices[used], vertices]),
        np.concatenate([surface.weights[used], weights]),
        faces,
        np.full(len(faces), part),
    )


def site_normals(surface):
    """Unit normals at the vertices, the same for all vertices of a site, weighted by the faces' areas."""
    site = surface.sites()
    a, b, c = surface.corners()
    vectors = np.cross(b - a, c - a)
    sums = np.zeros((site.max() + 1, 3))
    for k in range(3):
        np.add.at(sums, site[surface.faces[:, k]], vectors)
    length = np.linalg.norm(sums, axis=1, keepdims=True)
    units = np.divide(sums, length, out=np.tile([0.0, 0, 1.0], (len(sums), 1)), where=length > 0)
    return units[site]


def backs(surface, mine, rim, thickness):
    """The other side of a sheet and its edge; half_out moves the first side."""
    normals = site_normals(surface) * thickness
    used, faces = np.unique(surface.faces[mine], return_inverse=True)
    faces = faces.reshape(-1, 3)
    position = {vertex: k for k, vertex in enumerate(used.tolist())}
    local = np.array([[position[a], position[b]] for a, b in rim.tolist()])
    count = len(used)
    # the edge's quads: the front's vertices once more, then those of the back
    front, back = local, local + count
    sides = np.concatenate(
        [
            np.column_stack([front[:, 1], front[:, 0], back[:, 0]]),
            np.column_stack([front[:, 1], back[:, 0], back[:, 1]]),
        ]
    )
    return Surface(
        np.concatenate(
            [surface.vertices[used] + normals[used] / 2, surface.vertices[used] - normals[used] / 2]
        ),
        np.concatenate([surface.weights[used], surface.weights[used]]),
        np.concatenate([faces[:, ::-1] + count, sides]),
        np.concatenate(
            [surface.part[mine], np.full(len(sides), surface.part[mine][0] if mine.any() else 0)]
        ),
    )


def half_out(surface, faces, thickness):
    """Moves the vertices of some faces outwards by half a thickness."""
    used = np.unique(surface.faces[faces])
    surface.vertices = surface.vertices.copy()
    surface.vertices[used] += site_normals(surface)[used] * thickness / 2


def stacked(surfaces):
    first = np.cumsum([0] + [len(s.vertices) for s in surfaces])
    return compact(
        Surface(
            np.concatenate([s.vertices for s in surfaces]),
            np.concatenate([s.weights for s in surfaces]),
            np.concatenate([s.faces + start for s, start in zip(surfaces, first)]),
            np.concatenate([s.part for s in surfaces]),
        )
    )


def is_closed(surface):
    return len(open_edges(surface.sites()[surface.faces])) == 0


def unsampled_share(surface, samples):
    """Share of the area whose faces are too small for a sample: the sampler draws ten candidates per
    sample and rounds down face by face.
    """
    areas = surface.face_areas()
    total = areas.sum()
    return float(areas[10 * samples * areas / total < 1].sum() / total)


def coarsened(surface, shortest, rounds=40):
    """Merges the ends of edges shorter than this, shortest first. A closed surface stays closed."""
    site = surface.sites()
    count = site.max() + 1
    share = 1 / np.bincount(site, minlength=count)
    vertices, weights = np.zeros((count, 3)), np.zeros((count, surface.weights.shape[1]))
    np.add.at(vertices, site, surface.vertices * share[site][:, None])
    np.add.at(weights, site, surface.weights * share[site][:, None])
    faces, part = site[surface.faces], surface.part
    for _ in range(rounds):
        edges = np.unique(np.sort(directed_edges(faces)[0], axis=1), axis=0)
        length = np.linalg.norm(vertices[edges[:, 0]] - vertices[edges[:, 1]], axis=1)
        order = np.argsort(length, kind="stable")
        order = order[length[order] < shortest]
        if not len(order):
            break
        target, busy = np.arange(len(vertices)), np.zeros(len(vertices), dtype=bool)
        for a, b in edges[order].tolist():
            if busy[a] or busy[b]:
                continue
            busy[a] = busy[b] = True
            target[b] = a
            vertices[a] = (vertices[a] + vertices[b]) / 2
            weights[a] = (weights[a] + weights[b]) / 2
        faces = target[faces]
        whole = (
            (faces[:, 0] != faces[:, 1])
            & (faces[:, 1] != faces[:, 2])
            & (faces[:, 2] != faces[:, 0])
        )
        faces, part = faces[whole], part[whole]
        faces, part = without_folds(faces, part)
    return compact(Surface(vertices, weights, faces, part))


def inflated(surface, volume):
    """Moves the vertices along their normals until the surface encloses a volume."""
    for _ in range(4):
        shift = (volume - surface.volume()) / surface.area()
        vertices = surface.vertices + shift * site_normals(surface)
        surface = Surface(vertices, surface.weights, surface.faces, surface.part)
    return surface


def without_folds(faces, part):
    """Without pairs of faces that lie on each other and look opposite ways; they enclose nothing."""
    ordered = np.sort(faces, axis=1)
    turn = (
        (faces[:, 0] < faces[:, 1]).astype(int)
        + (faces[:, 1] < faces[:, 2])
        + (faces[:, 2] < faces[:, 0])
    )
    sign = np.where(turn == 2, 1, -1)
    _, index = np.unique(ordered, axis=0, return_inverse=True)
    index = index.ravel()
    surplus = np.bincount(index, weights=sign).astype(int)
    keep = np.zeros(len(faces), dtype=bool)
    for row in range(len(faces)):
        if surplus[index[row]] * sign[row] > 0:
            keep[row] = True
            surplus[index[row]] -= sign[row]
    return faces[keep], part[keep]
