"""Compares a pool of small worlds with one large grid: node updates per second on the same threads.

usage: pool_bench.py [ROUNDS]   (default 10), from the repository's root, with drelt on PYTHONPATH

Eight worlds of 0.2 million nodes with a sphere each, and one grid of 1.6 million with eight spheres, take
turns.
OMP_NUM_THREADS chooses the threads (default: all processors). Prints the medians and the median ratio of
a round, which should be at least 0.9. Other programs disturb the numbers; the script prints how many
processors they used. On a busy machine look at the ratio by processor time, which counts neither waiting
for a processor nor idle threads.
"""

import os
import statistics
import sys
import time

import drelt
import numpy as np
from busy_bench import processors_in_use

WORLDS = 8
SMALL, LARGE = (96, 46, 45), (192, 92, 90)  # nodes
STEPS = 10  # of all worlds, per measurement


def committed(grid, spheres=1):
    """A simulator with one sphere in the middle, or with eight in the middles of the box's eighths."""
    p = drelt.make_simParams()
    p.setup_mode = drelt.SETUP_MODE.MANUAL
    p.l0p, p.N = 0.02, 16
    p.u0p, p.u0k = 0.1, 0.1
    p.visp, p.rou0p = 4e-5, 1000.0
    p.width, p.height, p.depth = ((nodes - 0.5) * p.l0p / p.N for nodes in grid)
    simulator = drelt.make_simulator(p, -1)
    world = drelt.make_skWorld(np.array([0.5, 0, 0]))
    for i in range(spheres):
        signs = np.array([i & 1, i >> 1 & 1, i >> 2]) - 0.5 if spheres > 1 else np.zeros(3)
        place = 0.5 * signs * (p.width, p.height, p.depth)
        sphere = drelt.skeletonFromJson("assets/sphere.json", -1)
        world.addSkeleton(drelt.make_skDynamics(sphere, 800, -1, place, np.zeros(3), np.ones(3)))
    simulator.attachWorld(world)
    simulator.commitInit()
    return simulator


def measure(step, nodes):
    """Million node updates per second and per processor second; processors that other programs used."""
    start, total, own = time.perf_counter(), processors_in_use(), time.process_time()
    step()
    seconds, own = time.perf_counter() - start, time.process_time() - own
    others = (processors_in_use() - total - own) / seconds
    updates = 1e-6 * STEPS * nodes
    return updates / seconds, updates / own, max(0.0, others)


def main(rounds):
    mode = drelt.COUPLE_MODE.TWO_WAY
    pool = drelt.make_pool([committed(SMALL) for _ in range(WORLDS)])
    single = committed(LARGE, spheres=WORLDS)
    cases = {
        "pool": (lambda: pool.step(mode, count=STEPS), WORLDS * int(np.prod(SMALL))),
        "one grid": (lambda: [single.step(mode) for _ in range(STEPS)], int(np.prod(LARGE))),
    }
    for step, _ in cases.values():
        step()
    results = {name: [] for name in cases}
    for _ in range(rounds):
        for name, (step, nodes) in cases.items():
            results[name].append(measure(step, nodes))
    threads = os.environ.get("OMP_NUM_THREADS", os.cpu_count())
    print(f"{rounds} rounds of {STEPS} steps, {threads} threads, {os.cpu_count()} processors")
    for name, (_, nodes) in cases.items():
        speeds = [speed for speed, _, _ in results[name]]
        print(
            f"{name:9} {1e-6 * nodes:.2f} million nodes: {statistics.median(speeds):.1f} million node "
            f"updates a second ({min(speeds):.1f} to {max(speeds):.1f})"
        )
    rows = list(zip(results["pool"], results["one grid"]))
    for i, by in enumerate(("time", "processor time")):
        ratio = statistics.median(a[i] / b[i] for a, b in rows)
        print(f"pool / one grid {ratio:.2f} by {by} (at least 0.9)")
    others = statistics.median(case[2] for row in rows for case in row)
    print(f"other programs used {others:.2f} processors")


if __name__ == "__main__":
    main(int(sys.argv[1]) if len(sys.argv) > 1 else 10)
