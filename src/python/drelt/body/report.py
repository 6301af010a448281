"""The report on a body: tables of links and joints, sizes, what was changed, and what to heed. Markdown."""

import numpy as np

from .masses import limit

SINGLE = ("revolute", "continuous", "prismatic")


def table(head, rows):
    lines = ["| " + " | ".join(head) + " |", "|" + " --- |" * len(head)]
    return lines + ["| " + " | ".join(str(cell) for cell in row) + " |" for row in rows]


def shown(values):
    return ", ".join(f"{x:.4g}" for x in values)


def joint_rows(records, dofs, origins=None):
    """Rows of the table of joints with a link; dofs: names in order."""
    rows = []
    for record in records:
        if record["link"] is None:
            continue
        name = record["name"]
        own = [str(k) for k, dof in enumerate(dofs) if dof == name or is_dof_of(dof, name, records)]
        axis = shown(record["axis"]) if record["type"] in SINGLE else ""
        place = shown(record["transform"][:3, 3])
        row = [
            name,
            record["parent"] or "",
            record["type"],
            record["actuator"],
            axis,
            " ".join(own),
            place,
        ]
        rows.append(row + ([origins.get(name, "")] if origins is not None else []))
    return rows


def is_dof_of(dof, name, records):
    """Whether a DOF's name is a joint's with an ending, and not the name of another joint."""
    if not dof.startswith(name + "_") or any(record["name"] == dof for record in records):
        return False
    longer = [
        r["name"] for r in records if len(r["name"]) > len(name) and dof.startswith(r["name"] + "_")
    ]
    return not longer


def sizes(skin, faces):
    low, high = skin.min(axis=0), skin.max(axis=0)
    a, b, c = (skin[faces[:, k]] - low for k in range(3))
    area = 0.5 * np.linalg.norm(np.cross(b - a, c - a), axis=1).sum()
    volume = np.einsum("ij,ij->", a, np.cross(b, c)) / 6
    return [
        f"- Bounding box: ({shown(low)}) to ({shown(high)}) m, {' x '.join(f'{x:.4g}' for x in high - low)} m",
        f"- Surface: {area:.5g} m^2",
        f"- Volume: {volume:.5g} m^3",
        f"- {len(skin)} vertices, {len(faces)} faces",
    ]


def report(body):
    """The report of an import, as Markdown."""
    options, plan = body.options, body.plan
    for record in body.joint_records:  # the loaded mesh knows no words; the description holds them
        fill(record, body)
    origins = {bone.name: joint.origin for bone, joint in zip(body.bones, body.joints)}
    lines = [f"# {body.name}", "", f"Imported from `{body.source}`."]
    if options["picture"] and not any(
        note.startswith("There is no picture") for note in body.notes
    ):
        lines += ["", "![Links above, bones and axes of joints below](picture.png)"]
    if body.warnings:
        lines += ["", "## To heed", ""] + [f"- {text}" for text in body.warnings]
    lines += ["", "## What was changed", ""]
    lines += [f"- {note}" for note in body.notes] or ["- Nothing."]
    lines += ["", "## Body", "", *sizes(body.rest, body.surface.faces)]
    total = sum(link.mass for link in body.links)
    kind = "Excess mass over the fluid" if options["mass"] == "excess" else "Total mass"
    lines += [
        f"- {kind}: {total:.5g} kg at a density of {body.density:.5g} kg/m^3 in a fluid of "
        f"{options['fluid_density']:.5g} kg/m^3",
        f"- Base link (heading): `{body.base}`; grid follows: `{body.frame or 'nothing'}`",
    ]
    lines += ["", "## Links", "", *link_table(body)]
    lines += [
        "",
        "The centre of mass of a link is the middle of its bone. `offset` is how far the centre of its volume "
        "lies from there.",
        "",
        "## Joints",
        "",
    ]
    head = ["joint", "parent", "type", "actuator", "axis (bone)", "DOF", "place [m]", "note"]
    lines += table(head, joint_rows(body.joint_records, body.dofs, origins))
    lines += ["", "## First run", "", "`run.py` does this:", ""] + [
        f"- {text}" for text in plan.lines()
    ]
    return "\n".join(lines) + "\n"


def fill(record, body):
    for bone, joint in zip(body.bones, body.joints):
        if bone.name == record["name"]:
            record.update(type=joint.type, actuator=joint.actuator, axis=np.array(joint.axis))
            return
    record.update(type="fixed", actuator="passive")


def link_table(body):
    options, spacing = body.options, body.plan.spacing
    rows = []
    for link in body.links:
        if link.solid is None:
            rows.append([f"`{link.key}`", "(fork)", "", "", f"{link.mass:.4g}", "", "", ""])
            continue
        solid = link.solid
        offset = np.linalg.norm(solid.centre - link.frame[:3, 3]) if solid.volume > 0 else 0.0
        least = limit(link, options["coupling"], options["fluid_density"], spacing)
        rows.append(
            [
                f"`{link.key}`",
                link.joint,
                f"{solid.volume:.4g}",
                f"{solid.area:.4g}",
                f"{link.mass:.4g}",
                f"{least:.4g}",
                shown(link.size),
                f"{offset:.3g}",
            ]
        )
    head = [
        "link",
        "joint",
        "volume [m^3]",
        "area [m^2]",
        "mass [kg]",
        "stable above [kg]",
        "size [m]",
        "offset [m]",
    ]
    return table(head, rows)
