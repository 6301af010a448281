"""From a boned mesh to a clean one with a description: reads, cleans, weighs, checks, and then writes."""

import math
import os
import shutil
import tempfile
from dataclasses import dataclass, field
from pathlib import Path

import numpy as np

from .. import SkeletonSystem, make_skDynamics, skeletonFromJson
from .errors import BodyError
from .files import bone_motions, mesh_file, parts_of, write_description
from .gltf import heaviest
from .joints import choose
from .masses import Link, advice, give_masses, turning_margin
from .options import DENSITY_RATIO, axes, checked
from .plan import make_plan, script, swings
from .rig import MOST_BONES, build_rig, no_match, rotation_of
from .scene import read_model, skinned
from .solids import integrals, link_solids, owners
from .surface import closed, coarsened, inflated, is_closed, joined, unsampled_share, welded

DEVICE = -1  # host threads: imports need no GPU
UNSAMPLED = 0.02  # share of the skin without samples above which faces are merged
HUGE, TINY = 20.0, 1e-3  # a body beyond these [m] has probably another unit


@dataclass
class Body:
    """An imported body: what the report says and what the files hold."""

    name: str
    source: str
    folder: Path
    model: object
    bones: list
    joints: list
    surface: object
    rest: np.ndarray
    bound: np.ndarray
    plan: object
    density: float
    options: dict
    links: list = field(default_factory=list)
    joint_records: list = field(default_factory=list)
    dofs: list = field(default_factory=list)
    base: str = ""
    frame: str = ""
    notes: list = field(default_factory=list)
    warnings: list = field(default_factory=list)

    @property
    def description(self):
        return self.folder / f"{self.name}.json"

    @property
    def mesh(self):
        return self.folder / f"{self.name}.glb"


def import_mesh(mesh, out, **options):
    """Imports a mesh with bones into the new folder `out` and returns a Body.

    Writes NAME.glb, NAME.json, report.md, picture.png and run.py. The keyword arguments are the options of
    `python -m drelt.body import`, with an underscore for a hyphen; `joint`, `drop` and `skip` are lists. Raises
    BodyError, a ValueError, if no body can be made; then nothing was written.
    """
    options = checked(options)
    out = Path(out)
    if out.exists():
        raise BodyError(f"'{out}' exists; name a new folder, or remove it first")
    if not out.absolute().parent.is_dir():
        raise BodyError(f"the folder '{out.absolute().parent}' does not exist; make it first")
    name = options["name"] or Path(mesh).stem
    if not name or not name.isprintable() or set(name) & set('/\\"'):
        raise BodyError(f"'{name}' is no name for files; choose one with --name")
    most = None if options["drop"] else MOST_BONES
    model = read_model(mesh, options["rigid"], options["nodes_as_bones"], most, options["skip"])
    body = clean(model, name, str(mesh), out.absolute(), options)
    write(body)
    return body


def clean(model, name, source, folder, options):
    """The body with all but masses, which need the links that loading derives."""
    keep_four(model)
    bones = build_rig(model, options["drop"])
    place_in_world(model, bones, options)
    rest = np.concatenate([model.rest(part) for part in model.parts])
    extent = np.ptp(rest, axis=0)
    spacing = options["spacing"] or float(extent.max()) / options["nodes"]
    surface = welded(joined(model.parts), model.notes)
    if not surface.area() > 1e-9 * float(extent.max()) ** 2:
        raise BodyError(f"'{model.path}' has no surface: all its faces are points or lines")
    thickness = options["thickness"] or spacing
    surface = closed(surface, options["open_surface"], thickness, model.notes)
    warnings = []
    extent, middle = box_of(skinned(surface.vertices, surface.weights, model.bound))
    plan = make_plan(surface, extent, middle, options, options["coupling"])
    surface = coarse_enough(surface, plan.samples, model.notes, warnings)
    surface.weights = four_heaviest(surface.weights)  # means of several vertices may have more
    if not is_closed(surface):
        warnings.append(
            "The skin is not closed. Volumes and masses are rough; close it in a modelling program."
        )
    rest = skinned(surface.vertices, surface.weights, model.bound)
    if options["rigid"]:
        stretch(bones[0], rest, surface.faces, extent)
    used = [bone.column is not None and surface.weights[:, bone.column].any() for bone in bones]
    density = options["density"]
    if density is None:
        density = (options["density_ratio"] or DENSITY_RATIO) * options["fluid_density"]
    return Body(
        name, source, folder, model, bones, choose(bones, used, extent, options["joint"]), surface, rest,
        model.bound, plan, density, options, notes=model.notes, warnings=warnings,
    )  # fmt: skip


