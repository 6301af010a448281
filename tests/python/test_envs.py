"""The environments for learning: Gymnasium's own checks, rewards, and many worlds as one after the other."""

import subprocess
import sys

import drelt
import numpy as np
import pytest

gymnasium = pytest.importorskip("gymnasium")
from drelt.envs import FishVector, HoldStation, SwimToTarget  # noqa: E402
from gymnasium.utils.env_checker import check_env  # noqa: E402

FISH = "assets/swimmer.json"
SMALL = {"nodes": 16, "samples": 500}


def swim(env, seconds, bend=0.0):
    """Observations and facts of a fish that beats its tail."""
    seen, facts = env.reset(seed=1, options={"target": (1.5, 0.0, 0.0)})
    beats = np.linspace(0.0, 4.7, 8)
    for i in range(round(seconds / env.interval)):
        wanted = 0.6 * np.sin(beats - 2.0 * np.pi * (i + 1) * env.interval) + bend
        yield env.step(np.clip(2.0 * (wanted - seen[env.layout["angles"]]), -1.0, 1.0))


@pytest.mark.parametrize("kind", [SwimToTarget, HoldStation])
def test_gymnasium_finds_no_fault(kind):
    check_env(kind(FISH, duration=0.3, **SMALL), skip_render_check=True)


def test_a_swimming_fish_earns_its_way_less_its_work():
    env = SwimToTarget(FISH, price=0.5, **SMALL)
    rewards, facts = zip(*[(step[1], step[4]) for step in swim(env, 2.0)])
    way = 1.5 - facts[-1]["distance"]
    work = sum(f["work"] for f in facts)
    assert way > 0.3
    assert work > 0
    assert sum(rewards) == pytest.approx(way - 0.5 * work)
    assert facts[-1]["position"][0] == pytest.approx(way, rel=0.1)


def test_a_current_carries_a_fish_that_rests():
    small = {"box": (1.6, 0.6, 0.8), "ahead": 0.0, "current": (-0.05, 0.0, 0.0), **SMALL}
    for mode in (drelt.COUPLE_MODE.EMPIRICAL, drelt.COUPLE_MODE.TWO_WAY):
        env = HoldStation(FISH, mode=mode, **small)
        env.reset(options={"target": (0.0, 0.0, 0.0)})
        for _ in range(20):
            seen, reward, *_, facts = env.step(np.zeros(8))
        drift = -0.25 * 20 * env.interval  # lengths, with the water
        if mode == drelt.COUPLE_MODE.EMPIRICAL:
            assert facts["position"] == pytest.approx([drift, 0, 0], abs=1e-9)
        else:
            assert 1.1 * drift < facts["position"][0] < 0.3 * drift
        assert reward == pytest.approx(-env.interval * facts["distance"])
        assert seen[env.layout["way"]] == pytest.approx(-facts["position"], abs=1e-3)


def test_worlds_of_a_vector_are_single_environments():
    options = {"mode": drelt.COUPLE_MODE.TWO_WAY, "duration": 0.2, **SMALL}
    worlds = FishVector(SwimToTarget, 2, FISH, **options)
    singles = [SwimToTarget(FISH, **options) for _ in range(2)]
    seen, _ = worlds.reset(seed=5)
    np.testing.assert_array_equal(seen, [env.reset(seed=5 + k)[0] for k, env in enumerate(singles)])
    worlds.action_space.seed(0)
    for step in range(6):
        actions = worlds.action_space.sample()
        seen, reward, ended, cut, infos = worlds.step(actions)
        for k, env in enumerate(singles):
            own = env.step(actions[k])
            assert (reward[k], ended[k], cut[k]) == own[1:4]
            last = infos["final_obs"][k] if cut[k] else seen[k]
            np.testing.assert_array_equal(last, own[0])
            if cut[k]:
                np.testing.assert_array_equal(seen[k], env.reset()[0])
        assert cut.all() == (step == 3)


def test_a_fish_that_diverges_ends_its_episode_alone():
    worlds = FishVector(SwimToTarget, 2, FISH, mode=drelt.COUPLE_MODE.TWO_WAY, **SMALL)
    worlds.reset(seed=0)
    worlds._fish.worlds.bodies[1].getJoint("caudal").setVelocity(0, 1e9)
    _, reward, ended, _, infos = worlds.step(np.zeros((2, 8)))
    np.testing.assert_array_equal(ended, [False, True])
    np.testing.assert_array_equal(infos["failed"], [False, True])
    assert reward[1] == -1.0
    assert not worlds.step(np.zeros((2, 8)))[2].any()


def test_without_gymnasium_the_module_says_what_to_install():
    script = "import sys; sys.modules['gymnasium'] = None; import drelt.envs"
    done = subprocess.run(
        [sys.executable, "-c", script], capture_output=True, text=True, check=False
    )
    assert "drelt.envs needs Gymnasium 1.1 or newer: pip install 'drelt[learn]'" in done.stderr
