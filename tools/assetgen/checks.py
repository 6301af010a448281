"""What the coupling asks of a body, and the report of it."""

import math

from .mesh import AssetError

FLUID_DENSITY = 1000.0  # kg/m^3

# The fluid's force on a link comes one step late, so a light link overshoots: it is stable above
# 0.55 rho A dx, A the link's wetted area and dx the node spacing.
STABLE_MASS_FACTOR = 0.55

# The sampler draws ten candidates per sample and rounds down face by face: a face below a tenth of
# a sample's share of the area gets none.
CANDIDATES_PER_SAMPLE = 10


def link_areas(asset):
    """Wetted area of each link, m^2."""
    owner = asset.chain.nearest_link(asset.mesh.face_centres())
    areas = asset.mesh.face_areas()
    return [math.fsum(areas[owner == k]) for k in range(len(asset.chain.links))]


def mass_limit(area, dx):
    return STABLE_MASS_FACTOR * FLUID_DENSITY * area * dx


def fewest_samples(mesh):
    """The smallest sample count for which every face gets a candidate."""
    return math.ceil(mesh.area() / (CANDIDATES_PER_SAMPLE * mesh.face_areas().min()))


def check(asset, dx):
    """Raises AssetError for an open surface, a link too light for dx, or too small faces."""
    asset.mesh.check_closed()
    if not asset.mesh.volume() > 0.0:
        raise AssetError(
            f"{asset.name}: the surface encloses no volume: its faces look inwards, or its "
            "retraction is larger than the body"
        )
    names = asset.chain.link_names()
    for name, link, area in zip(names, asset.chain.links, link_areas(asset)):
        limit = mass_limit(area, dx)
        if not link.mass > limit:
            raise AssetError(
                f"{asset.name}: {name} has a mass of {link.mass:.4g} kg, the coupling is stable "
                f"above {limit:.4g} kg at a node spacing of {dx:.4g} m: make it heavier or the "
                "spacing smaller"
            )
    needed = fewest_samples(asset.mesh)
    if asset.samples < needed:
        raise AssetError(
            f"{asset.name}: {asset.samples} samples leave the smallest of {len(asset.mesh.faces)} "
            f"faces without candidates: take at least {needed} samples or a coarser mesh"
        )


def report(asset, dx):
    """Sizes, masses and stability limits in words."""
    mesh = asset.mesh
    lines = [
        f"{asset.name} ({asset.model}.glb): {len(mesh.vertices)} vertices, "
        f"{len(mesh.faces)} faces, area {mesh.area():.6g} m^2, volume {mesh.volume():.6g} m^3",
        f"  {asset.samples} samples = {asset.samples * dx * dx / mesh.area():.2f} per lattice "
        f"area; every face gets candidates from {fewest_samples(mesh)} samples on",
    ]
    names = asset.chain.link_names()
    for name, link, area in zip(names, asset.chain.links, link_areas(asset)):
        limits = ", ".join(
            f"{mass_limit(area, spacing):.4g} kg at dx {spacing:.4g} m"
            for spacing in dict.fromkeys((dx, *asset.spacings))
        )
        largest = link.mass / mass_limit(area, 1.0)
        lines.append(
            f"  {name}: mass {link.mass:.4g} kg, area {area:.4g} m^2, stability limit {limits}; "
            f"stable below dx {largest:.4g} m"
        )
    return "\n".join(lines)
