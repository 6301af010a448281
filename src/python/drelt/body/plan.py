"""A first run for a body: scales, box, samples, memory and time, and the script that does it."""

import math
from dataclasses import dataclass

import numpy as np

SAMPLES_PER_AREA = (
    1.5  # samples per squared node spacing of the skin; 1 to 2 hold the fluid back evenly
)
BYTES_PER_NODE = 175  # of the production schedule with open planes, see docs/performance.md
LIBRARIES = 200e6  # bytes of the program itself
UPDATES_PER_SECOND = 60e6  # of one processor core
SLOW, FAST = 0.05, 0.1  # reference speed in lattice units: usual, and the most
THIN_LATTICE, THICK_LATTICE = 5e-4, 0.15  # lattice viscosities between which a step is safe
REYNOLDS = 1000.0  # without a viscosity
MARGIN = (0.75, 0.5, 0.5)  # fluid around the body's box, in lengths, on each side


@dataclass
class Plan:
    """length, spacing, box [m]; speed [m/s]; viscosity [m^2/s]; centre: of the body's box [m]."""

    length: float
    nodes: float
    spacing: float
    speed: float
    lattice_speed: float
    viscosity: float
    fluid: float
    box: tuple
    centre: tuple
    counts: tuple
    samples: int
    area: float  # of the skin [m^2]
    coupling: str

    @property
    def node_count(self):
        return math.prod(self.counts) if hasattr(math, "prod") else int(np.prod(self.counts))

    @property
    def step(self):
        """Time step [s]."""
        return self.length * self.lattice_speed / (self.nodes * self.speed)

    @property
    def lattice_viscosity(self):
        return self.lattice_speed * self.nodes * self.viscosity / (self.speed * self.length)

    def lines(self):
        """What the run costs and whether its numbers are sound, in sentences."""
        steps = self.length / self.speed / self.step
        memory = (self.node_count * BYTES_PER_NODE + LIBRARIES) / 1e9
        seconds = steps * self.node_count / UPDATES_PER_SECOND
        text = [
            f"Reference length {self.length:.4g} m with N = {self.nodes:g} nodes: a spacing of "
            f"{self.spacing:.4g} m.",
            f"Speed {self.speed:.4g} m/s is u0k = {self.lattice_speed:.4g}; a step is {self.step:.4g} s.",
            f"Viscosity {self.viscosity:.4g} m^2/s: Reynolds number "
            f"{self.speed * self.length / self.viscosity:.4g}, lattice viscosity {self.lattice_viscosity:.3g}.",
            f"Box {' x '.join(f'{edge:.4g}' for edge in self.box)} m, "
            f"{' x '.join(map(str, self.counts))} = {self.node_count / 1e6:.3g} million nodes, about "
            f"{memory:.2g} GB.",
            f"The body passes its length in {steps:.0f} steps: about {seconds:.2g} s on one core at "
            f"{UPDATES_PER_SECOND / 1e6:.0f} million node updates per second.",
            f"{self.samples} samples, {self.samples * self.spacing**2 / self.area:.2g} per squared spacing of "
            "the skin.",
        ]
        if self.lattice_viscosity < THIN_LATTICE:
            need = self.nodes * THIN_LATTICE / self.lattice_viscosity
            text.append(
                f"The lattice viscosity is low: small eddies are left to the eddy viscosity. N = {need:.0f} "
                "would resolve them."
            )
        if self.lattice_viscosity > THICK_LATTICE:
            text.append("The lattice viscosity is high: choose a larger speed or fewer nodes.")
        return text


def make_plan(surface, extent, centre, options, coupling):
    """options: length, nodes, spacing, speed, viscosity, fluid_density and samples; None where not given."""
    length = float(max(extent))
    spacing = options["spacing"] or length / options["nodes"]
    nodes = length / spacing
    speed = options["speed"] or length
    viscosity = options["viscosity"] or speed * length / REYNOLDS
    lattice_speed = SLOW
    thick = lattice_speed * nodes * viscosity / (speed * length)
    if thick > THICK_LATTICE:  # slow flows need smaller steps
        lattice_speed *= THICK_LATTICE / thick
    elif thick < THIN_LATTICE:
        lattice_speed = min(FAST, lattice_speed * THIN_LATTICE / thick)
    counts = tuple(
        math.ceil((edge + 2 * margin * length) / spacing) for edge, margin in zip(extent, MARGIN)
    )
    # a hundredth of a node less, so that rounding cannot change the node count
    box = tuple((count - 0.01) * spacing for count in counts)
    samples = options["samples"] or max(
        50, math.ceil(SAMPLES_PER_AREA * surface.area() / spacing**2)
    )
    return Plan(
        length,
        nodes,
        spacing,
        speed,
        float(f"{lattice_speed:.3g}"),
        viscosity,
        options["fluid_density"],
        box,
        tuple(float(x) for x in centre),
        counts,
        samples,
        surface.area(),
        coupling,
    )