def box_of(points):
    low, high = points.min(axis=0), points.max(axis=0)
    return high - low, (low + high) / 2


def four_heaviest(weights):
    """The weights of the four heaviest bones of each vertex, which is what the written file holds."""
    joints, shares = heaviest(weights)
    kept = np.zeros_like(weights)
    rows = np.arange(len(kept))
    for k in range(shares.shape[1]):
        kept[rows, joints[:, k]] += shares[:, k]
    return kept / kept.sum(axis=1, keepdims=True)


def keep_four(model):
    worst = 0.0
    for part in model.parts:
        kept = four_heaviest(part.weights)
        worst = max(worst, float(np.abs(kept - part.weights).sum(axis=1).max()) / 2)
        part.weights = kept
    if worst > 1e-3:
        model.notes.append(
            f"Only the four heaviest bones of a vertex were kept; that left out up to {worst:.1%} of a weight."
        )


def place_in_world(model, bones, options):
    """Turns, scales and centres parts and bones: forward is x, up is y, the middle is the origin."""
    turn = axes(options["up"], options["forward"])
    rest = np.concatenate([model.rest(part) for part in model.parts]) @ turn.T
    if not np.isfinite(rest).all():
        raise BodyError(f"'{model.path}' has positions that are not finite; export it again")
    extent, middle = box_of(rest)
    if not extent.max() > 0:
        raise BodyError(f"'{model.path}' has no extent: all its vertices lie at one place")
    scale = scale_of(model, float(extent.max()), options)
    if not np.array_equal(turn, np.eye(3)):
        model.notes.append(
            f"Turned so that {options['forward']} is forward (x) and {options['up']} is up (y)."
        )
    if np.linalg.norm(middle) > 1e-3 * extent.max():
        shown = ", ".join(f"{x:.4g}" for x in -middle * scale)
        model.notes.append(f"Moved by ({shown}) m, so that the middle of its box is the origin.")
    similarity = np.eye(4)
    similarity[:3, :3] = scale * turn
    similarity[:3, 3] = -scale * middle
    back = np.linalg.inv(similarity)
    for part in model.parts:
        part.vertices = part.vertices @ similarity[:3, :3].T + similarity[:3, 3]
    model.bound = np.array([similarity @ motion @ back for motion in model.bound])
    for bone in bones:
        bone.place = similarity[:3, :3] @ bone.place + similarity[:3, 3]
        bone.turn = rotation_of(turn @ bone.turn)
        if bone.end is not None:
            bone.end = similarity[:3, :3] @ bone.end + similarity[:3, 3]
    bones[0].turn = np.eye(3)  # so that placements of the body mean world axes


def scale_of(model, extent, options):
    """Metres per unit of the file."""
    if options["length"]:
        scale = options["length"] / extent
        model.notes.append(
            f"Scaled by {scale:.6g} to a length of {options['length']:g} m; it was {extent:.6g}."
        )
        return scale
    try:
        factor = float(model.metadata.get("UnitScaleFactor", 1))
    except ValueError:
        factor = 1.0
    if not (1e-9 <= factor <= 1e9):
        raise BodyError(f"the file's UnitScaleFactor is {factor}; give --length")
    if factor != 1:
        model.notes.append(f"Lengths were divided by the file's UnitScaleFactor, {factor:g}.")
    if not TINY < extent / factor < HUGE:
        model.notes.append(
            f"The body is {extent / factor:.4g} m long. If the file's unit is no metre, give --length."
        )
    return 1 / factor


