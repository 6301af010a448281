"""Environments for learning, after the interface of Gymnasium: `pip install drelt[learn]`.

A fish swims to a target (SwimToTarget), or holds its station in a current or a wake (HoldStation).
FishVector steps many of them at once on the machine's threads. The fish is the body of a description whose
root joint floats and is passive. It swims in the horizontal plane, x and z; its head points along +x at first.

`mode` chooses the physics: COUPLE_MODE.EMPIRICAL, a cheap force model without a fluid, for training, or
COUPLE_MODE.TWO_WAY for fine-tuning and evaluation. The force model knows no current: there the fish swims in
water at rest, and the station moves against the current, which is the same seen from the water. It knows no
wakes either, and its probes read zero.

Action, in [-1, 1], one per actuated DOF: the joint's rate divided by `fastest`, held for an `interval`. A
rate that would take a joint beyond `widest` is lowered.

Observation, float32, clipped to [-10, 10]; `layout` has the slice of each part:
    angles, rates   of the joints, divided by `widest` and `fastest`
    forward         the forward axis, world axes
    way, velocity   to the target [lengths], of the centre of mass [lengths/s]; forward, up, right
    probes          100 (density - 1) at the markers on the skin

Reward of an action: SwimToTarget gives the lengths by which the fish came nearer, and 1 more at the target.
HoldStation gives minus the distance [lengths] times the interval [s]. Both take off `price` [1/J] times the
mechanical work that the actuators put in (what they take out gives nothing back), and 1 for a failure: the
fish has diverged, or is farther than `lost` lengths away. At the target and after a failure the episode is terminated; after `duration` [s] it is truncated.

All environments take the path of the description and, by keyword:
    mode            EMPIRICAL (default), TWO_WAY or another COUPLE_MODE
    duration, price, lost                   as above: 6 s, 1 per J, 3 lengths
    interval, fastest, widest               as above: 0.05 s, 4 rad/s, 0.5 rad
    length, nodes   of the body [m] and node spacings along it: 0.2, 24
    box, ahead      edges of the fluid box, and its centre ahead of the start [lengths]
    speed           highest speed of the tail [m/s], 0.1 in lattice units: 0.25
    viscosity       [m^2/s]: 8e-6
    samples         on the skin: 1500
    current         velocity of the far fluid, world axes [m/s]: none
    obstacle, obstacle_at                   description of a held body, and its place [lengths]: none
"""

from __future__ import annotations

import numpy as np

import drelt

try:
    import gymnasium
    from gymnasium.vector import AutoresetMode
    from gymnasium.vector.utils import batch_space
except ImportError as _error:
    raise ImportError(
        "drelt.envs needs Gymnasium 1.1 or newer: pip install 'drelt[learn]', or 'gymnasium>=1.1'"
    ) from _error

__all__ = ["FishVector", "HoldStation", "SwimToTarget"]

BOUND = 10.0  # of observations
HOST = -1
ZERO = np.zeros(3)


