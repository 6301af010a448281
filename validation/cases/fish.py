"""The bundled fish, as heavy as the fluid, swims as `examples/swimming.py --neutral` lets it."""

from __future__ import annotations

from dataclasses import replace

import numpy as np
from assetgen.swimmer import LENGTH, swimmer_assets
from support import SWIMMERS

from ..report import Results
from ..swimmers import swim


def run(coarse):
    results = Results("fish")
    swimmer, cycles = SWIMMERS["swimmer"], 3
    if coarse:
        swimmer, cycles = replace(swimmer, nodes=24), 1
    assets = swimmer_assets(LENGTH / swimmer.nodes)
    asset = next(asset for asset in assets if asset.name == "swimmer_neutral")
    ahead, aside = swim(asset, swimmer, cycles, "fish").means()
    if coarse:
        results.between("forward speed in the first cycle [L]", ahead[0], 0.005, 0.3, "start")
        return results
    heavier = "the same fish with excess mass, fixed grid"
    results.above("forward speed in the third cycle [L per cycle]", ahead[-1], 0.157, heavier)
    results.below("lateral over forward speed", abs(aside[-1]) / ahead[-1], 0.1, "symmetry")
    times = np.arange(1, cycles + 1)
    curves = {"forward": (times, ahead), "lateral": (times, aside)}
    results.plot("A fish as heavy as the fluid", "cycle", "mean speed [L per cycle]", curves)
    return results
