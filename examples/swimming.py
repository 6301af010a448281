"""A fish-like body, or an eel, swims by a travelling wave of its joints.

It leaves VTK frames of fluid, bodies and markers in data/vis_data, a picture of the path, the
speeds and a marker's signal, and prints the mean speed over the last cycle.
"""

import argparse
from dataclasses import dataclass
from pathlib import Path

import drelt
import matplotlib
import numpy as np
from gaits import ANGUILLIFORM_GAIT, SPRINT_GAIT, servo_command
from support import ROOT, ZERO, progress, wall_clock

matplotlib.use("Agg")
import matplotlib.pyplot as plt

LENGTH = 0.2  # m
PERIOD = 1.0  # s
MODES = {name.lower(): mode for name, mode in drelt.COUPLE_MODE.__members__.items()}
BODY_FRAMES, FLUID_FRAMES = 16, 4  # a cycle
FLANK = 1  # the marker whose signal is shown


@dataclass
class Swimmer:
    """A body with its gait and the box that it swims in.

    ends: stations of the segments' ends in the order of the bones, over the length. tail: amplitude
    of the tail over the length. nodes: node spacings a length. viscosity in length^2/period. box:
    its edges in lengths along x, y, z; ahead: how far its centre lies ahead of the body's.
    """

    midline: object
    ends: np.ndarray
    tail: float
    nodes: int
    u0k: float
    viscosity: float
    box: tuple
    ahead: float
    samples: int


# the fish's head is stiff; its fin is one more segment behind the peduncle at 0.86
SWIMMERS = {
    "swimmer": Swimmer(
        midline=SPRINT_GAIT,
        ends=np.array([0.0, *np.linspace(0.2, 0.86, 8), 1.0]),
        tail=0.2,
        nodes=64,
        u0k=0.1,
        viscosity=2e-4,
        box=(2.5, 0.875, 1.25),
        ahead=0.15,
        samples=2000,
    ),
    "eel": Swimmer(
        midline=ANGUILLIFORM_GAIT,
        ends=np.linspace(1.0, 0.0, 15),
        tail=0.125,
        nodes=100,
        u0k=0.08,
        viscosity=1.4e-4,
        box=(2.0, 0.6, 0.9),
        ahead=0.0,
        samples=4000,
    ),
}


def parse_arguments():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--mode", choices=sorted(MODES), default="two_way")
    parser.add_argument("--body", choices=sorted(SWIMMERS), default="swimmer")
    parser.add_argument("--cycles", type=int, default=3, help="beat cycles to simulate")
    parser.add_argument("--nodes", type=int, help="node spacings a body length")
    parser.add_argument("--no-frames", action="store_true", help="write no VTK files")
    parser.add_argument("--out", default=str(ROOT / "data"), help="folder for files and pictures")
    return parser.parse_args()


def make_scene(name, swimmer, nodes, device=0):
    """Simulator and body, ready to step, and the number of fluid nodes."""
    param = drelt.make_simParams()
    param.setup_mode = drelt.SETUP_MODE.MANUAL
    param.l0p, param.N = LENGTH, nodes
    param.u0p = 2.0 * np.pi * swimmer.tail * LENGTH / PERIOD  # highest speed of the tail
    param.u0k = swimmer.u0k
    param.visp = swimmer.viscosity * LENGTH**2 / PERIOD
    param.rou0p = 1000.0
    counts = [round(edge * nodes) for edge in swimmer.box]
    # a hundredth of a node less keeps the size off the border between two counts; not more, since
    # markers find their cell by size over count, and would jump between cells
    param.width, param.height, param.depth = ((n - 0.01) * LENGTH / nodes for n in counts)
    param.x0 = swimmer.ahead * LENGTH
    simulator = drelt.make_simulator(param, device)
    description = drelt.skeletonFromJson(str(ROOT / "assets" / f"{name}.json"), device)
    body = drelt.make_skDynamics(description, swimmer.samples, device, ZERO, ZERO, np.ones(3))
    world = drelt.make_skWorld(ZERO)
    world.addSkeleton(body)
    simulator.attachWorld(world)
    simulator.commitInit()
    return simulator, body, param.get_tp(), int(np.prod(counts))


