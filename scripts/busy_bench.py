"""Measures how the threads' waiting affects a step: alone, and beside a busy process on the same cores.

usage: busy_bench.py [ROUNDS]   (default 10), from the repository's root, with drelt on PYTHONPATH

Two processes take turns with the same scene of half a million nodes. One waits as drelt does by default,
the other spins endlessly. Prints the median time of a step in each case and two ratios:
  beside / alone      default waiting: time beside a busy process over time alone; should be at most 3
  default / spinning  alone: time with default waiting over time with spinning; should be at most 1.03
Other programs disturb the numbers; the script prints how many processors they used.
"""

import os
import signal
import statistics
import subprocess
import sys
import time

STEPS = 50  # per measurement
GRID = (128, 64, 64)
POLICIES = ("OMP_WAIT_POLICY", "GOMP_SPINCOUNT", "KMP_BLOCKTIME")


def simulator():
    import drelt
    import numpy as np

    p = drelt.make_simParams()
    p.setup_mode = drelt.SETUP_MODE.MANUAL
    p.l0p, p.N = 0.02, 16
    p.u0p, p.u0k = 0.1, 0.1
    p.visp, p.rou0p = 4e-5, 1000.0
    p.width, p.height, p.depth = ((nodes - 0.5) * p.l0p / p.N for nodes in GRID)
    sim = drelt.make_simulator(p, -1)
    world = drelt.make_skWorld(np.array([0.5, 0, 0]))
    sphere = drelt.skeletonFromJson("assets/sphere.json", -1)
    world.addSkeleton(drelt.make_skDynamics(sphere, 800, -1, np.zeros(3), np.zeros(3), np.ones(3)))
    sim.attachWorld(world)
    sim.commitInit()
    return sim, drelt.COUPLE_MODE.TWO_WAY


def work():
    """For each line on standard input, times STEPS steps: median step [ms], processors in use."""
    sim, mode = simulator()
    sim.step(mode)
    print("ready", flush=True)
    for _ in sys.stdin:
        times = []
        start, used = time.perf_counter(), time.process_time()
        for _ in range(STEPS):
            before = time.perf_counter()
            sim.step(mode)
            times.append(time.perf_counter() - before)
        used = (time.process_time() - used) / (time.perf_counter() - start)
        print(1e3 * statistics.median(times), used, flush=True)


def processors_in_use():
    """Processor seconds of all programs since the machine started."""
    with open("/proc/stat", encoding="ascii") as file:
        ticks = [int(n) for n in file.readline().split()[1:9]]
    return (sum(ticks) - ticks[3] - ticks[4]) / os.sysconf("SC_CLK_TCK")


class Worker:
    """A stopped process that runs only while it measures."""

    def __init__(self, **variables):
        environment = {k: v for k, v in os.environ.items() if k not in POLICIES}
        self.process = subprocess.Popen(
            [sys.executable, __file__, "--work"],
            env={**environment, **variables},
            stdin=subprocess.PIPE,
            stdout=subprocess.PIPE,
            text=True,
        )
        # drelt may print about the device first
        if "ready\n" not in iter(self.process.stdout.readline, ""):
            sys.exit("a worker ended before its first step")
        self.process.send_signal(signal.SIGSTOP)
        self.steps = {"alone": [], "beside": []}
        self.others = []

    def measure(self, case):
        self.process.send_signal(signal.SIGCONT)
        start, total = time.perf_counter(), processors_in_use()
        print(file=self.process.stdin, flush=True)
        step, own = map(float, self.process.stdout.readline().split())
        self.process.send_signal(signal.SIGSTOP)
        self.steps[case].append(step)
        if case == "alone":
            total = (processors_in_use() - total) / (time.perf_counter() - start)
            self.others.append(max(0.0, total - own))


def main(rounds):
    default, spinning = workers = Worker(), Worker(OMP_WAIT_POLICY="active")
    try:
        for _ in range(rounds):
            for worker in workers:
                worker.measure("alone")
            for worker in workers:
                busy = subprocess.Popen([sys.executable, "-c", "while True: pass"])
                time.sleep(0.2)
                worker.measure("beside")
                busy.kill()
                busy.wait()
    finally:
        for worker in workers:
            worker.process.kill()
    print(f"{'x'.join(map(str, GRID))} nodes, {os.cpu_count()} processors, {rounds} rounds")
    for name, worker in (("default waiting", default), ("endless spinning", spinning)):
        alone, beside = (statistics.median(worker.steps[case]) for case in ("alone", "beside"))
        print(f"{name:17} alone {alone:.2f} ms, beside {beside:.2f} ms: {beside / alone:.2f} times")
    slower = statistics.median(
        a / b for a, b in zip(default.steps["alone"], spinning.steps["alone"])
    )
    beside = statistics.median(
        b / a for a, b in zip(default.steps["alone"], default.steps["beside"])
    )
    others = statistics.median(default.others + spinning.others)
    print(f"beside / alone     {beside:.2f}  (at most 3)")
    print(f"default / spinning {slower:.3f} (at most 1.03)")
    print(f"other programs used {others:.2f} processors while it ran alone")


if __name__ == "__main__":
    if sys.argv[1:] == ["--work"]:
        work()
    else:
        main(int(sys.argv[1]) if len(sys.argv) > 1 else 10)
