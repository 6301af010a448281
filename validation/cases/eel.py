"""An eel as heavy as the fluid swims: body and gait of Kern and Koumoutsakos (J. Exp. Biol. 209, 2006)."""

from __future__ import annotations

from dataclasses import replace

import numpy as np
from assetgen.eel import LENGTH, eel_assets
from support import SWIMMERS

from ..report import Results
from ..swimmers import swim

KERN = "Kern and Koumoutsakos (2006)"
CYCLES = 5
NODES, BOX = 110, (1.6, 0.5, 0.8)  # node spacings per length; lengths


def eel(nodes):
    assets = eel_assets(LENGTH / nodes)
    return next(asset for asset in assets if asset.name == "eel_neutral")


def speeds(nodes, box, cycles, title, **options):
    """Mean forward and lateral speed in each cycle [L per cycle]. box: its edges in lengths."""
    swimmer = replace(SWIMMERS["eel"], nodes=nodes, box=box)
    return swim(eel(nodes), swimmer, cycles, title, retraction=0.8, **options).means()


def run(coarse):
    results = Results("eel")
    mesh = eel(NODES).mesh
    # the integrals of the published half-axes
    results.near("volume of the mesh [L^3]", mesh.volume() / LENGTH**3, 0.005933, KERN, 0.015)
    results.near("wetted area of the mesh [L^2]", mesh.area() / LENGTH**2, 0.3039, KERN, 0.003)
    if coarse:
        ahead, _ = speeds(32, BOX, 1, "eel")
        results.between("forward speed in the first cycle [L]", ahead[0], 0.005, 0.1, "start")
        return results
    curves = {}

    def swum(label, nodes, box):
        found = speeds(nodes, box, CYCLES, f"eel, {label}")
        curves[label] = np.arange(1, CYCLES + 1), found[0]
        results.told(f"{label}: forward speed in the fifth cycle [L per cycle]", found[0][-1])
        return found

    ahead, aside = swum(f"{NODES} nodes per length", NODES, BOX)
    results.between("forward speed in the fifth cycle [L per cycle]", ahead[-1], 0.26, 0.50, KERN)
    results.below("lateral over forward speed", abs(aside[-1]) / ahead[-1], 0.1, KERN)
    # the viscous layer at the skin is thinner than a node spacing: a coarse grid slows the eel
    swum("72 nodes per length", 72, BOX)
    small, _ = swum("50 nodes per length", 50, BOX)
    large, _ = swum("50 nodes, larger box", 50, tuple(1.5 * edge for edge in BOX))
    name = "speed in a box half as long again over that, 50 nodes per length"
    results.near(name, large[-1] / small[-1], 1.0, "open water", 0.02)
    results.plot("An eel as heavy as the fluid", "cycle", "mean speed [L per cycle]", curves)
    return results
