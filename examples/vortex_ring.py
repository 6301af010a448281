"""A vortex ring, set from an array: its way against Saffman's formula, and its vorticity.

Run it with `./run demo vortex_ring`. It leaves data/vortex_ring.png.
"""

import argparse
from pathlib import Path

import drelt
import matplotlib
import numpy as np
from support import ROOT, ZERO, positive, progress

matplotlib.use("Agg")
import matplotlib.pyplot as plt

RADIUS, CORE, CIRCULATION, REYNOLDS = 0.03, 0.01, 0.01, 100  # m, m, m^2/s; circulation / viscosity
BOX = (8, 6, 6)  # radii along x, y, z

parser = argparse.ArgumentParser(description=__doc__)
parser.add_argument("--nodes", type=positive, default=12, help="nodes per radius of the ring")
parser.add_argument("--out", default=str(ROOT / "data"), help="folder for the picture")
args = parser.parse_args()

param = drelt.make_simParams()
param.setup_mode, param.open_planes = drelt.SETUP_MODE.MANUAL, drelt.OPEN_PLANES.CHARACTERISTIC
param.l0p, param.N = RADIUS, args.nodes
param.u0p, param.u0k = CIRCULATION / RADIUS, 0.15
param.visp, param.rou0p = CIRCULATION / REYNOLDS, 1000.0
# half a node less than a whole number of them keeps the node count off a rounding edge
param.width, param.height, param.depth = ((n - 0.5 / args.nodes) * RADIUS for n in BOX)
simulator = drelt.make_simulator(param, 0)
# a simulator needs a body; without samples it does not act on the fluid
sphere = drelt.skeletonFromJson(str(ROOT / "assets" / "sphere.json"), 0)
world = drelt.make_skWorld(ZERO)
world.addSkeleton(drelt.make_skDynamics(sphere, 0, 0, ZERO, ZERO, np.ones(3)))
simulator.attachWorld(world)
simulator.commitInit()

x, y, z = (simulator.getGridSpacing() * np.arange(n) for n in simulator.getGridShape()[::-1])
x, y, z = x - 2.5 * RADIUS, y - y.mean(), z - z.mean()  # the ring starts at 0 and moves along x

# Biot and Savart's law for a circle whose vorticity a Gaussian spreads, in 64 pieces
at = np.stack(np.broadcast_arrays(x, y[:, None], z[:, None, None]), axis=-1)
velocity = np.zeros_like(at)
radii = np.linspace(0, 6, 6001)
within = np.cumsum(4 / np.sqrt(np.pi) * radii**2 * np.exp(-(radii**2))) * radii[1]
for angle in 2 * np.pi * np.arange(64) / 64:
    gap = at - RADIUS * np.array([0, np.cos(angle), np.sin(angle)])
    distance = np.linalg.norm(gap, axis=-1) + 1e-9
    weight = np.interp(distance / CORE, radii, within) * CIRCULATION * RADIUS / 128 / distance**3
    velocity += weight[..., None] * np.cross([0, -np.sin(angle), np.cos(angle)], gap)
simulator.setFields(velocity)
dt, times, way = param.get_tp(), [], []
for step in progress(round(4 * RADIUS**2 / CIRCULATION / dt), velocity.size // 3, "vortex ring"):
    simulator.step(drelt.COUPLE_MODE.ONE_WAY)
    u = simulator.getVelocity()[len(z) // 2]  # in the plane through the axis
    vorticity = np.gradient(u[..., 1], x, axis=1) - np.gradient(u[..., 0], y, axis=0)
    impulse = vorticity * (y * np.abs(y))[:, None]
    times.append((step + 1) * dt)
    way.append(np.sum(impulse * x) / np.sum(impulse) / RADIUS)

# Saffman (1970) for a core that viscosity widens, with the next term of Fukumoto and Moffatt (2000)
core = np.sqrt(CORE**2 + 4 * param.visp * np.array(times)) / RADIUS
speeds = CIRCULATION / (4 * np.pi * RADIUS) * (np.log(8 / core) - 0.558 - 0.918 * core**2)
figure, (left, right) = plt.subplots(1, 2, figsize=(11, 4), layout="constrained")
left.set(xlabel="$x/R$", ylabel="$y/R$")
extent = np.array([x[0], x[-1], y[0], y[-1]]) / RADIUS
image = left.imshow(vorticity, origin="lower", extent=extent, cmap="RdBu")
figure.colorbar(image, ax=left, label="vorticity at the end [1/s]", shrink=0.8)
right.plot(times, way, label=f"drelt, {args.nodes} nodes per radius")
right.plot(times, way[0] + np.cumsum(speeds) * dt / RADIUS, "k--", label="Saffman")
right.set(xlabel="time [s]", ylabel="place of the ring $x/R$")
right.legend()
Path(args.out).mkdir(parents=True, exist_ok=True)
figure.savefig(f"{args.out}/vortex_ring.png", dpi=150)
print(f"speed {np.polyfit(times, way, 1)[0] * RADIUS:.4f} m/s, Saffman {speeds.mean():.4f} m/s")
