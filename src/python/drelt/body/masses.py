"""Masses and inertia of links, and whether the coupling with the fluid is stable for them.

The fluid inside a skin counts as mass, so a body in the fluid gets its excess mass: (density of the body minus
that of the fluid) times volume. Steps without fluid and with the empirical model want the total mass.

With the explicit coupling a link is stable if its excess mass is above 0.55 rho A dx, where A is its wetted area, rho
the fluid's density and dx the node spacing; with the semi-implicit coupling above -0.45 rho A dx.
"""

import math
from dataclasses import dataclass

import numpy as np

LEAST = {"explicit": 0.55, "semi-implicit": -0.45}
EMPTY = 1e-5  # mass of a link without skin, as a share of the fluid's mass in the whole body


@dataclass
class Link:
    """A link as loading derives it, with its body.

    key: in the description. joint: name of its joint. frame: 4 x 4, link to world at rest. solid: None for a
    link at a fork. size: diameters [m] of the ellipsoid with its moments of inertia.
    """

    key: str
    joint: str
    frame: np.ndarray
    length: float
    intermediate: bool
    solid: object = None
    mass: float = 0.0
    size: tuple = (0.0, 0.0, 0.0)

    def description(self):
        return {
            "name": self.key,
            "mass": float(f"{self.mass:.9g}"),
            "size": [float(f"{d:.9g}") for d in self.size],
            "radius ": float(f"{min(self.size) / 4:.9g}"),
            "isIntermediate": self.intermediate,
        }


def give_masses(links, density, fluid, kind, body_volume, body_length):
    """Fills in masses and sizes. kind: 'excess' or 'total'; densities in kg/m^3."""
    effective = density - fluid if kind == "excess" else density
    spare = EMPTY * fluid * max(body_volume, 1e-9 * body_length**3)
    for link in links:
        solid = link.solid
        thin = 1e-3 * body_length
        if solid is None or solid.volume <= 0:
            link.mass, link.size = spare, (max(link.length, thin), thin, thin)
            continue
        link.mass = effective * solid.volume
        axes = link.frame[:3, :3]
        square = np.einsum("ji,jk,ki->i", axes, solid.moments, axes) / solid.volume
        # in an ellipsoid of diameter d along an axis, the mean square along it is d^2 / 20
        link.size = tuple(math.sqrt(20 * max(s, (thin / 10) ** 2)) for s in square)


def limit(link, coupling, fluid, spacing):
    """The mass [kg] above which a link is stable; 0 for one without skin."""
    return LEAST[coupling] * fluid * link.solid.area * spacing if link.solid else 0.0


def turning_margin(link, triangles, fluid, spacing):
    """Least moment of inertia over the limit of the explicit coupling, about the link's centre.

    The limit is that of the mass, spread over the link's surface (triangles).
    """
    corners = np.cross(triangles[:, 1] - triangles[:, 0], triangles[:, 2] - triangles[:, 0])
    areas = 0.5 * np.linalg.norm(corners, axis=1)
    offsets = (triangles.mean(axis=1) - link.frame[:3, 3]) @ link.frame[:3, :3]
    spread = areas @ offsets**2
    square = np.array([link.mass * d * d / 20 for d in link.size])
    factor = LEAST["explicit"] * fluid * spacing
    pairs = ((1, 2), (2, 0), (0, 1))
    return min(
        (square[a] + square[b]) / (factor * (spread[a] + spread[b]) + 1e-300) for a, b in pairs
    )


def advice(links, coupling, density, fluid, spacing, kind):
    """Sentences on links that the coupling cannot hold, and what to do. Empty if all are stable."""
    if kind == "total":
        return [
            "Masses are total masses, for steps without fluid and with the empirical model. In the fluid they "
            "count twice: import again with --mass excess for those."
        ]
    weak = [
        link
        for link in links
        if link.solid
        and link.solid.area > 0
        and not link.mass > limit(link, coupling, fluid, spacing)
    ]
    if not weak:
        return []
    text = [
        f"{len(weak)} of {len(links)} links are too light for the {coupling} coupling at a node spacing of "
        f"{spacing:.4g} m: "
        + "; ".join(
            f"{link.key} has {link.mass:.4g} kg and needs more than "
            f"{limit(link, coupling, fluid, spacing):.4g} kg"
            for link in weak[:6]
        )
        + ("; ..." if len(weak) > 6 else "")
        + "."
    ]
    bulky = [link for link in weak if link.solid.volume > 0]
    if bulky:
        need = max(
            LEAST[coupling] * fluid * link.solid.area * spacing / link.solid.volume
            for link in bulky
        )
        text.append(f"Their masses suffice from a density of {fluid + need:.4g} kg/m^3 on.")
        if coupling == "explicit" and density > fluid:
            fine = min(
                (density - fluid) * link.solid.volume / (LEAST[coupling] * fluid * link.solid.area)
                for link in bulky
            )
            text.append(
                f"At this density the explicit coupling is stable below a spacing of {fine:.4g} m."
            )
    if coupling == "explicit":
        text.append("Or choose --coupling semi-implicit.")
    return text
