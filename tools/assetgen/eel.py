"""The anguilliform swimmer of Kern and Koumoutsakos (J. Exp. Biol. 209, 2006, 4841).

Elliptic sections along x, head towards +x; the joints turn about y. The bones run from the tail,
where the floating root joint is, to the nose, so that every link's x axis points forwards.
"""

import numpy as np

from .asset import Asset
from .loft import Loft, even_stations, whole_section
from .skeleton import END_NODE, BoneTree, Joint, Node
from .spine import SERVO, blend, give_bodies, on_skin

LENGTH = 0.2  # m
NODES = 100  # node spacings per length for which the default masses are made
SAMPLES = 4000
LINKS = 14
FACE = 0.0115  # distance between mesh points, in lengths

# In lengths: half-widths of head and tail, the stations where the outline changes, and the two
# half-axes of the elliptic outline seen from the side.
HEAD_WIDTH, TAIL_WIDTH = 0.04, 0.01
HEAD_END, TAIL_START = 0.04, 0.95
HEIGHT, HALF_AXIS = 0.08, 0.51


def half_width(s):
    """Half-width in lengths at stations s from 0 (nose) to 1 (tail)."""
    head = np.sqrt(np.maximum(2.0 * HEAD_WIDTH * s - s * s, 0.0))
    u = (s - HEAD_END) / (TAIL_START - HEAD_END)
    trunk = HEAD_WIDTH - (HEAD_WIDTH - TAIL_WIDTH) * u * u
    tail = TAIL_WIDTH * (1.0 - s) / (1.0 - TAIL_START)
    return np.where(s < HEAD_END, head, np.where(s < TAIL_START, trunk, tail))


def half_height(s):
    u = (s - HALF_AXIS) / HALF_AXIS
    return HEIGHT * np.sqrt(np.maximum(1.0 - u * u, 0.0))


def along(station):
    """x (m) at a station behind the nose; the origin is half-way along the body."""
    return (0.5 - station) * LENGTH


def eel_mesh():
    loft = Loft()
    loft.add(np.array([(along(0.0), 0.0, 0.0)]))
    stations = even_stations(lambda s: 0.5 * (half_width(s) + half_height(s)), 0.0, 1.0, FACE)
    for s in stations[1:]:
        height, width = float(half_height(s)) * LENGTH, float(half_width(s)) * LENGTH
        loft.add(whole_section(along(s), height, width, FACE * LENGTH))
    return loft.mesh()


def eel_tree():
    nodes = []
    for k in range(LINKS):
        joint = SERVO if k else Joint("floating")
        nodes.append(Node(f"bone_{k:02d}", k - 1, (along(1.0 - k / LINKS), 0.0, 0.0), joint))
    nodes.append(Node(END_NODE, LINKS - 1, (along(0.0), 0.0, 0.0)))
    return BoneTree(nodes)


def skin_weights(mesh):
    """Vertices x bones, blended along the spine."""
    cell, share = blend(0.5 + mesh.vertices[:, 0] / LENGTH, [k / LINKS for k in range(LINKS + 1)])
    rows = np.arange(len(cell))
    weights = np.zeros((len(cell), LINKS))
    weights[rows, cell] = 1.0 - share
    weights[rows, cell + 1] += share
    return weights


def eel_assets(dx=None):
    """The eel on a grid at rest, on a grid that follows its middle, and there without excess mass.

    Its base link is the head.
    """
    dx = LENGTH / NODES if dx is None else dx
    mesh, tree = eel_mesh(), eel_tree()
    names = tree.link_names()
    give_bodies(tree, mesh, dx, names[:2])
    middle = names[LINKS // 2]
    probes = [(along(0.0), 0.0, 0.0)]
    for s in (0.3, 0.8):
        probes += [(along(s), 0.0, sign * float(half_width(s)) * LENGTH) for sign in (1.0, -1.0)]
    shared = {
        "samples": SAMPLES,
        "dx": dx,
        "weights": skin_weights(mesh),
        "base": names[-1],
        "markers": on_skin(mesh, mesh.parts[0], probes),
    }
    return [
        Asset("eel", "eel", mesh, tree, **shared),
        Asset("eel_follow", "eel", mesh, tree, frame=middle, **shared),
        Asset(
            "eel_neutral", "eel", mesh, tree.neutral(), frame=middle, semi_implicit=True, **shared
        ),
    ]
