"""A fish-like body, or an eel, swims by a travelling wave of its joints.

It writes VTK frames of fluid, bodies and markers to data/vis_data, draws the path, the speeds and a
marker's signal, and prints the mean speed over the last cycle.
"""

import argparse
import json
import sys
from pathlib import Path

import matplotlib
import numpy as np
from support import (
    LENGTH,
    MODES,
    NEUTRAL,
    PERIOD,
    ROOT,
    SWIMMERS,
    command_gait,
    make_swimmer,
    positive,
    progress,
    save_frame,
    wall_clock,
)

matplotlib.use("Agg")
import matplotlib.pyplot as plt

FLANK = 1  # the marker whose signal is shown


def parse_arguments():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--mode", choices=sorted(MODES), default="two_way")
    parser.add_argument("--body", choices=sorted(SWIMMERS), default="swimmer")
    parser.add_argument("--cycles", type=positive, default=3, help="beat cycles to simulate")
    parser.add_argument("--nodes", type=int, help="node spacings per body length")
    parser.add_argument(
        "--neutral", action="store_true", help="a body as heavy as the fluid; the grid follows it"
    )
    parser.add_argument("--no-frames", action="store_true", help="write no VTK files")
    parser.add_argument("--out", default=str(ROOT / "data"), help="folder for files and pictures")
    return parser.parse_args()


def link_masses(name):
    """The masses of the links in a description, by the link's name."""
    text = json.loads((ROOT / "assets" / f"{name}.json").read_text())
    return {link: entry["mass"] for link, entry in text["links"].items()}


def centre_of_links(body, weights):
    """Returns the mean position [m] and velocity [m/s] of the links; weights by name."""
    links = [body.getLink(name) for name in weights]
    places = [np.ravel(link.getPosition()) for link in links]
    speeds = [np.ravel(link.getLinearVelocity()) for link in links]
    return tuple(np.average(of, axis=0, weights=list(weights.values())) for of in (places, speeds))


def swim(simulator, body, swimmer, mode, steps, dt, weights=None):
    """Yields time, centre of mass, its velocity, heading and a marker's signal after each step.

    weights of the links by name, for a body whose excess masses are 0.
    """
    for step in range(steps):
        command_gait(body, swimmer, step, dt)
        simulator.step(mode)
        if weights:
            place, velocity = centre_of_links(body, weights)
        else:
            place, velocity = np.ravel(body.getCOM()), np.ravel(body.getCOMLinearVelocity())
        yield (
            (step + 1) * dt / PERIOD,
            place / LENGTH,
            velocity * PERIOD / LENGTH,
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
    below.set(xlabel="time $t/T$", ylabel="density at a flank marker minus 1")
    figure.savefig(file, dpi=150)
    plt.close(figure)


def main():
    args = parse_arguments()
    swimmer = SWIMMERS[args.body]
    nodes = args.nodes or swimmer.nodes
    if args.neutral and args.mode != "two_way":
        sys.exit(
            "swimming: --neutral needs --mode two_way: without the fluid's force the body has no mass"
        )
    name = args.body + ("_neutral" if args.neutral else "")
    options = NEUTRAL if args.neutral else {}
    simulator, body, dt, node_count = make_swimmer(name, swimmer, nodes, **options)
    simulator.mainDataFolderPath = f"{args.out}/vis_data/"
    Path(args.out).mkdir(parents=True, exist_ok=True)  # fail now, not after the run
    simulator.log()

    cycle = round(PERIOD / dt)
    steps = args.cycles * cycle
    records = []
    seconds = wall_clock()
    weights = link_masses(args.body) if args.neutral else None
    states = swim(simulator, body, swimmer, MODES[args.mode], steps, dt, weights)
    for step in progress(steps, node_count, f"{name}, {args.mode}"):
        records.append(next(states))
        if not args.no_frames:
            save_frame(simulator, step + 1, cycle)

    times, path, velocity, heading, signal = map(np.array, zip(*records))
    ahead = heading[-cycle:].mean(axis=0)
    ahead /= np.linalg.norm(ahead)
    aside = np.cross(ahead, (0.0, 1.0, 0.0))
    forward, lateral = velocity @ ahead, velocity @ aside
    picture = f"{args.out}/{name}_{args.mode}.png"
    title = f"{name.replace('_', ' ')}, {args.mode}, Re = {1 / swimmer.viscosity:.0f} ($L^2/T\\nu$)"
    draw(times, path, forward, lateral, signal - 1.0, title, picture)
    print(
        f"heading over the last cycle: {np.round(ahead, 3)}; moved by {np.round(path[-1] - path[0], 3)} L"
    )
    print(f"mean lateral speed over the last cycle: {lateral[-cycle:].mean():.3f} L per cycle")
    print(f"mean forward speed over the last cycle: {forward[-cycle:].mean():.3f} L per cycle")
    print(f"{steps} steps of {node_count} nodes in {seconds():.0f} s; picture in {picture}")


if __name__ == "__main__":
    main()
