"""A fish with an elastic tail fin: its speed over the frequency of its gait and the stiffness of the fin.

Every world is a task of a local Ray cluster (pip install 'drelt[sweep]'), one core each. A task whose
process dies is run again. Writes a table and a heat map.
"""

import argparse
import json
import os
import shlex
import sys
from pathlib import Path

import drelt
import numpy as np
import ray
from gaits import servo_command
from matplotlib.figure import Figure
from support import LENGTH, NEUTRAL, ROOT, SWIMMERS, make_swimmer, positive
from tqdm import tqdm

FISH = SWIMMERS["swimmer"]


def describe_fish(stiffness, out):
    """Writes a description with a passive joint at the fin. Returns its path, without the suffix."""
    fish = json.loads((ROOT / "assets/swimmer_neutral.json").read_text())
    fish["model_file"] = str(ROOT / fish["model_file"])
    fish["joints"]["caudal"].update(actuator="passive", springStiffness=stiffness)
    path = Path(out).resolve() / f"fish_{stiffness:g}.json"
    path.write_text(json.dumps(fish))
    return str(path.with_suffix(""))


@ray.remote(max_retries=3)
def speed_of(name, frequency, fastest, nodes, cycles):
    """Mean forward speed over the last beat [lengths/s]; u0p suits the fastest gait of the sweep."""
    options = {"u0p": 2.0 * np.pi * FISH.tail * LENGTH * fastest, **NEUTRAL}
    simulator, body, dt, _ = make_swimmer(name, FISH, nodes, -1, **options)
    beat, places = frequency * dt, [body.getBaseLink().getPosition()[0]]
    for step in range(round(cycles / beat)):
        angles = body.getPositions(False)
        rates = servo_command(FISH.midline, FISH.ends, step * beat, beat, angles)
        body.setCommands(rates[:-1] * frequency)  # the last joint is the fin's
        simulator.step(drelt.COUPLE_MODE.TWO_WAY)
        places.append(body.getBaseLink().getPosition()[0])
    return (places[-1] - places[-1 - round(1 / beat)]) * frequency / LENGTH


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--hertz", type=float, nargs="+", default=[0.5, 0.75, 1.0, 1.25, 1.5])
    parser.add_argument("--stiffness", type=float, nargs="+", default=[0.003, 0.01, 0.03, 0.1, 0.3])
    parser.add_argument("--nodes", type=positive, default=32, help="node spacings per length")
    parser.add_argument("--cycles", type=positive, default=3, help="beats of each world")
    parser.add_argument("--out", default=str(ROOT / "data"), help="folder for table and picture")
    args = parser.parse_args()
    os.makedirs(args.out, exist_ok=True)
    paths = os.pathsep.join(filter(None, sys.path))  # of drelt and the examples' modules
    worker = {"env_vars": {"PYTHONPATH": paths}, "py_executable": shlex.quote(sys.executable)}
    ray.init(include_dashboard=False, runtime_env=worker)  # a shell starts it
    cells, speeds = {}, np.full((len(args.stiffness), len(args.hertz)), np.nan)
    for i, name in enumerate(describe_fish(k, args.out) for k in args.stiffness):
        for j, f in enumerate(args.hertz):
            cells[speed_of.remote(name, f, max(args.hertz), args.nodes, args.cycles)] = i, j
    for _ in tqdm(range(speeds.size), desc="worlds"):
        (done,), _ = ray.wait(list(cells))
        speeds[cells.pop(done)] = ray.get(done)
    np.savetxt(f"{args.out}/sweep.csv", speeds, header=f"{args.stiffness} N m/rad, {args.hertz} Hz")
    figure = Figure(layout="constrained")
    axes = figure.subplots()
    figure.colorbar(axes.imshow(speeds, origin="lower"), label="forward speed [lengths/s]")
    axes.set_xticks(range(len(args.hertz)), args.hertz)
    axes.set_yticks(range(len(args.stiffness)), args.stiffness)
    axes.set(xlabel="frequency of the gait [Hz]", ylabel="stiffness of the fin's joint [N m/rad]")
    figure.savefig(f"{args.out}/sweep.png", dpi=150)
    print(f"fastest {speeds.max():.3f} lengths/s; picture in {args.out}/sweep.png")


if __name__ == "__main__":
    main()
