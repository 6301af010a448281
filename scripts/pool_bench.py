"""Compares a pool of small worlds with one large grid: node updates per second on the same threads.

usage: pool_bench.py [ROUNDS]   (default 10), from the repository's root, with drelt on PYTHONPATH

Eight worlds of 0.2 million nodes and one grid of 1.6 million take turns, each with a sphere per world.
OMP_NUM_THREADS chooses the threads (default: all processors). Prints the medians and the median ratio of
a round, which should be at least 0.9. Other programs disturb the numbers; the script prints how many
processors they used.
"""

import os
import statistics
import sys
import time

import drelt
import numpy as np
from busy_bench import processors_in_use

WORLDS = 8
SMALL, LARGE = (78, 51, 50), (156, 102, 100)  # nodes
STEPS = 10  # of all worlds, per measurement


def committed(grid):
    p = drelt.make_simParams()
    p.setup_mode = drelt.SETUP_MODE.MANUAL
    p.l0p, p.N = 0.02, 16
    p.u0p, p.u0k = 0.1, 0.1
    p.visp, p.rou0p = 4e-5, 1000.0
    p.width, p.height, p.depth = ((nodes - 0.5) * p.l0p / p.N for nodes in grid)
    simulator = drelt.make_simulator(p, -1)
    world = drelt.make_skWorld(np.array([0.5, 0, 0]))
    sphere = drelt.skeletonFromJson("assets/sphere.json", -1)
    world.addSkeleton(drelt.make_skDynamics(sphere, 800, -1, np.zeros(3), np.zeros(3), np.ones(3)))
    simulator.attachWorld(world)
    simulator.commitInit()
    return simulator


def measure(step, nodes):
    """Million node updates per second, and the processors that other programs used."""
    start, total, own = time.perf_counter(), processors_in_use(), time.process_time()
    step()
    seconds = time.perf_counter() - start
    others = (processors_in_use() - total - (time.process_time() - own)) / seconds
    return 1e-6 * STEPS * nodes / seconds, max(0.0, others)


def main(rounds):
    mode = drelt.COUPLE_MODE.TWO_WAY
    pool = drelt.make_pool([committed(SMALL) for _ in range(WORLDS)])
    single = committed(LARGE)
    cases = {
        "pool": (lambda: pool.step(mode, count=STEPS), WORLDS * int(np.prod(SMALL))),
        "one grid": (lambda: [single.step(mode) for _ in range(STEPS)], int(np.prod(LARGE))),
    }
    for step, _ in cases.values():
        step()
    results = {name: [] for name in cases}
    others = []
    for _ in range(rounds):
        for name, (step, nodes) in cases.items():
            speed, disturbance = measure(step, nodes)
            results[name].append(speed)
            others.append(disturbance)
    threads = os.environ.get("OMP_NUM_THREADS", os.cpu_count())
    print(f"{rounds} rounds of {STEPS} steps, {threads} threads, {os.cpu_count()} processors")
    for name, (_, nodes) in cases.items():
        speeds = results[name]
        print(
            f"{name:9} {1e-6 * nodes:.2f} million nodes: {statistics.median(speeds):.1f} million node "
            f"updates a second ({min(speeds):.1f} to {max(speeds):.1f})"
        )
    ratio = statistics.median(a / b for a, b in zip(results["pool"], results["one grid"]))
    print(f"pool / one grid {ratio:.2f} (at least 0.9)")
    print(f"other programs used {statistics.median(others):.2f} processors")


if __name__ == "__main__":
    main(int(sys.argv[1]) if len(sys.argv) > 1 else 10)