def coarse_enough(surface, samples, notes, warnings):
    """Merges short edges while too many faces are too small for a sample."""
    share = unsampled_share(surface, samples)
    if share <= UNSAMPLED:
        return surface
    result, before = surface, len(surface.faces)
    # edge of an equilateral face that gets its share of candidates
    edge = math.sqrt(4 / math.sqrt(3) * surface.area() / (10 * samples))
    for factor in (1.0, 1.5, 2.0, 3.0):
        coarser = coarsened(surface, factor * edge)
        if len(coarser.faces) < 12 or not is_closed(coarser):
            break
        if unsampled_share(coarser, samples) < unsampled_share(result, samples):
            result = coarser
        if unsampled_share(result, samples) <= UNSAMPLED:
            break
    if result is not surface:
        lost = 1 - result.volume() / surface.volume() if surface.volume() > 0 else 0.0
        result = inflated(result, surface.volume())
        notes.append(
            f"Short edges were merged, because faces much smaller than the area of a sample get none: {before} "
            f"faces became {len(result.faces)}. That took {lost:.1%} of the volume, which was given back by moving "
            "the skin outwards. More nodes or samples keep more faces."
        )
    left = unsampled_share(result, samples)
    if left > UNSAMPLED:
        warnings.append(
            f"{left:.0%} of the skin lies in faces too small for {samples} samples, and gets none. Use more "
            "samples, or fewer faces."
        )
    return result


def stretch(bone, rest, faces, extent):
    """Lays the one bone of a rigid body along its longest side, so that its link is centred in it."""
    corners = rest[faces]
    volume, first, _ = integrals(corners - rest.mean(axis=0))
    middle = rest.mean(axis=0) + (first / volume if volume > 0 else 0)
    half = np.zeros(3)
    half[np.argmax(extent)] = extent.max() / 4
    bone.place, bone.end = middle - half, middle + half


def write(body):
    """Writes everything into a new folder beside `folder`, loads it, and renames it when all is well."""
    from .picture import draw_body
    from .report import report

    parent = body.folder.parent
    temporary = Path(tempfile.mkdtemp(prefix=".import-", dir=parent))
    try:
        mesh = temporary / body.mesh.name
        mesh.write_bytes(mesh_file(body))
        weigh(body, SkeletonSystem(str(mesh), DEVICE))
        description = temporary / body.description.name
        write_description(body, description, mesh)
        live = load(body, description)
        if body.options["picture"]:
            try:
                draw_body(live, temporary / "picture.png")
            except RuntimeError as error:
                body.notes.append(f"There is no picture: {error}.")
        write_description(body, description, body.mesh)
        (temporary / "run.py").write_text(
            script(body.name, body.plan, swings(live, body.plan.length)), encoding="utf-8"
        )
        (temporary / "report.md").write_text(report(body), encoding="utf-8")
        os.chmod(temporary, 0o755)
        temporary.rename(body.folder)
    except BaseException:
        shutil.rmtree(temporary, ignore_errors=True)
        raise


