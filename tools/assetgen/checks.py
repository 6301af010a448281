"""Checks that a body is fit for the coupling, and the report on it."""

import math

from .mesh import AssetError, coordinates

FLUID_DENSITY = 1000.0  # kg/m^3

# With the explicit coupling the fluid's force on a link comes one step late, so a light link overshoots. A
# link is stable if its mass is above 0.55 rho A dx, where A is its wetted area and dx the node spacing. With
# the semi-implicit coupling it is stable above -0.45 rho A dx.
STABLE_MASS_FACTOR = 0.55
SEMI_IMPLICIT_MASS_FACTOR = -0.45

# The sampler draws ten candidates per sample and rounds down face by face. A face smaller than a
# tenth of a sample's share of the area gets none.
CANDIDATES_PER_SAMPLE = 10


def link_areas(asset):
    """Wetted area of each link that has a surface, m^2."""
    owner = asset.tree.nearest_link(asset.mesh.face_centres())
    areas = asset.mesh.face_areas()
    return [math.fsum(areas[owner == k]) for k in range(len(asset.tree.bodies()))]


def mass_limit(asset, area, dx):
    factor = SEMI_IMPLICIT_MASS_FACTOR if asset.semi_implicit else STABLE_MASS_FACTOR
    return factor * FLUID_DENSITY * area * dx


def turning_margin(asset, k, dx):
    """Least moment of inertia of link k over its stability limit, about the link's centre.

    The limit adds up that of the mass, 0.55 rho dx per area, times the squared distance from the
    axis, over the link's surface.
    """
    body = asset.tree.bodies()[k]
    link = asset.tree.links[body.name]
    start, end = asset.tree.link_ends(body)
    along, up, aside = asset.tree.link_axes(body)
    own = asset.tree.nearest_link(asset.mesh.face_centres()) == k
    offsets = asset.mesh.face_centres()[own] - 0.5 * (start + end)
    areas = asset.mesh.face_areas()[own]
    spread = [math.fsum(areas * coordinates(offsets, axis) ** 2) for axis in (along, up, aside)]
    square = [link.mass * d * d / 20.0 for d in link.size]
    limit = STABLE_MASS_FACTOR * FLUID_DENSITY * dx
    pairs = ((1, 2), (2, 0), (0, 1))
    return min((square[a] + square[b]) / (limit * (spread[a] + spread[b])) for a, b in pairs)


def fewest_samples(mesh):
    """The smallest sample count for which every face gets a candidate.

    The sampler shares the samples out among the parts by area, and then among a part's faces.
    """
    areas = mesh.face_areas()
    total = mesh.area()
    needed = 0
    for part in mesh.parts:
        own = math.fsum(areas[part.faces])
        samples = math.ceil(own / (CANDIDATES_PER_SAMPLE * areas[part.faces].min()))
        needed = max(needed, math.ceil(samples * (total / own)))
    return needed


def check(asset):
    """Raises AssetError if the coupling cannot use the body.

    That is the case if its surface is open or encloses no volume, if a link has too little mass or
    inertia for dx, or if faces are too small for the samples.
    """
    asset.mesh.check_closed()
    if not asset.mesh.volume() > 0.0:
        raise AssetError(
            f"{asset.name}: the surface encloses no volume: its faces look inwards, or its "
            "retraction is larger than the body"
        )
    for name, mass, area in zip(asset.tree.link_names(), asset.tree.masses(), link_areas(asset)):
        limit = mass_limit(asset, area, asset.dx)
        if not mass > limit:
            raise AssetError(
                f"{asset.name}: {name} has a mass of {mass:.4g} kg, but the coupling is stable "
                f"above {limit:.4g} kg at a node spacing of {asset.dx:.4g} m: make the link heavier "
                "or the spacing smaller"
            )
    # the semi-implicit coupling adds the inertia that a link without any needs
    names = [] if asset.semi_implicit else asset.tree.link_names()
    for k, name in enumerate(names):
        margin = turning_margin(asset, k, asset.dx)
        if not margin > 1.0:
            raise AssetError(
                f"{asset.name}: {name} has {margin:.2f} times the moment of inertia that a stable "
                f"coupling needs at a node spacing of {asset.dx:.4g} m: make the link wider or "
                "heavier, or the spacing smaller"
            )
    needed = fewest_samples(asset.mesh)
    if asset.samples < needed:
        raise AssetError(
            f"{asset.name}: {asset.samples} samples leave the smallest of {len(asset.mesh.faces)} "
            f"faces without candidates: take at least {needed} samples or a coarser mesh"
        )


def report(asset):
    """Sizes, masses and stability limits in words."""
    mesh = asset.mesh
    lines = [
        f"{asset.name} ({asset.model}.glb): {len(mesh.vertices)} vertices, "
        f"{len(mesh.faces)} faces, area {mesh.area():.6g} m^2, volume {mesh.volume():.6g} m^3",
        f"  {asset.samples} samples = {asset.samples * asset.dx**2 / mesh.area():.2f} per lattice "
        f"area; every face gets candidates from {fewest_samples(mesh)} samples on",
    ]
    for name, mass, area in zip(asset.tree.link_names(), asset.tree.masses(), link_areas(asset)):
        limits = ", ".join(
            f"{mass_limit(asset, area, spacing):.4g} kg at dx {spacing:.4g} m"
            for spacing in dict.fromkeys((asset.dx, *asset.spacings))
        )
        largest = mass / mass_limit(asset, area, 1.0)
        stable = "at any dx" if asset.semi_implicit and mass >= 0 else f"below dx {largest:.4g} m"
        lines.append(
            f"  {name}: mass {mass:.4g} kg, area {area:.4g} m^2, stability limit {limits}; "
            f"stable {stable}"
        )
    return "\n".join(lines)
