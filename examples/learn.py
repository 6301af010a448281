"""A fish learns to swim to targets at its left and right: trained without a fluid, judged in one.

CMA-ES (Hansen, 2016; pip install 'drelt[learn]') needs no gradients and few tries for a gait network of 19
numbers, and a pool steps all its tries at once. Draws the learning curve and the paths.
"""

import argparse
from pathlib import Path

import cma
import drelt
import matplotlib.pyplot as plt
import numpy as np
from drelt.envs import FishVector, SwimToTarget
from support import ROOT, positive
from tqdm import tqdm

FISH = ROOT / "assets/swimmer.json"
JOINTS, TARGETS = 8, [(0.7, 0.0, 0.3), (0.7, 0.0, -0.3)]  # lengths
PHASES = np.linspace(
    0.0, 1.5 * np.pi, JOINTS
)  # of a weak wave that travels to the tail, as a start
START = np.concatenate([-0.2 * np.cos(PHASES), 0.2 * np.sin(PHASES), np.zeros(3)])


def act(weights, seen, layout, phase):
    """Actions of K networks: a wave of 1 Hz, a sine and a cosine for each joint, and a bend of all."""
    waves, turn = weights[:, : 2 * JOINTS].reshape(-1, 2, JOINTS), weights[:, 2 * JOINTS :]
    (ahead, _, aside), (*_, sideslip) = seen[:, layout["way"]].T, seen[:, layout["velocity"]].T
    bend = turn[:, 0] + turn[:, 1] * np.arctan2(aside, ahead) + turn[:, 2] * sideslip
    angles = np.tanh(np.sin(phase) * waves[:, 0] + np.cos(phase) * waves[:, 1] + bend[:, None])
    return np.clip(2.0 * (angles - seen[:, layout["angles"]]), -1.0, 1.0)


def episode(worlds, weights, target):
    """Returns of K networks, and the path of the first one's fish [lengths]."""
    seen, _ = worlds.reset(options={"target": target})
    total, going, path = 0.0, np.ones(len(weights), bool), [np.zeros(3)]
    while going.any():
        actions = act(weights, seen, worlds.layout, 2.0 * np.pi * len(path) * worlds.interval)
        seen, reward, ended, cut, infos = worlds.step(actions)
        path.append(infos["position"][0])
        total = total + reward * going
        going &= ~(ended | cut)
    return total, np.array(path)


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--generations", type=positive, default=25)
    parser.add_argument("--seconds", type=float, default=4.0, help="of an episode")
    parser.add_argument("--out", default=str(ROOT / "data"), help="folder for the picture")
    args = parser.parse_args()
    Path(args.out).mkdir(parents=True, exist_ok=True)
    search = cma.CMAEvolutionStrategy(START, 0.2, {"seed": 1, "verbose": -9})
    worlds = FishVector(SwimToTarget, search.popsize, FISH, duration=args.seconds, nodes=16)
    curve = []
    for _ in tqdm(range(args.generations), desc="generations"):
        tries = np.array(search.ask())
        scores = np.mean([episode(worlds, tries, target)[0] for target in TARGETS], axis=0)
        search.tell(tries, -scores)
        curve.append((scores.max(), scores.mean()))
    figure, (left, right) = plt.subplots(1, 2, figsize=(9, 4.5), layout="constrained")
    left.plot(curve, label=["best", "mean"])
    left.set(xlabel="generation", ylabel="return without a fluid")
    for mode, line in ((drelt.COUPLE_MODE.EMPIRICAL, "--"), (drelt.COUPLE_MODE.TWO_WAY, "-")):
        world = FishVector(SwimToTarget, 1, FISH, mode=mode, duration=args.seconds)
        for target in TARGETS:
            (total,), path = episode(world, search.result.xbest[None], target)
            right.plot(path[:, 0], path[:, 2], line, label=f"{mode.name}, {total:.2f}")
            right.plot(*target[::2], "k*")
            print(f"{mode.name}: return {total:.2f} for the target at {target}")
    right.set(xlabel="$x/L$", ylabel="$z/L$", title="paths and their returns", aspect="equal")
    figure.legend(loc="outside lower center", ncols=6)
    figure.savefig(f"{args.out}/learn.png", dpi=150)


if __name__ == "__main__":
    main()
