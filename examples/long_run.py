"""A run that survives a kill: it saves its state every few minutes, and goes on from the last one.

A fish as heavy as the fluid swims, and a controller bends it back towards its line. Stop it with Ctrl-C or
kill it at any moment, even while it saves; run it again, and it ends as if nothing had happened. It
leaves data/long_run.h5 and data/long_run.png.
"""

import argparse
import time
from pathlib import Path

import drelt
import matplotlib
import numpy as np
from support import LENGTH, NEUTRAL, PERIOD, ROOT, SWIMMERS, command_gait, make_swimmer, positive

matplotlib.use("Agg")
import matplotlib.pyplot as plt

parser = argparse.ArgumentParser(description=__doc__)
parser.add_argument("--cycles", type=positive, default=4, help="beats of the tail")
parser.add_argument("--nodes", type=positive, default=32, help="node spacings per length")
parser.add_argument("--minutes", type=float, default=1.0, help="between two saves")
parser.add_argument("--every", type=positive, help="steps between two saves, instead of minutes")
parser.add_argument("--out", default=str(ROOT / "data"), help="folder for state and picture")
args = parser.parse_args()

swimmer = SWIMMERS["swimmer"]
simulator, body, dt, _ = make_swimmer("swimmer_neutral", swimmer, args.nodes, **NEUTRAL)
steer = drelt.make_controller(2.0, 0.3, dt)
state = Path(args.out) / "long_run.h5"
steps = round(args.cycles * PERIOD / dt)
path = np.full((steps + 1, 2), np.nan)  # of the head, in lengths
path[0] = 0.0


def save():
    simulator.saveState(state, {"path": path, "steer": steer.getState()})
    print(f"saved at step {simulator.getIterNum()} of {steps}", flush=True)


if state.exists():
    extra = simulator.loadState(state)
    done = min(len(path), len(extra["path"]))
    path[:done] = extra["path"][:done]
    steer.setState(extra["steer"])
    print(f"goes on at step {simulator.getIterNum()} of {steps}", flush=True)
    if simulator.getIterNum() > steps:
        raise SystemExit(f"{state} is further than that: give more --cycles, or another --out")

saved = time.monotonic()
try:
    for step in range(simulator.getIterNum(), steps):
        bend = np.clip(steer.feedback(path[step, 1], dt), -0.3, 0.3)
        command_gait(body, swimmer, step, dt, bend)
        simulator.step(drelt.COUPLE_MODE.TWO_WAY)
        path[step + 1] = body.getBaseLink().getPosition()[[0, 2]] / LENGTH
        due = (step + 1) % args.every == 0 if args.every else False
        if due or (not args.every and time.monotonic() - saved > 60 * args.minutes):
            save()
            saved = time.monotonic()
    if not np.isnan(path).any():
        save()
except KeyboardInterrupt:
    print(f"stopped at step {simulator.getIterNum()}; run it again to go on")
    raise SystemExit(1) from None

figure, axes = plt.subplots(figsize=(7, 3), layout="constrained")
axes.plot(path[:, 0], path[:, 1])
axes.set(xlabel="$x/L$", ylabel="$z/L$", title="path of the head", aspect="equal")
figure.savefig(Path(args.out) / "long_run.png", dpi=150)
