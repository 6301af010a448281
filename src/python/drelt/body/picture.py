"""Pictures of a body in its present pose: its skin in the colours of the links, and its bones and axes."""

import colorsys
import math

import numpy as np

from .. import make_renderer

WIDTH, HEIGHT = 1000, 1000
GREY, BONE, AXIS, END = (0.45, 0.45, 0.5), (1.0, 1.0, 1.0), (1.0, 0.85, 0.1), (0.5, 0.7, 1.0)
VIEW = np.array([0.45, 0.4, 1.0])  # from the right, a little above and ahead
TURN = 0.618033988749895  # of the colour wheel between two links


def link_colour(k):
    """The colour of the link with index k: neighbours in the list differ much."""
    return colorsys.hsv_to_rgb(k * TURN % 1.0, 0.65, 0.95)


def vertex_normals(skin, faces):
    """Unit normals of the vertices, (n, 3), weighted by the areas of the faces."""
    a, b, c = (skin[faces[:, k]] for k in range(3))
    vectors = np.cross(b - a, c - a)
    sums = np.zeros_like(skin)
    for k in range(3):
        np.add.at(sums, faces[:, k], vectors)
    length = np.linalg.norm(sums, axis=1, keepdims=True)
    return np.divide(sums, length, out=np.zeros_like(sums), where=length > 0)


def draw_body(body, file, width=WIDTH, height=HEIGHT):
    """Draws a live body (SkeletonDynamics) in its present pose and saves a PNG.

    Above: the skin in the colours of its links. Below: the bones (white), the ends of bones (blue) and the
    axes of joints that turn or slide (yellow) over the skin, on a grid. Needs no simulation: set joint positions
    first. Raises RuntimeError if this machine has no OpenGL.
    """
    body.update()
    skin, faces = body.getSkinVertices(), body.getSkinFaces()
    joints = body.getDescription().getJoints()
    low, high = skin.min(axis=0), skin.max(axis=0)
    size = float(np.linalg.norm(high - low)) or 1.0
    camera = VIEW / np.linalg.norm(VIEW)
    side = np.cross([0, 1, 0], camera)
    side /= np.linalg.norm(side)
    upwards = np.cross(camera, side)
    middle = (low + high) / 2
    across, tall = reach(skin - middle, side), reach(skin - middle, upwards)
    shift = 1.15 * tall * upwards
    renderer = make_renderer(width, height)
    add_links(renderer, body, skin + shift, faces)
    below = skin - shift
    add_skin(renderer, below, faces, GREY)
    spacing = 10.0 ** math.floor(math.log10(size / 4))
    floor = float(below[:, 1].min() - 0.02 * size)
    renderer.addGrid(
        middle - shift, floor, spacing, max(1, min(100, math.ceil(size / 2 / spacing)))
    )
    add_bones(renderer, joints, -shift, size)
    corner = np.array([below[:, 0].min(), floor, below[:, 2].min()])
    renderer.addAxes(corner, 0.15 * size)
    # half the field of view is 22.5 degrees; the picture holds both copies
    far = max(2.25 * tall, across * 1.1 * height / width) / math.tan(math.radians(22.5))
    eye = middle + camera * (far + size / 2)
    renderer.setCamera(eye, middle, [0, 1, 0])
    renderer.setLight(eye + 2 * size * upwards - size * side)
    renderer.setDepthFromScene(True)
    renderer.render()
    renderer.savePNG(str(file))


def reach(points, direction):
    return float(np.abs(points @ direction).max())


def add_links(renderer, body, skin, faces):
    normals = vertex_normals(skin, faces)
    owner = body.getSkinFaceLinks()
    for k in np.unique(owner):
        own = faces[owner == k].ravel()
        if len(own):
            renderer.addTriangles(skin[own], normals[own], link_colour(k - 1))


def add_skin(renderer, skin, faces, colour):
    corners = faces.ravel()
    renderer.addTriangles(skin[corners], vertex_normals(skin, faces)[corners], colour)


def add_bones(renderer, joints, shift, size):
    """Lines from joints to their children, small crosses at joints, and axes, over all that was added before."""
    places = {joint["name"]: joint["transform"][:3, 3] + shift for joint in joints}
    bones, ends, axes = [], [], []
    for joint in joints:
        if joint["parent"] is not None:
            line = [places[joint["parent"]], places[joint["name"]]]
            (bones if joint["link"] is not None else ends).extend(line)
        at = places[joint["name"]]
        if joint["link"] is not None:
            for offset in np.eye(3) * 0.008 * size:
                bones += [at - offset, at + offset]
        if joint["link"] is not None and joint["type"] in ("revolute", "continuous", "prismatic"):
            along = joint["transform"][:3, :3] @ joint["axis"]
            along = along / (np.linalg.norm(along) or 1.0) * 0.05 * size
            axes += [at - along, at + along]
    for lines, colour in ((ends, END), (bones, BONE), (axes, AXIS)):
        if lines:
            renderer.addLines(np.array(lines), colour, True)
