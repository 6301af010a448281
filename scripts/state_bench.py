"""Measures state files: speed of a save and a load, and bytes per node on the disk.

usage: state_bench.py [ROUNDS]   (default 3), from the repository's root, with drelt on PYTHONPATH

A sphere falls in a box of half a million nodes, without and with an absorbing layer, for long enough
that its wake moves. Prints medians. MB/s counts bytes of the file, which is compressed.
"""

import statistics
import sys
import tempfile
import time
from pathlib import Path

import drelt
import numpy as np

GRID = (128, 64, 64)
STEPS = 200
ZERO = np.zeros(3)


def simulator(layer):
    p = drelt.make_simParams()
    p.setup_mode = drelt.SETUP_MODE.MANUAL
    p.l0p, p.N = 0.02, 16
    p.u0p, p.u0k = 0.1, 0.1
    p.visp, p.rou0p = 4e-5, 1000.0
    p.pml_width = layer
    p.width, p.height, p.depth = ((nodes - 0.5) * p.l0p / p.N for nodes in GRID)
    sim = drelt.make_simulator(p, -1)
    world = drelt.make_skWorld([0.5, 0, 0])
    sphere = drelt.skeletonFromJson("assets/sphere.json", -1)
    world.addSkeleton(drelt.make_skDynamics(sphere, 800, -1, ZERO, ZERO, np.ones(3)))
    sim.attachWorld(world)
    sim.commitInit()
    return sim


def timed(call, *arguments):
    start = time.perf_counter()
    call(*arguments)
    return time.perf_counter() - start


def main():
    rounds = int(sys.argv[1]) if len(sys.argv) > 1 else 3
    drelt.setVerbosity(0)
    nodes = int(np.prod(GRID))
    print("layer  bytes   save: s   MB/s  Mnodes/s  steps in   load: s   MB/s  Mnodes/s")
    print("       /node                            its time")
    with tempfile.TemporaryDirectory() as folder:
        file = Path(folder) / "state.h5"
        for layer in (0, 10):
            sim = simulator(layer)
            step = timed(sim.step, drelt.COUPLE_MODE.TWO_WAY, STEPS) / STEPS
            save = statistics.median(timed(sim.saveState, file) for _ in range(rounds))
            load = statistics.median(timed(sim.loadState, file) for _ in range(rounds))
            size = file.stat().st_size
            print(
                f"{layer:5} {size / nodes:6.1f} {save:9.2f} {size / save / 1e6:6.0f}"
                f" {nodes / save / 1e6:9.2f} {save / step:9.0f} {load:9.2f}"
                f" {size / load / 1e6:6.0f} {nodes / load / 1e6:9.2f}"
            )


if __name__ == "__main__":
    main()
