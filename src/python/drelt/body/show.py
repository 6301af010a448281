"""Prints and draws a description as it stands."""

from pathlib import Path

import numpy as np

from .. import make_skDynamics, skeletonFromJson
from .errors import BodyError
from .picture import draw_body
from .report import joint_rows, shown, sizes, table

HOST = -1
SAMPLES = 0  # pictures and tables need none


def show(description, picture=None, positions=None):
    """Returns what a description holds, as Markdown: sizes, links, joints, index of each DOF.

    picture: file name of a PNG to draw. positions: of all DOFs, the pose to show. Raises BodyError for a
    description that cannot be loaded; check() says all that is wrong with it.
    """
    try:
        system = skeletonFromJson(str(description), HOST)
        zero = np.zeros(3)
        body = make_skDynamics(system, SAMPLES, HOST, zero, zero, np.ones(3))
    except (RuntimeError, ValueError) as error:
        raise BodyError(f"{error}; `python -m drelt.body check` lists all problems") from error
    dofs = body.getDofNames()
    if positions is not None:
        pose(body, system, dofs, positions)
    skin, faces = body.getSkinVertices(), body.getSkinFaces()
    lines = [f"# {Path(description).stem}", "", *sizes(skin, faces)]
    lines += [f"- {len(dofs)} degrees of freedom, {body.getNumDofs()} of them actuated"]
    lines += ["", "## Links", "", *link_rows(body, system, skin, faces)]
    head = ["joint", "parent", "type", "actuator", "axis (bone)", "DOF", "place [m]"]
    lines += ["", "## Joints", "", *table(head, joint_rows(system.getJoints(), dofs))]
    if picture is not None:
        try:
            draw_body(body, picture)
        except RuntimeError as error:
            raise BodyError(f"there is no picture: {error}") from error
    return "\n".join(lines) + "\n"


def pose(body, system, dofs, positions):
    """Sets the positions of all DOFs, joint by joint."""
    positions = np.asarray(positions, dtype=float).ravel()
    if len(positions) != len(dofs):
        raise BodyError(f"got {len(positions)} positions for {len(dofs)} DOFs: {', '.join(dofs)}")
    at = 0
    for name in body.getJointNames():
        joint = body.getJoint(name)
        count = joint.getNumDofs()
        if count:
            joint.setPositions(positions[at : at + count])
        at += count
    body.update()


def link_rows(body, system, skin, faces):
    a, b, c = (skin[faces[:, k]] for k in range(3))
    areas = 0.5 * np.linalg.norm(np.cross(b - a, c - a), axis=1)
    owner = np.array(body.getLinkNames())[body.getSkinFaceLinks()]
    rows = []
    for record in system.getLinks():
        name = record["name"]
        wetted = areas[owner == name].sum()
        kind = " (fork)" if record["intermediate"] else ""
        rows.append(
            [
                f"`{name}`{kind}",
                record["joint"],
                f"{wetted:.4g}",
                f"{record['mass']:.4g}",
                shown(record["size"]),
            ]
        )
    return table(["link", "joint", "area [m^2]", "mass [kg]", "size [m]"], rows)