SWING = 0.05  # of a joint in the first run [rad, or lengths]

SCRIPT = '''\
"""A first run of the body "{name}": its servos swing a little while the fluid flows around it.

    python run.py [--steps N] [--frames FOLDER]
"""

import argparse
import math
from pathlib import Path

import drelt
import numpy as np

HERE = Path(__file__).resolve().parent
# amplitude of each actuated degree of freedom [rad or m]; 0 where a command is a force or an acceleration
SWING = np.array({swing!r})
PERIOD = {period:.6g}  # [s]


def make_run(device=0):
    """Simulator and body, ready to step."""
    p = drelt.make_simParams()
    p.setup_mode = drelt.SETUP_MODE.MANUAL
    p.l0p, p.N = {length!r}, {nodes!r}
    p.u0p, p.u0k = {speed!r}, {lattice_speed!r}
    p.visp, p.rou0p = {viscosity!r}, {fluid!r}
    p.width, p.height, p.depth = {box!r}
    p.x0, p.y0, p.z0 = {centre!r}
    p.coupling = drelt.COUPLING.{coupling}
    p.open_planes = drelt.OPEN_PLANES.CHARACTERISTIC
    simulator = drelt.make_simulator(p, device)
    # the description names its mesh: if you have moved the folder, change its "model_file"
    description = drelt.skeletonFromJson(str(HERE / "{name}.json"), device)
    body = drelt.make_skDynamics(
        description, {samples}, device, np.zeros(3), np.zeros(3), np.ones(3)
    )
    world = drelt.make_skWorld(np.zeros(3))
    world.addSkeleton(body)
    simulator.attachWorld(world)
    simulator.commitInit()
    return simulator, world, body, p.get_tp()


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--steps", type=int, default={steps})
    parser.add_argument("--frames", help="folder for VTK files, 50 of them")
    arguments = parser.parse_args()
    simulator, world, body, dt = make_run()
    if arguments.frames:
        simulator.mainDataFolderPath = arguments.frames + "/"
    every = max(1, arguments.steps // 50)
    for step in range(arguments.steps):
        rate = 2 * math.pi / PERIOD
        body.setCommands(SWING * rate * math.cos(rate * step * dt))  # velocities
        simulator.step(drelt.COUPLE_MODE.TWO_WAY)
        if arguments.frames and step % every == 0:
            simulator.saveScene(step // every, drelt.SAVE_FLAG.BODY | drelt.SAVE_FLAG.FLUID)
        if step % every == 0:
            print(f"step {{step}}: base link at {{np.ravel(body.getBaseLink().getPosition())}} m")
    assert np.isfinite(body.getPositions()).all()


if __name__ == "__main__":
    main()
'''


def swings(body, length):
    """Amplitude of each actuated DOF of a live body [rad or m], in the order of commands."""
    records = {record["name"]: record for record in body.getDescription().getJoints()}
    found = []
    for name in body.getJointNames():
        record, count = records[name], body.getJoint(name).getNumDofs()
        if record["actuator"] in ("passive", "mimic"):
            continue
        turns = SWING * (record["type"] in ("revolute", "continuous"))
        slides = SWING * length * (record["type"] == "prismatic")
        takes_velocity = record["actuator"] in ("servo", "velocity")
        found += [float(turns + slides) * takes_velocity] * count
    return found


def script(name, plan, swing):
    """The text of a small script that runs the plan. swing: amplitude of each actuated DOF [rad or m]."""
    return SCRIPT.format(
        name=name,
        swing=swing,
        period=plan.length / plan.speed,
        length=plan.length,
        nodes=plan.nodes,
        speed=plan.speed,
        lattice_speed=plan.lattice_speed,
        viscosity=plan.viscosity,
        fluid=plan.fluid,
        box=plan.box,
        centre=plan.centre,
        coupling=plan.coupling.upper().replace("-", "_"),
        samples=plan.samples,
        steps=round(plan.length / plan.speed / plan.step),
    )