class _Worlds:
    """K worlds with a fish each, stepped by a pool. Arrays have one row per world."""

    def __init__(
        self,
        count,
        description,
        mode=drelt.COUPLE_MODE.EMPIRICAL,
        *,
        length=0.2,
        nodes=24,
        box=(3.0, 0.875, 2.4),
        ahead=0.5,
        samples=1500,
        viscosity=8e-6,
        speed=0.25,
        interval=0.05,
        fastest=4.0,
        widest=0.5,
        current=(0.0, 0.0, 0.0),
        obstacle=None,
        obstacle_at=(0.6, 0.0, 0.0),
    ):
        self.mode = drelt.COUPLE_MODE(mode)
        self.length, self.fastest, self.widest = length, fastest, widest
        self.current = np.asarray(current, float)
        self.fluid = self.mode in (drelt.COUPLE_MODE.TWO_WAY, drelt.COUPLE_MODE.ONE_WAY)
        param = drelt.make_simParams()
        param.setup_mode = drelt.SETUP_MODE.MANUAL
        param.l0p, param.N, param.u0p, param.u0k = length, nodes, speed, 0.1
        param.visp, param.rou0p = viscosity, 1000.0
        param.coupling, param.retraction = drelt.COUPLING.SEMI_IMPLICIT, 0.8  # for coarse grids
        counts = [round(edge * nodes) for edge in box]
        param.width, param.height, param.depth = ((n - 0.01) * length / nodes for n in counts)
        param.x0 = ahead * length
        if self.current.any() and self.fluid:
            param.open_planes = drelt.OPEN_PLANES.CHARACTERISTIC
            param.current, param.pml_width = self.current, 0
        self.dt = param.get_tp()
        self.substeps = max(1, round(interval / self.dt))
        self.interval = self.substeps * self.dt
        places = [(description, samples, ZERO)]
        if obstacle is not None:
            places.append((obstacle, samples, length * np.asarray(obstacle_at, float)))
        self.simulators, self.bodies = [], []
        for _ in range(count):
            world = drelt.make_skWorld(ZERO)
            for name, number, place in places:
                body = drelt.skeletonFromJson(str(name), HOST)
                world.addSkeleton(
                    drelt.make_skDynamics(body, number, HOST, place, ZERO, np.ones(3))
                )
            simulator = drelt.make_simulator(param, HOST)
            simulator.attachWorld(world)
            simulator.commitInit()
            self.simulators.append(simulator)
            self.bodies.append(world.getSkeleton(0))
        self.pool = drelt.make_pool(self.simulators)
        self.joints = self.bodies[0].getNumDofs()
        self.probes = len(self.bodies[0].getMarkers().getMarkersPressure())
        self.start = self.pool.getCOM()[0]
        self.targets = np.zeros((count, 3))
        self.elapsed = np.zeros(count)

    def restart(self, index, target):
        """Starts an episode of a world. target: from the centre of mass at the start [lengths]."""
        self.simulators[index].restart()
        self.targets[index] = target
        self.elapsed[index] = 0.0

    def drift(self):
        """How far the water has carried what rests in it, where the model has no current [m]."""
        return np.outer(self.elapsed, np.zeros(3) if self.fluid else self.current)

    def positions(self):
        """Centres of mass from those at the start, world axes [lengths]."""
        return (self.pool.getCOM() + self.drift() - self.start) / self.length

    def ways(self):
        """From the fish to its target, world axes [lengths]."""
        return self.targets - self.positions()

    def distances(self):
        return np.linalg.norm(self.ways(), axis=1)

    def observe(self):
        pool = self.pool
        axes = np.stack([pool.getBaseLinkFwd(), pool.getBaseLinkUp(), pool.getBaseLinkRight()], 1)
        velocity = pool.getCOMLinearVelocity() + (0.0 if self.fluid else self.current)
        parts = (
            pool.getPositions(0, False) / self.widest,
            pool.getVelocities(0, False) / self.fastest,
            axes[:, 0],
            np.einsum("kij,kj->ki", axes, self.ways()),
            np.einsum("kij,kj->ki", axes, velocity / self.length),
            100.0 * (pool.getMarkersPressure() - 1.0) * self.fluid,
        )
        return np.clip(np.nan_to_num(np.hstack(parts)), -BOUND, BOUND).astype(np.float32)

    def advance(self, actions):
        """Holds actions for an interval. Returns the joints' work [J] and which worlds diverged."""
        angles = self.pool.getPositions(0, False)
        low, high = np.minimum(-self.widest - angles, 0.0), np.maximum(self.widest - angles, 0.0)
        rates = np.clip(actions, -1.0, 1.0) * self.fastest
        rates = np.clip(rates, low / self.interval, high / self.interval)
        diverged, work = np.zeros(len(rates), bool), np.zeros(len(rates))
        for _ in range(self.substeps):
            try:
                self.pool.step(self.mode, rates)
            except RuntimeError:
                if not self.pool.getFailedWorlds():
                    raise
                diverged[self.pool.getFailedWorlds()] = True
            work += self.power() * self.dt
        self.elapsed += self.interval
        return np.where(diverged, 0.0, work), diverged

    def power(self):
        """Mechanical power that the actuators put in, in the last step [W]."""
        return np.array([np.maximum(body.getJointPower(), 0.0).sum() for body in self.bodies])


class _Fish:
    """What the environments of one and of many worlds share: spaces, episodes and rewards of K worlds."""

    def __init__(self, task, count, description, *, duration=6.0, price=1.0, lost=3.0, **scene):
        self.worlds = _Worlds(count, description, **scene)
        self.duration, self.price, self.lost, self.task = duration, price, lost, task
        sizes = {"angles": self.worlds.joints, "rates": self.worlds.joints, "forward": 3, "way": 3}
        sizes.update(velocity=3, probes=self.worlds.probes)
        ends = np.cumsum([0, *sizes.values()]).tolist()
        self.layout = {name: slice(*ends[i : i + 2]) for i, name in enumerate(sizes)}
        size = ends[-1]
        self.observation_space = gymnasium.spaces.Box(-BOUND, BOUND, (size,), np.float32)
        self.action_space = gymnasium.spaces.Box(-1.0, 1.0, (self.worlds.joints,), np.float32)

    def restart(self, index, rng, options):
        target = (options or {}).get("target")
        self.worlds.restart(index, self.task.draw(rng) if target is None else target)

    def step(self, actions):
        """Returns observations, rewards, terminations, truncations and facts, a row per world."""
        worlds = self.worlds
        before = worlds.distances()
        work, diverged = worlds.advance(actions)
        distances = worlds.distances()
        diverged |= ~np.isfinite(distances)
        distances = np.where(diverged, before, distances)
        failed = diverged | (distances > self.lost)
        reward, done = self.task.judge(before, distances, worlds.interval)
        reward = reward - self.price * work - failed
        truncated = (worlds.elapsed > self.duration - 0.5 * worlds.interval) & ~(done | failed)
        position = worlds.positions()
        facts = {"position": position, "distance": distances, "work": work, "failed": failed}
        return worlds.observe(), reward, done | failed, truncated, facts