def weigh(body, system):
    """Takes the links that loading derives, and gives them solids and masses."""
    body.joint_records = system.getJoints()
    for record in system.getLinks():
        ends = [
            r["transform"][:3, 3] for r in body.joint_records if r["name"] in record["children"]
        ]
        start = next(r for r in body.joint_records if r["name"] == record["joint"])["transform"][
            :3, 3
        ]
        length = float(np.linalg.norm(np.mean(ends, axis=0) - start))
        body.links.append(
            Link(
                record["key"], record["joint"], record["transform"], length, record["intermediate"]
            )
        )
    if not body.links:
        raise BodyError(
            f"'{body.source}' gives no link; this is a fault of the import, please report it"
        )
    owning = [link for link in body.links if not link.intermediate]
    centres = np.array([link.frame[:3, 3] for link in owning])
    for link, solid in zip(owning, link_solids(body.rest, body.surface.faces, centres)):
        link.solid = solid
    flat = [link.key for link in owning if link.solid.volume <= 0 and link.solid.area > 0]
    if flat:
        body.warnings.append(
            f"The skin of {', '.join(flat[:6])} encloses no volume, so the mass there stands for nothing: use "
            "--open-surface thicken, or give masses in the description."
        )
    options = body.options
    volume = sum(link.solid.volume for link in owning)
    give_masses(
        body.links,
        body.density,
        options["fluid_density"],
        options["mass"],
        volume,
        body.plan.length,
    )
    body.warnings += advice(
        body.links,
        options["coupling"],
        body.density,
        options["fluid_density"],
        body.plan.spacing,
        options["mass"],
    )
    if options["coupling"] == "explicit" and options["mass"] == "excess":
        check_turning(body, owning, centres)
    body.base = base_link(owning, volume)
    body.frame = frame_link(body, owning)


def check_turning(body, owning, centres):
    triangles = body.rest[body.surface.faces]
    owner = owners(triangles.mean(axis=1), centres)
    fluid, spacing = body.options["fluid_density"], body.plan.spacing
    margins = {
        link.key: turning_margin(link, triangles[owner == k], fluid, spacing)
        for k, link in enumerate(owning)
        if (owner == k).any()
    }
    weak = [key for key, margin in margins.items() if margin < 1]
    if not weak:
        return
    least, extra = min(margins.values()), body.density - fluid
    enough = (
        f" They suffice from a density of {fluid + extra / least:.4g} kg/m^3 on."
        if least > 0 < extra
        else ""
    )
    body.warnings.append(
        f"The moments of inertia of {len(weak)} links are too small for the explicit coupling: "
        f"{', '.join(weak[:6])}.{enough} Or choose --coupling semi-implicit or a smaller spacing."
    )


def base_link(owning, volume):
    """The link whose x axis, the body's heading, lies closest to forward; small links do not count."""
    large = [link for link in owning if link.solid.volume >= 0.02 * volume] or owning
    return max(large, key=lambda link: round(float(link.frame[0, 0]), 3)).key


def frame_link(body, owning):
    import fnmatch

    if not body.options["follow"]:
        return ""
    if body.options["follow"] == "auto":
        return max(owning, key=lambda link: link.solid.volume).key
    names = [link.key for link in owning]
    wanted = body.options["follow"]
    found = [
        name
        for name in names
        if name == wanted or fnmatch.fnmatchcase(name[len("[link]") :], wanted)
    ]
    if not found:
        raise BodyError(no_match("--follow", wanted, [name[len("[link]") :] for name in names]))
    return found[0]


def load(body, description):
    """Loads what was written, as a run will, and takes the names of the degrees of freedom."""
    try:
        live = make_skDynamics(
            skeletonFromJson(str(description), DEVICE), body.plan.samples, DEVICE,
            np.zeros(3), np.zeros(3), np.ones(3),
        )  # fmt: skip
    except (RuntimeError, ValueError) as error:
        raise BodyError(f"the imported body cannot be built: {error}") from error
    body.dofs = live.getDofNames()
    for joint in (live.getJoint(joint) for joint in live.getJointNames()):
        joint.setPositions(
            np.zeros(joint.getNumDofs())
        )  # limits may hold it away from the rest pose
    live.update()
    wanted = [
        skinned(part["vertices"], part["weights"], bone_motions(body)) for part in parts_of(body)
    ]
    away = np.abs(live.getSkinVertices() - np.concatenate(wanted)).max()
    if away > 1e-4 * body.plan.length:
        raise BodyError(
            f"the loaded skin is up to {away:.3g} m away from that of the file; this is a fault of the import, "
            "please report it"
        )
    return live