def swim(simulator, body, swimmer, mode, steps, dt):
    """Yields after each step: time, centre of mass, its velocity, heading, a marker's signal."""
    for step in range(steps):
        t = step * dt / PERIOD
        actual = body.getPositions(False)
        rates = servo_command(swimmer.midline, swimmer.ends, t, dt / PERIOD, actual)
        body.setCommands(rates / PERIOD)
        simulator.step(mode)
        yield (
            (step + 1) * dt / PERIOD,
            np.ravel(body.getCOM()) / LENGTH,
            np.ravel(body.getCOMLinearVelocity()) * PERIOD / LENGTH,
            np.ravel(body.getBaseLinkFwd()),
            body.getMarkers().getMarkersPressure()[FLANK],
        )


def draw(times, path, forward, lateral, signal, title, file):
    figure, (above, middle, below) = plt.subplots(3, figsize=(7, 8), layout="constrained")
    above.plot(path[:, 0], path[:, 2])
    above.plot(*path[0, ::2], "o", label="start")
    above.set(xlabel="$x/L$", ylabel="$z/L$", title=title)
    above.axis("equal")
    above.legend()
    middle.plot(times, forward, label="forward")
    middle.plot(times, lateral, label="lateral")
    middle.axhline(0.0, color="black", linewidth=0.5)
    middle.set(xlabel="time $t/T$", ylabel="speed of the centre of mass [$L/T$]")
    middle.legend()
    below.plot(times, signal)
    below.set(xlabel="time $t/T$", ylabel="density at a flank marker, less 1")
    figure.savefig(file, dpi=150)
    plt.close(figure)


def main():
    args = parse_arguments()
    swimmer = SWIMMERS[args.body]
    nodes = args.nodes or swimmer.nodes
    simulator, body, dt, node_count = make_scene(args.body, swimmer, nodes)
    simulator.mainDataFolderPath = f"{args.out}/vis_data/"
    Path(args.out).mkdir(parents=True, exist_ok=True)  # the picture comes last: no run for nothing
    simulator.log()

    cycle = round(PERIOD / dt)
    steps = args.cycles * cycle
    records = []
    seconds = wall_clock()
    states = swim(simulator, body, swimmer, MODES[args.mode], steps, dt)
    for step in progress(steps, node_count, f"{args.body}, {args.mode}"):
        records.append(next(states))
        if not args.no_frames:
            save(simulator, step + 1, cycle)

    times, path, velocity, heading, signal = map(np.array, zip(*records))
    ahead = heading[-cycle:].mean(axis=0)
    ahead /= np.linalg.norm(ahead)
    aside = np.cross(ahead, (0.0, 1.0, 0.0))
    forward, lateral = velocity @ ahead, velocity @ aside
    picture = f"{args.out}/{args.body}_{args.mode}.png"
    title = f"{args.body}, {args.mode}, Re = {1 / swimmer.viscosity:.0f} ($L^2/T\\nu$)"
    draw(times, path, forward, lateral, signal - 1.0, title, picture)
    print(
        f"heading over the last cycle: {np.round(ahead, 3)}; moved by {np.round(path[-1] - path[0], 3)} L"
    )
    print(f"mean lateral speed over the last cycle: {lateral[-cycle:].mean():.3f} L per cycle")
    print(f"mean forward speed over the last cycle: {forward[-cycle:].mean():.3f} L per cycle")
    print(f"{steps} steps of {node_count} nodes in {seconds():.0f} s; picture in {picture}")


def save(simulator, step, cycle):
    """Bodies and markers 16 times a cycle, the fluid 4 times."""
    frame, last = step * BODY_FRAMES // cycle, (step - 1) * BODY_FRAMES // cycle
    if frame > last:
        flags = int(drelt.SAVE_FLAG.BODY)
        if frame % (BODY_FRAMES // FLUID_FRAMES) == 0:
            flags |= int(drelt.SAVE_FLAG.FLUID)
        simulator.saveScene(frame, flags)


if __name__ == "__main__":
    main()