class _FishEnv(gymnasium.Env):
    metadata = {"render_modes": []}  # noqa: RUF012  (the interface's own form)

    def __init__(self, description, **options):
        """description: its path; the options stand in the module's text."""
        self._fish = _Fish(type(self), 1, description, **options)
        self.layout, self.interval = self._fish.layout, self._fish.worlds.interval
        self.observation_space = self._fish.observation_space
        self.action_space = self._fish.action_space

    def reset(self, *, seed=None, options=None):
        """options: {"target": way to the target from the centre of mass [lengths], world axes}."""
        super().reset(seed=seed)
        self._fish.restart(0, self.np_random, options)
        return self._fish.worlds.observe()[0], {}

    def step(self, action):
        """info: the centre of mass from the start and the distance to the target [lengths], the joints'
        work [J], whether the episode has failed.
        """
        seen, reward, terminated, truncated, facts = self._fish.step(np.asarray(action)[None])
        info = {name: values[0] for name, values in facts.items()}
        return seen[0], float(reward[0]), bool(terminated[0]), bool(truncated[0]), info


class SwimToTarget(_FishEnv):
    """The fish swims to a target 0.5 to 1 lengths away, up to 45 degrees aside of its heading +x."""

    @staticmethod
    def draw(rng):
        distance, angle = rng.uniform(0.5, 1.0), rng.uniform(-np.pi / 4, np.pi / 4)
        return distance * np.array([np.cos(angle), 0.0, np.sin(angle)])

    @staticmethod
    def judge(before, after, interval):
        reached = after < 0.1
        return before - after + reached, reached


class HoldStation(_FishEnv):
    """The fish holds a place up to 0.2 lengths from its own, in a current or behind an obstacle."""

    @staticmethod
    def draw(rng):
        return np.array([rng.uniform(-0.2, 0.2), 0.0, rng.uniform(-0.2, 0.2)])

    @staticmethod
    def judge(before, after, interval):
        return -interval * after, np.zeros(len(after), bool)


class FishVector(gymnasium.vector.VectorEnv):
    """`count` environments of one kind, SwimToTarget or HoldStation, stepped at once by a pool.

    World k does the same, bit for bit, as a single environment that is reset with seed + k. Infos are arrays
    with a row per world. An episode that ends is followed by a new one in the same step: then the observation
    is that of the new one, and the infos are those of the end, with the last observation in "final_obs".
    """

    metadata = {"autoreset_mode": AutoresetMode.SAME_STEP}  # noqa: RUF012

    def __init__(self, kind, count, description, **options):
        """kind: the class of the environments; description: its path; options: of the module's text."""
        self._fish = _Fish(kind, count, description, **options)
        self.layout, self.interval = self._fish.layout, self._fish.worlds.interval
        self.num_envs = count
        self.single_observation_space = self._fish.observation_space
        self.single_action_space = self._fish.action_space
        self.observation_space = batch_space(self.single_observation_space, count)
        self.action_space = batch_space(self.single_action_space, count)
        self._rngs = [None] * count

    def reset(self, *, seed=None, options=None):
        """seed: one, for seed + k in world k, or one per world. options: as of a single environment."""
        seeds = [seed] * self.num_envs
        if seed is not None:
            seeds = [seed + k for k in range(self.num_envs)] if np.ndim(seed) == 0 else seed
        for k, own in enumerate(seeds):
            if own is not None or self._rngs[k] is None:
                self._rngs[k], _ = gymnasium.utils.seeding.np_random(own)
            self._fish.restart(k, self._rngs[k], options)
        return self._fish.worlds.observe(), {}

    def step(self, actions):
        seen, reward, terminated, truncated, facts = self._fish.step(np.asarray(actions))
        ended = terminated | truncated
        infos = {}
        for name, values in facts.items():
            infos[name], infos[f"_{name}"] = values, np.ones(self.num_envs, bool)
        if ended.any():
            last = np.full(self.num_envs, None)
            for k in np.flatnonzero(ended):
                last[k] = seen[k]
                self._fish.restart(k, self._rngs[k], None)
            masked = {**facts, **{f"_{name}": ended for name in facts}}
            infos.update(final_obs=last, _final_obs=ended, final_info=masked, _final_info=ended)
            seen = self._fish.worlds.observe()
        return seen, reward, terminated, truncated, infos
