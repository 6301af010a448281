"""A controller steers a fish-like body along a curved path: it bends the gait by the heading error.

It writes VTK frames, the path, the track of the body and lines to its targets to data/vis_data, and
rendered pictures to data/pictures. It makes a film of them and plots track, heading error and bend.
"""

import argparse
import dataclasses
from collections import deque
from pathlib import Path

import drelt
import matplotlib
import numpy as np
from gaits import ramp
from PIL import Image
from support import (
    LENGTH,
    MODES,
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

BOX = (2.2, 0.75, 1.5)  # lengths along x, y, z
# The grid is at rest, and its front plane would slow a body that reaches it. So the body starts far
# enough behind.
AHEAD = 0.4  # from the centre of the body forward to the centre of the box [lengths]
STRAIGHT, CURVATURE = 0.1, 0.55  # the path: a straight start [lengths], then an arc [rad/length]
REACH, SPACING = 2.0, 0.1  # length of the path and distance of control points [lengths]
SAMPLES, LOOK_FORWARD = 400, 20  # poses along it, and how many of them one search covers
SIGHT = 0.3  # the body aims this far ahead along the target's tangent [lengths]
GAIN, RATE_GAIN = 3.0, 0.5  # bend per error, and per rate of the error [s]
LARGEST_BEND = 0.8  # rad
PICTURES = 8  # per cycle
PICTURE_SIZE = (640, 400)


def parse_arguments():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--mode", choices=sorted(MODES), default="two_way")
    parser.add_argument("--cycles", type=positive, default=7, help="beat cycles to simulate")
    parser.add_argument("--nodes", type=int, help="node spacings per body length")
    parser.add_argument("--no-control", action="store_true", help="swim on without steering")
    parser.add_argument("--no-frames", action="store_true", help="write no VTK frames")
    parser.add_argument("--out", default=str(ROOT / "data"), help="folder for files and pictures")
    return parser.parse_args()


def make_path(start):
    """A trajectory from start [m] along x that turns left when seen from above."""
    stations = np.arange(-2 * SPACING, REACH, SPACING)
    angles = CURVATURE * np.clip(stations - STRAIGHT, 0.0, None)
    steps = SPACING * np.stack([np.cos(angles), 0.0 * angles, -np.sin(angles)], axis=1)
    places = np.cumsum(steps, axis=0)
    points = []
    for place in places - places[1]:  # the curve begins at its second point
        point = drelt.trajectoryPoint3d()
        point.data = start + LENGTH * place
        points.append(point)
    path = drelt.make_trajectory()
    path.setPoints(points)
    path.fit()
    path.sample(SAMPLES)
    return path


def angle(direction):
    """Angle of a direction about y; 0 is along x."""
    return np.arctan2(-direction[2], direction[0])


@dataclasses.dataclass
class Sight:
    """What the helm observed and commanded before a step."""

    time: float  # s
    place: np.ndarray  # centre of mass [m]
    target: np.ndarray  # the point of the path beside it [m]
    progress: float  # along the path, 0 .. 1
    offset: float  # to the left of the path [m]
    error: float  # of the heading, mean over the last cycle, positive to the left of the aim [rad]
    bend: float  # rad


class Helm:
    """Follows a path: bends the body towards a point ahead on it."""

    def __init__(self, path, segments, dt, steered=True):
        """segments: the lengths of the segments from head to tail."""
        self.path, self.lengths, self.dt, self.steered = path, segments, dt, steered
        self.errors = deque(maxlen=round(PERIOD / dt))
        self.controller = drelt.make_controller(GAIN, RATE_GAIN, dt)
        self.controller.set_value(0.0)  # no error

    def arrived(self):
        """Whether a search may reach the path's last sample, after which there is no target."""
        return self.path.getLastIdx() + LOOK_FORWARD + 1 >= self.path.getSampleNum()

    def look(self, body, time):
        """The Sight of a body at a time [s]."""
        place = np.ravel(body.getCOM())
        target = self.path.getTargetPose(place, self.path.getLastIdx(), LOOK_FORWARD)
        tangent, goal = np.ravel(target.getOrientation()), np.ravel(target.getPosition())
        wanted = goal + SIGHT * LENGTH * tangent - place
        # a bent body swims along the chord from tail to nose, not in the direction of its head
        turned = np.cumsum(
            body.getPositions(False)
        )  # of the segments behind the head, relative to it
        chord = np.average([0.0, *turned], weights=self.lengths)
        error = angle(np.ravel(body.getBaseLinkFwd())) + chord - angle(wanted)
        # the heading sways with the beat: steer by its mean over one period
        self.errors.append(np.remainder(error + np.pi, 2.0 * np.pi) - np.pi)
        error = np.mean(self.errors)
        # a joint turns the tail relative to the head, so a bend to the left is negative; it grows with
        # the gait
        bend = -self.controller.feedback(error, self.dt) * ramp(time / PERIOD)[0]
        bend = np.clip(bend, -LARGEST_BEND, LARGEST_BEND) if self.steered else 0.0
        offset = np.dot(np.cross((0.0, 1.0, 0.0), tangent), place - goal)
        along = self.path.getReferencePose(place)
        return Sight(time, place, goal, along, offset, error, bend)


class Camera:
    """Renders body and path from a fixed place above, into numbered PPM pictures."""

    def __init__(self, body, path, start, folder):
        self.folder, self.files = Path(folder), []
        self.folder.mkdir(parents=True, exist_ok=True)
        self.renderer = drelt.make_renderer(*PICTURE_SIZE)
        middle = start + LENGTH * np.array([0.45, 0.0, -0.15])
        eye = middle + LENGTH * np.array([0.0, 1.6, 1.1])
        self.renderer.setCamera(position=eye, target=middle, worldup=(0.0, 1.0, 0.0))
        light = middle + LENGTH * np.array([-4.0, 8.0, 8.0])
        self.renderer.setLight(light, diffuse=(0.5, 0.7, 0.9), specular=(0.4, 0.4, 0.4))
        self.renderer.addDynamics(body)
        self.renderer.addTrajectory(path)
        self.shoot()

    def shoot(self):
        self.files.append(self.folder / f"{len(self.files):04d}.ppm")
        self.renderer.render()
        self.renderer.savePPM(str(self.files[-1]))

    def save_film(self, file):
        """Saves the pictures as an animated GIF. The rows of the files run from bottom to top."""
        pictures = [
            Image.open(name).transpose(Image.Transpose.FLIP_TOP_BOTTOM).quantize(64)
            for name in self.files
        ]
        pictures[0].save(
            file, save_all=True, append_images=pictures[1:], duration=1000 // PICTURES, loop=0
        )


def line(places):
    made = drelt.debugLine()
    made.vertices = list(places)
    return made


def save_lines(sights, path, every, folder):
    """Saves the path, the track, and a line from the body to its target every `every` steps."""
    drelt.VTKWriter.writeTrajectory(path, f"{folder}/path.vtk")
    drelt.VTKWriter.writeLines([line([s.place for s in sights])], f"{folder}/way.vtk")
    lines = [line([s.place, s.target]) for s in sights[::every]]
    drelt.VTKWriter.writeLines(lines, f"{folder}/to_targets.vtk")


def columns(sights):
    """The sights as arrays, in body lengths and periods."""
    fields = map(np.array, zip(*map(dataclasses.astuple, sights)))
    time, place, _, along, offset, error, bend = fields
    return time / PERIOD, place / LENGTH, along, offset / LENGTH, error, bend


def curve_of(path):
    """Places along the whole path [lengths]."""
    poses = [path.getPose(t) for t in np.linspace(0.0, 1.0, 400)]
    return np.array([np.ravel(pose.getPosition()) for pose in poses]) / LENGTH


def draw(sights, path, title, file):
    time, place, _, offset, error, bend = columns(sights)
    figure, (above, below) = plt.subplots(2, figsize=(7, 7), layout="constrained")
    curve = curve_of(path)
    above.plot(curve[:, 0], -curve[:, 2], color="black", linestyle="--", label="path")
    above.plot(place[:, 0], -place[:, 2], label="centre of mass")
    above.set(xlabel="$x/L$", ylabel="$-z/L$ (to the left)", title=title)
    above.set_aspect("equal")
    above.legend()
    below.plot(time, np.degrees(error), label="error of the heading [degrees]")
    below.plot(time, np.degrees(bend), label="bend of the body [degrees]")
    below.plot(time, 100.0 * offset, label="distance to the path's left [$L/100$]")
    below.axhline(0.0, color="black", linewidth=0.5)
    below.set(xlabel="time $t/T$")
    below.legend()
    figure.savefig(file, dpi=150)
    plt.close(figure)


def report(sights, path):
    _, _, along, offset, error, _ = columns(sights)
    length = np.linalg.norm(np.diff(curve_of(path), axis=0), axis=1).sum()
    swum = (along[-1] - along[0]) * length
    print(f"progress along the path: {swum:.2f} L of {length:.2f} L")
    print(
        f"distance from the path: mean {abs(offset).mean():.3f} L, largest {abs(offset).max():.3f} L"
    )
    late = error[len(error) // 2 :]
    print(
        f"heading error, second half: mean {np.degrees(late.mean()):.1f}, "
        f"largest {np.degrees(abs(late).max()):.1f} degrees"
    )


def main():
    args = parse_arguments()
    swimmer = dataclasses.replace(SWIMMERS["swimmer"], box=BOX, ahead=AHEAD)
    simulator, body, dt, node_count = make_swimmer("swimmer", swimmer, args.nodes or swimmer.nodes)
    simulator.mainDataFolderPath = f"{args.out}/vis_data/"
    simulator.log()

    start = np.ravel(body.getCOM())
    path = make_path(start)
    helm = Helm(path, np.diff(swimmer.ends), dt, steered=not args.no_control)
    camera = Camera(body, path, start, f"{args.out}/pictures")
    cycle = round(PERIOD / dt)
    seconds = wall_clock()
    sights = []
    for step in progress(args.cycles * cycle, node_count, f"steering, {args.mode}"):
        if helm.arrived():
            break
        sights.append(helm.look(body, step * dt))
        command_gait(body, swimmer, step, dt, sights[-1].bend)
        simulator.step(MODES[args.mode])
        if step * PICTURES // cycle != (step + 1) * PICTURES // cycle:
            camera.shoot()
        if not args.no_frames:
            save_frame(simulator, step + 1, cycle, fluid_frames=1)

    save_lines(sights, path, cycle // 4, f"{args.out}/vis_data")
    camera.save_film(f"{args.out}/steering.gif")
    steered = "not steered" if args.no_control else "steered"
    draw(sights, path, f"A swimmer, {steered}, {args.mode}", f"{args.out}/steering.png")
    report(sights, path)
    print(f"{len(sights)} steps of {node_count} nodes in {seconds():.0f} s; files in {args.out}")


if __name__ == "__main__":
    main()
