"""A sphere held in a stream: its drag over time against Schiller and Naumann, and the wake.

A stiff spring holds the sphere; its deflection tells the drag. Run it with `./run demo current`. It
leaves data/current.png.
"""

import argparse
import json
from pathlib import Path

import drelt
import matplotlib
import numpy as np
from support import ROOT, ZERO, positive, progress

matplotlib.use("Agg")
import matplotlib.pyplot as plt

DIAMETER, SPEED, REYNOLDS = 0.02, 0.1, 50.0  # m, m/s
BOX = (12, 8, 8)  # diameters along x, y, z
AHEAD = 4.0  # diameters from the low-x face, where the stream enters, to the sphere
REFERENCE = 24 / REYNOLDS * (1 + 0.15 * REYNOLDS**0.687)  # Schiller and Naumann (1933)

parser = argparse.ArgumentParser(description=__doc__)
parser.add_argument("--duration", type=positive, default=20, help="time to simulate [D/u]")
parser.add_argument("--nodes", type=positive, default=8, help="nodes per diameter")
parser.add_argument("--out", default=str(ROOT / "data"), help="folder for files and the picture")
args = parser.parse_args()

param = drelt.make_simParams()
param.setup_mode = drelt.SETUP_MODE.MANUAL
param.l0p, param.N = DIAMETER, args.nodes
param.u0p, param.u0k = SPEED, 0.1
param.visp, param.rou0p = SPEED * DIAMETER / REYNOLDS, 1000.0
# half a node less than a whole number of them keeps the node count off a rounding edge
param.width, param.height, param.depth = ((n - 0.5 / args.nodes) * DIAMETER for n in BOX)
param.x0 = param.width / 2 - AHEAD * DIAMETER
param.current = (SPEED, 0.0, 0.0)
param.open_planes = drelt.OPEN_PLANES.CHARACTERISTIC  # copied planes would lose the stream
param.coupling = drelt.COUPLING.SEMI_IMPLICIT
param.retraction = 0.8

simulator = drelt.make_simulator(param, 0)
simulator.mainDataFolderPath = f"{args.out}/vis_data/"
Path(args.out).mkdir(parents=True, exist_ok=True)
file = ROOT / "assets" / "sphere_held.json"
body = drelt.make_skDynamics(drelt.skeletonFromJson(str(file), 0), 800, 0, ZERO, ZERO, np.ones(3))
world = drelt.make_skWorld(ZERO)
world.addSkeleton(body)
simulator.attachWorld(world)
simulator.commitInit()

stiffness = json.loads(file.read_text())["joints"]["bone_00"]["springStiffness"]  # N/m
drag_unit = 0.5 * param.rou0p * SPEED**2 * np.pi / 4 * DIAMETER**2  # N
steps = round(args.duration * DIAMETER / SPEED / param.get_tp())
drag = []
for _ in progress(steps, round(args.nodes**3 * np.prod(BOX)), "stream"):
    simulator.step(drelt.COUPLE_MODE.TWO_WAY)
    drag.append(stiffness * body.getPositions()[0] / drag_unit)

simulator.saveFluidData("current")
data = (Path(args.out) / "vis_data" / "Fluid" / "0_current.vtk").read_bytes()
values = data.split(b"VECTORS cell_velocity float\n", 1)[1]
shape = [args.nodes * edge for edge in BOX[::-1]]
velocity = np.frombuffer(values, ">f4", 3 * int(np.prod(shape))).reshape(*shape, 3)
along = velocity[shape[0] // 2, :, :, 0] / param.u0k  # in the plane through the sphere's middle

figure, (above, below) = plt.subplots(2, figsize=(7, 7), layout="constrained")
times = np.arange(1, steps + 1) * args.duration / steps
above.plot(times, drag, label=f"drelt, {args.nodes} nodes per diameter")
above.axhline(REFERENCE, color="black", linestyle="--", label="Schiller and Naumann")
above.set(xlabel="time $t\\,u/D$", ylabel="drag coefficient", ylim=(0, 3))
above.legend()
image = below.imshow(along, origin="lower", extent=(-AHEAD, BOX[0] - AHEAD, -4, 4), vmin=0)
below.add_patch(plt.Circle((0, 0), 0.5, color="white"))
below.set(xlabel="$x/D$", ylabel="$y/D$", title=f"speed along the stream, Re = {REYNOLDS:g}")
figure.colorbar(image, ax=below, label="$u_x/u$")
figure.savefig(f"{args.out}/current.png", dpi=150)
print(f"drag coefficient {np.mean(drag[-steps // 20 :]):.3f}, Schiller and Naumann {REFERENCE:.3f}")
