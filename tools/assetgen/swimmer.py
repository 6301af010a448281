"""A fish-like swimmer: a spindle with a forked caudal fin, on a spine of servo joints.

The body lies along x, head towards +x; the spine's joints turn about y. The root bone lies in the
head and points forwards to the nose. The spine starts at the nose and runs back to the tail. A link's
x axis lies along its bone. So the root's link has the axes of the swimming body: forward (1, 0, 0),
right (0, 0, 1), up (0, 1, 0). The x axes of the spine's links point backwards. The joint at the nose
is welded: the first fifth of the body is stiff, as in carangiform swimmers.

At the peduncle the spine forks into the lobes of the fin. The fork bone "caudal" pitches the fin.
Its own link has no length and no weight; the branches' links are welded to it.
"""

import numpy as np

from .asset import Asset
from .loft import Loft, branch_section, even_stations, whole_section
from .mesh import Part
from .skeleton import BoneTree, Joint, Node
from .spine import SERVO, blend, give_bodies, on_skin

LENGTH = 0.2  # m
NODES = 60  # node spacings per length for which the default masses are made
SAMPLES = 2000
FACE = 0.011  # distance between mesh points, in lengths

# In lengths; stations are measured from the nose.
NECK = 0.1
PEDUNCLE = 0.86
NOTCH = 0.93
VERTEBRAE = (0.0, *(0.2 + 0.66 * k / 7 for k in range(7)))  # spine_00 to spine_07
LOBE = (0.93, 0.04)  # joint of the upper lobe: station and height
LOBE_TIP = (0.99, 0.12)
FIN_ROOT, FIN_TIP = 0.03, 0.13  # half-heights
THICKNESS = (0.012, 0.008)  # half-thickness of the fin at the peduncle, and from the notch on


def spindle(u):
    """A streamlined outline over its length: 0 at both ends, 1 where thickest, at u = 0.3.

    The thickness of the four-digit aerofoils (Jacobs, Ward and Pinkerton, 1933) with a closed edge.
    """
    return 2.969 * np.sqrt(u) - u * (1.26 + u * (3.516 - u * (2.843 - 1.036 * u)))


def half_width(s):
    u = s / PEDUNCLE
    return 0.04 * spindle(u) + THICKNESS[0] * u * u


def half_height(s):
    u = s / PEDUNCLE
    return 0.06 * spindle(u) + FIN_ROOT * u * u


def fin_outline(s):
    """Heights of the outer and inner edge of the upper lobe, and the fin's half-thickness."""
    outer = FIN_ROOT + (FIN_TIP - FIN_ROOT) * (s - PEDUNCLE) / (1.0 - PEDUNCLE)
    inner = max(0.0, FIN_TIP * (s - NOTCH) / (1.0 - NOTCH))
    fraction = min(1.0, (s - PEDUNCLE) / (NOTCH - PEDUNCLE))
    return outer, inner, THICKNESS[0] + (THICKNESS[1] - THICKNESS[0]) * fraction


def place(station, height=0.0, side=0.0):
    """Point (m) at a station behind the nose; the origin is half-way along the body."""
    return (0.5 - station) * LENGTH, height * LENGTH, side * LENGTH


def swimmer_mesh():
    """Body and fin as two parts of one closed surface."""
    loft = Loft()
    spacing = FACE * LENGTH
    loft.add(np.array([place(0.0)]))
    stations = even_stations(lambda s: 0.5 * (half_width(s) + half_height(s)), 0.0, PEDUNCLE, FACE)
    for s in stations[1:]:
        x, height, width = place(s, half_height(s), half_width(s))
        loft.add(whole_section(x, height, width, spacing))
    body = len(loft.faces)

    count = round((NOTCH - PEDUNCLE) / FACE)
    for k in range(1, count):
        s = PEDUNCLE + (NOTCH - PEDUNCLE) * k / count
        outer, _, width = fin_outline(s)
        x, outer, width = place(s, outer, width)
        loft.add(whole_section(x, outer, width, spacing))

    # at the notch the lobes' sections meet in a point
    count = round((1.0 - NOTCH) / FACE)
    for k in range(count):
        s = NOTCH + (1.0 - NOTCH) * k / count
        outer, inner, width = fin_outline(s)
        x, outer, width = place(s, outer, width)
        loft.add(branch_section(x, outer, inner * LENGTH, width, spacing))
    loft.add(np.array([place(1.0, FIN_TIP)]))
    return loft.mesh(
        (
            Part("body", (0.35, 0.45, 0.6, 1.0), slice(0, body)),
            Part("fin", (0.85, 0.55, 0.3, 1.0), slice(body, None)),
        )
    )


def swimmer_tree():
    nodes = [Node("head", -1, place(NECK), Joint("floating"))]
    for k, s in enumerate(VERTEBRAE):
        nodes.append(Node(f"spine_{k:02d}", k, place(s), Joint("fixed") if k == 0 else SERVO))
    caudal = len(nodes)
    nodes.append(Node("caudal", caudal - 1, place(PEDUNCLE), SERVO))
    for sign, name in ((1.0, "lobe_upper"), (-1.0, "lobe_lower")):
        nodes.append(Node(name, caudal, place(LOBE[0], sign * LOBE[1]), Joint("fixed")))
    for k, sign in enumerate((1.0, -1.0)):
        end = place(LOBE_TIP[0], sign * LOBE_TIP[1])
        nodes.append(Node(f"tip_{k}", caudal + 1 + k, end))
    return BoneTree(nodes)


def skin_weights(tree, mesh):
    """Vertices x bones: blended along the spine, and on to the upper or the lower lobe."""
    joints = (NECK, *VERTEBRAE, PEDUNCLE, LOBE[0], LOBE_TIP[0])
    cell, share = blend(0.5 - mesh.vertices[:, 0] / LENGTH, joints)
    names = tree.bone_names()
    behind = cell + 1
    lower = (behind == names.index("lobe_upper")) & (mesh.vertices[:, 1] < 0.0)
    behind[lower] = names.index("lobe_lower")
    rows = np.arange(len(cell))
    weights = np.zeros((len(cell), len(names)))
    weights[rows, cell] = 1.0 - share
    weights[rows, behind] += share
    return weights


def swimmer_assets(dx=None):
    """The swimmer on a grid at rest, on a grid that follows its head, and there without excess mass."""
    dx = LENGTH / NODES if dx is None else dx
    mesh, tree = swimmer_mesh(), swimmer_tree()
    thin = [link.name for link in tree.bodies()[-5:]]  # peduncle and fin
    give_bodies(tree, mesh, dx, thin)
    head = tree.link_names()[0]
    probes = [place(0.0)]
    probes += [place(0.3, 0.0, sign * half_width(0.3)) for sign in (1.0, -1.0)]
    probes += [place(0.8, 0.0, sign * half_width(0.8)) for sign in (1.0, -1.0)]
    shared = {
        "samples": SAMPLES,
        "dx": dx,
        "spacings": (LENGTH / 64,),
        "weights": skin_weights(tree, mesh),
        "markers": on_skin(mesh, mesh.parts[0], probes),
    }
    return [
        Asset("swimmer", "swimmer", mesh, tree, **shared),
        Asset("swimmer_follow", "swimmer", mesh, tree, frame=head, **shared),
        Asset(
            "swimmer_neutral",
            "swimmer",
            mesh,
            tree.neutral(),
            frame=head,
            semi_implicit=True,
            **shared,
        ),
    ]
