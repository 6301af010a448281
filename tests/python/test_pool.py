"""A pool of simulators, as scripts use it: arrays with a row per world, and what it refuses."""

import threading
import time

import drelt
import numpy as np
import pytest
from scenes import HOST, make_scene
from support import SWIMMERS, make_swimmer

MODE = drelt.COUPLE_MODE.TWO_WAY


def swimmers(count):
    return [make_swimmer("swimmer", SWIMMERS["swimmer"], 16, HOST)[:2] for _ in range(count)]


def test_arrays_have_a_row_for_each_world():
    steps, dofs = 5, 8
    scenes, alone = swimmers(3), swimmers(3)
    pool = drelt.make_pool([simulator for simulator, _ in scenes])
    assert len(pool) == 3 and pool.getSimulator(1) is scenes[1][0]
    commands = np.random.default_rng(0).normal(size=(3, steps, dofs))
    pool.step(MODE, commands, steps)
    pool.step(drelt.COUPLE_MODE.EMPIRICAL, commands[:, 0], count=2)
    for rows, (simulator, body) in zip(commands, alone):
        for row in rows:
            body.setCommands(row)
            simulator.step(MODE)
        for _ in range(2):
            body.setCommands(rows[0])
            simulator.step(drelt.COUPLE_MODE.EMPIRICAL)
    assert pool.getIterNum() == [7, 7, 7]
    for name in ("getPositions", "getVelocities", "getCOM", "getCOMLinearVelocity"):
        expected = [np.ravel(getattr(body, name)()) for _, body in alone]
        np.testing.assert_array_equal(getattr(pool, name)(), expected)
    for axis in ("getBaseLinkFwd", "getBaseLinkRight", "getBaseLinkUp"):
        expected = [np.ravel(getattr(body, axis)()) for _, body in alone]
        np.testing.assert_array_equal(getattr(pool, axis)(), expected)
    expected = [body.getMarkers().getMarkersPressure() for _, body in alone]
    np.testing.assert_array_equal(pool.getMarkersPressure(), expected)
    assert pool.getPositions(0, False).shape == (3, dofs)


def test_a_pool_takes_committed_simulators_with_equal_bodies_once():
    (fish, _), (other, _) = swimmers(2)
    sphere, plain = make_scene()[0], drelt.make_simParams()
    plain.setup_mode = drelt.SETUP_MODE.MANUAL
    refused = [
        ([], "no simulators"),
        ([fish, None], "simulator 1 is None"),
        ([fish, other, fish], "simulator 2 is in the list twice"),
        ([fish, sphere], "simulator 1 has bodies that differ"),
    ]
    for simulators, message in refused:
        with pytest.raises(ValueError, match=message):
            drelt.make_pool(simulators)
    with pytest.raises(RuntimeError, match="simulator 1 is not initialised"):
        drelt.make_pool([fish, drelt.make_simulator(plain, HOST)])
    pool = drelt.simulatorPool([fish])
    with pytest.raises(ValueError, match="simulator 1 is in another pool"):
        drelt.make_pool([other, fish])
    del pool
    assert len(drelt.make_pool([other, fish])) == 2


def test_bad_arguments_of_a_step_change_nothing():
    pool = drelt.make_pool([simulator for simulator, _ in swimmers(2)])
    good = np.zeros((2, 8))
    bad = good.copy()
    bad[1, 3] = np.nan
    for commands in (np.zeros(8), np.zeros((1, 8)), np.zeros((2, 9)), np.zeros((2, 3, 8))):
        with pytest.raises(ValueError, match=r"give \(2, 8\), or .* \(2, 2, 8\)"):
            pool.step(MODE, commands, 2)
    for arguments, message in (((bad,), "world 1 contain nan"), ((good, 0), "count of 0")):
        with pytest.raises(ValueError, match=message):
            pool.step(MODE, *arguments)
    with pytest.raises(IndexError, match="none with index 1"):
        pool.getCOM(1)
    with pytest.raises(IndexError, match="give 0 to 1"):
        pool.getSimulator(2)
    assert pool.getIterNum() == [0, 0]
    assert not pool.getVelocities().any()


def test_python_runs_on_while_one_thread_steps_a_pool():
    pool = drelt.make_pool([simulator for simulator, _ in swimmers(2)])
    refused = set()

    def call(operation, *arguments):
        try:
            operation(*arguments)
        except RuntimeError as error:
            refused.add(str(error).partition(": another thread is using this pool")[0])
            return False
        return True

    def step_on():
        while not call(pool.step, MODE, None, 200):
            pass

    stepping = threading.Thread(target=step_on)
    stepping.start()
    while stepping.is_alive():
        call(pool.getCOM)
        if "read-out" in refused:
            call(pool.step, MODE)
        time.sleep(1e-3)
    stepping.join()
    assert refused == {"read-out", "step"}


def test_a_world_that_diverges_is_named_and_the_others_go_on():
    scenes = swimmers(2)
    pool = drelt.make_pool([simulator for simulator, _ in scenes])
    scenes[1][1].getJoint("caudal").setVelocity(0, 1e9)
    with pytest.raises(
        RuntimeError, match=r"(?s)^world 1: step 1 .*other worlds .* have completed"
    ):
        pool.step(MODE, count=3)
    assert pool.getIterNum() == [3, 0]
    assert pool.getFailedWorlds() == [1]
