"""A sphere settles in a long box: speed over time against the Schiller and Naumann speed.

Run it with `./run demo settling_sphere`. It writes VTK frames to data/vis_data and a picture to
data/settling_sphere.png.
"""

import argparse
from pathlib import Path

import drelt
import matplotlib
import numpy as np
from support import ROOT, SettlingSphere, progress, schiller_naumann_speed, wall_clock

matplotlib.use("Agg")
import matplotlib.pyplot as plt

GALILEO = 50.0  # u_g D / nu
NODES_PER_DIAMETER = 12
BOX = (14, 6, 6)  # diameters along x, y, z
DURATION = 12.0  # D / u_g
FRAMES = 6  # VTK frames of fluid and body

parser = argparse.ArgumentParser(description=__doc__)
parser.add_argument("--duration", type=float, default=DURATION, help="time to simulate [D/u_g]")
parser.add_argument("--nodes", type=int, default=NODES_PER_DIAMETER, help="nodes per diameter")
parser.add_argument(
    "--asset", default="sphere_retracted", help="name of the description in assets/"
)
parser.add_argument("--out", default=str(ROOT / "data"), help="folder for files and pictures")
args = parser.parse_args()

scene = SettlingSphere(ROOT / "assets" / f"{args.asset}.json", args.nodes, GALILEO, BOX)
scene.simulator.mainDataFolderPath = f"{args.out}/vis_data/"
Path(args.out).mkdir(parents=True, exist_ok=True)
scene.simulator.log()

steps = scene.steps_for(args.duration)
frame_every = max(steps // FRAMES, 1)
both = drelt.SAVE_FLAG.BODY | drelt.SAVE_FLAG.FLUID
speeds = []
seconds = wall_clock()
for step in progress(steps, scene.nodes, "settling"):
    if step % frame_every == 0:
        scene.simulator.saveScene(step // frame_every, int(both))
    scene.simulator.step(drelt.COUPLE_MODE.TWO_WAY)
    speeds.append(scene.speed())
scene.simulator.saveScene(-(-steps // frame_every), int(both))

times = np.arange(1, steps + 1) * scene.dt * scene.u_g / scene.diameter
reference = schiller_naumann_speed(GALILEO)
figure, axes = plt.subplots(figsize=(7, 4.2), layout="constrained")
axes.plot(times, speeds, label=f"drelt, {args.nodes} nodes per diameter")
axes.axhline(reference, color="black", linestyle="--", label="Schiller and Naumann")
axes.set(
    xlabel="time $t\\,u_g/D$", ylabel="falling speed $U/u_g$", xlim=(0, times[-1]), ylim=(0, None)
)
axes.set_title(f"Settling sphere, Galileo number {GALILEO:g}, density ratio 2")
axes.legend(loc="lower right")
figure.savefig(f"{args.out}/settling_sphere.png", dpi=150)

final = np.mean(speeds[-max(steps // 50, 1) :])
print(f"U/u_g after {times[-1]:.1f} D/u_g: {final:.3f}   Schiller and Naumann: {reference:.3f}")
print(f"{steps} steps of {scene.nodes} nodes in {seconds():.0f} s; files in {args.out}")
