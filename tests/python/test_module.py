"""What a script sees of the module: defaults, bad input, lifetimes."""

import functools
import gc
import math
import os
import signal

import drelt
import numpy as np
import pytest
from scenes import HOST, make_body, make_params, make_scene

FLUID_MODES = (drelt.COUPLE_MODE.TWO_WAY, drelt.COUPLE_MODE.ONE_WAY)


def test_flags_join():
    assert drelt.SAVE_FLAG.BODY | drelt.SAVE_FLAG.FLUID == 3
    assert int(drelt.SAVE_FLAG.BODY) | int(drelt.SAVE_FLAG.FLUID) == 3


def test_parameters_have_their_defaults_and_can_be_set():
    params = drelt.make_simParams()
    defaults = {
        "x0": 0, "y0": 0, "z0": 0, "width": 10, "height": 4, "depth": 4, "N": -1, "l0p": -1,
        "u0k": 0.1, "u0p": -1, "rou0p": 1.25, "visp": 0.001, "slip_ratio": 0, "pml_width": 0,
    }  # fmt: skip
    for name, value in defaults.items():
        assert getattr(params, name) == pytest.approx(value, rel=1e-6), name
        setattr(params, name, 3)
        assert getattr(params, name) == 3
    assert params.setup_mode == drelt.SETUP_MODE.GRAVITY


def test_time_step_fills_in_what_is_not_set(capfd):
    params = drelt.simParam()
    params.setup_mode = drelt.SETUP_MODE.MANUAL
    assert params.get_tp() == pytest.approx(0.0003)
    assert (params.N, params.l0p) == (256, 4)
    params = make_params(u0p=0.0)
    assert math.isinf(params.get_tp())
    assert math.isinf(make_params(N=0.0).get_tp())
    assert drelt.make_simulator(make_params(), HOST).getIterPerSave(30) == 26


def test_constructors_take_their_keywords():
    params = make_params()
    simulator = drelt.simulator3D(param=params, gpuId=HOST)
    assert (simulator.mainDataFolderPath, simulator.objectsFolderName) == (
        "./data/vis_data/",
        "Objects",
    )
    assert simulator.fluidFolderName == "Fluid"
    world = drelt.DartWorld()
    world.setTimestep(0.25)
    assert (world.getTimestep(), world.time) == (0.25, 0.0)
    world = drelt.DartWorld(Gravity=[0, 0, -1])
    description = drelt.skeletonFromJson(json_name="assets/sphere_follow.json", gpuId=HOST)
    body = drelt.SkeletonDynamics(description, sampleNum=0, gpuId=HOST)
    world.addSkeleton(SkeletonDynamics=body)
    assert world.getSkeleton(index=0) is body
    world.addSkeleton(None)
    with pytest.raises(IndexError):
        world.getSkeleton(1)


def test_vectors_are_arrays_of_float64():
    _, _, body = make_scene()
    for value in (body.getCOM(), body.getBaseLinkFwd(), body.getCOMLinearVelocity()):
        assert value.dtype == np.float64
        assert value.shape == (3,)
    assert body.getPositions().shape == body.getVelocities().shape == (1,)
    assert body.getPositions(includeBase=False).shape == (0,)
    markers = body.getMarkers()
    assert markers.getMarkersPos() == markers.getMarkersPressure() == []


@pytest.mark.parametrize(
    ("changes", "text"),
    [
        ({"N": 0.0}, "node spacing is inf"),
        ({"l0p": float("nan")}, "node spacing is nan"),
        (
            {"setup_mode": drelt.SETUP_MODE.GRAVITY},
            "node spacing is -1 m; select setup_mode MANUAL",
        ),
        ({"depth": 0.0}, "depth is 0; set a positive size"),
        ({"width": 1e9}, "more than 16777216 nodes along one axis"),
        ({"x0": float("nan")}, r"its centre \(x0, y0, z0\) is \(nan, 0, 0\)"),
        ({"pml_width": -1}, "pml_width is -1"),
        ({"pml_width": 13}, "height has 14 nodes, too few"),
    ],
)
def test_boxes_that_cannot_be_are_refused(changes, text):
    params = make_params(**changes)
    with pytest.raises(ValueError, match=text):
        drelt.make_simulator(params, HOST)


def test_boxes_beyond_the_memory_are_refused():
    params = make_params(width=2.5, height=2.5, depth=2.5)
    with pytest.raises(RuntimeError, match=r"GB of host memory, .* GB are available"):
        drelt.make_simulator(params, HOST)


def test_calls_out_of_order_are_refused(tmp_path):
    simulator = drelt.make_simulator(make_params(), HOST)
    for call in (
        lambda: simulator.step(drelt.COUPLE_MODE.TWO_WAY),
        simulator.reset,
        lambda: simulator.saveScene(0, 3),
        lambda: simulator.saveObjectsData("x"),
        lambda: simulator.saveFluidData("x"),
    ):
        with pytest.raises(RuntimeError, match="call commitInit first"):
            call()
    with pytest.raises(RuntimeError, match="no world is attached"):
        simulator.commitInit()
    world = drelt.DartWorld()
    simulator.attachWorld(world)
    with pytest.raises(RuntimeError, match="has no skeleton"):
        simulator.commitInit()
    world.addSkeleton(make_body())
    simulator.commitInit()
    with pytest.raises(RuntimeError, match="before commitInit"):
        simulator.attachWorld(world)
    with pytest.raises(RuntimeError, match="committed"):
        world.addSkeleton(make_body())
    for frame_rate in (0, -25):
        with pytest.raises(ValueError, match="frame_rate"):
            simulator.getIterPerSave(frame_rate)
    with pytest.raises(ValueError, match="parameters are None"):
        drelt.make_simulator(None, HOST)


def test_device_ids_must_agree():
    simulator = drelt.make_simulator(make_params(), 0)
    world = drelt.DartWorld()
    world.addSkeleton(make_body())
    simulator.attachWorld(world)
    with pytest.raises(ValueError, match="device"):
        simulator.commitInit()
    description = drelt.skeletonFromJson("assets/sphere_follow.json", HOST)
    with pytest.raises(ValueError, match="device"):
        drelt.SkeletonDynamics(description, 100, 0)


def test_bodies_that_cannot_be_are_refused(tmp_path, capfd):
    description = drelt.skeletonFromJson("assets/sphere_follow.json", HOST)
    with pytest.raises(ValueError, match="-1"):
        drelt.SkeletonDynamics(description, -1, HOST)
    missing = drelt.make_skeletonSystem(str(tmp_path / "missing.glb"), HOST)
    with pytest.raises(RuntimeError, match=r"missing\.glb"):
        drelt.SkeletonDynamics(missing, 100, HOST)
    with pytest.raises(RuntimeError, match="parse"):
        drelt.skeletonFromJson(str(tmp_path / "missing.json"), HOST)
    body = make_body()
    with pytest.raises(ValueError, match="2"):
        body.setForces(np.zeros(2))
    with pytest.raises(TypeError):
        body.setHead(np.zeros(2), np.zeros(3))
    joint = body.getJoint("root") or body.getJoint(joint_name(body))
    with pytest.raises(IndexError):
        joint.setPosition(1, 0.0)
    with pytest.raises(ValueError, match="2"):
        joint.setPositions(np.zeros(2))
    assert body.getLink("nobody") is None
    assert body.getJoint("nobody") is None


NAN, INF = math.nan, math.inf


@pytest.mark.parametrize(
    ("call", "text"),
    [
        *((lambda s, w, b, dt=dt: w.setTimestep(dt), "time step") for dt in (NAN, 0, -1, INF)),
        (lambda s, w, b: w.setGravity([NAN, 0, 0]), r"gravity: got \(nan"),
        (lambda s, w, b: drelt.make_skWorld([0, INF, 0]), "gravity"),
        (lambda s, w, b: b.setHead([0, NAN, 0], [1, 0, 0]), "position"),
        (lambda s, w, b: b.setHead([0, 0, 0], [INF, 0, 0]), "target_orientation"),
        (lambda s, w, b: b.setForces([NAN]), "forces"),
        (lambda s, w, b: b.setForces([1e300]), "none above 1e50"),
        (lambda s, w, b: b.getJoint(joint_name(b)).setPositions([NAN]), "positions"),
        (lambda s, w, b: b.getJoint(joint_name(b)).setPosition(0, INF), "position"),
        (lambda s, w, b: b.getJoint(joint_name(b)).setVelocity(0, NAN), "velocity"),
        (lambda s, w, b: b.getJoint(joint_name(b)).setAcceleration(0, NAN), "acceleration"),
        (lambda s, w, b: b.getJoint(joint_name(b)).setCommand([NAN]), "commands"),
        (lambda s, w, b: b.getJoint(joint_name(b)).setForce([INF]), "forces"),
        (lambda s, w, b: place(translation=[NAN, 0, 0]), "translation"),
        (lambda s, w, b: place(rotation=[0, INF, 0]), "rotation"),
        (lambda s, w, b: place(scaling=[1, 1, NAN]), "scaling"),
        *((lambda s, w, b, c=c: commit(**c), "commitInit: the time step is") for c in (
            {"u0p": 0}, {"u0p": NAN}, {"u0k": 0}, {"u0k": -0.1, "u0p": -0.1}, {"l0p": INF},
        )),
        *((lambda s, w, b, c=c: commit(**c), "commitInit: the fluid has visp") for c in (
            {"visp": NAN}, {"visp": -1}, {"rou0p": 0}, {"rou0p": INF}, {"slip_ratio": NAN},
        )),
    ],
)  # fmt: skip
def test_numbers_that_cannot_be_are_refused_before_anything_changes(call, text):
    scene = make_scene()
    with pytest.raises(ValueError, match=text):
        call(*scene)
    assert moved(scene) == moved_untouched()


def moved(scene):
    """Positions of a scene's body after two steps."""
    simulator, _, body = scene
    for mode in (drelt.COUPLE_MODE.NO_FLUID, drelt.COUPLE_MODE.TWO_WAY):
        simulator.step(mode)
    return body.getPositions().tolist()


@functools.cache
def moved_untouched():
    return moved(make_scene())


def test_an_unstable_run_ends_in_an_exception_and_can_start_again():
    simulator, _, _ = make_scene(u0k=1e-30)  # forces overflow on their way to the links
    with pytest.raises(RuntimeError, match=r"step 1 .*the force on link '\S+' of .* diverged"):
        simulator.step(drelt.COUPLE_MODE.TWO_WAY)
    scene = make_scene()
    simulator, _, body = scene
    joint = body.getJoint(joint_name(body))
    for mode in (drelt.COUPLE_MODE.NO_FLUID, drelt.COUPLE_MODE.TWO_WAY):
        joint.setVelocity(0, 1e50)
        with pytest.raises(RuntimeError, match=r"link '\S+' of .* moves .* diverged"):
            simulator.step(mode)
        simulator.reset()
    simulator.commitInit()
    assert moved(scene) == moved_untouched()


@pytest.mark.filterwarnings("ignore:.*fork.*:DeprecationWarning")
def test_a_forked_process_goes_on():
    scene = make_scene()
    simulator, _, _ = scene
    simulator.step(drelt.COUPLE_MODE.NO_FLUID)
    child = os.fork()
    if child == 0:
        signal.alarm(20)  # ends a child that hangs
        simulator.step(drelt.COUPLE_MODE.TWO_WAY)
        os._exit(simulator.getIterNum())
    _, status = os.waitpid(child, 0)
    assert os.WIFEXITED(status), status
    assert os.WEXITSTATUS(status) == 2


def place(**vectors):
    description = drelt.skeletonFromJson("assets/sphere_follow.json", HOST)
    return drelt.SkeletonDynamics(description, 100, HOST, **vectors)


def commit(**changes):
    """Calls commitInit with parameters that changed after the grid was made."""
    params = make_params()
    simulator = drelt.make_simulator(params, HOST)
    world = drelt.DartWorld()
    world.addSkeleton(make_body())
    simulator.attachWorld(world)
    for name, value in changes.items():
        setattr(params, name, value)
    simulator.commitInit()


def joint_name(body):
    """Name of the joint of the base link: the link's name without its prefix."""
    return body.getBaseLink().getName().replace("[link]", "")


def test_what_is_handed_out_keeps_its_owner():
    body = make_body()
    link, joint, markers = body.getBaseLink(), body.getJoint(joint_name(body)), body.getMarkers()
    world = drelt.DartWorld([0, -9.8, 0])
    world.addSkeleton(body)
    mass, name = link.getMass(), joint.getName()
    del body
    skeleton = world.getSkeleton(0)
    del world
    gc.collect()
    assert skeleton.getCOM().shape == (3,)
    del skeleton
    gc.collect()
    assert (link.getMass(), joint.getName()) == (mass, name)
    assert link.getPosition().shape == (3,)
    assert joint.getPositions().shape == (joint.getNumDofs(),)
    assert markers.getMarkersPos() == []


def test_the_simulator_keeps_parameters_and_world():
    simulator, world, body = make_scene()
    del world, body
    gc.collect()
    for mode in (*FLUID_MODES, drelt.COUPLE_MODE.NO_FLUID, drelt.COUPLE_MODE.EMPIRICAL):
        simulator.step(mode)
    assert simulator.getIterNum() == 4
    simulator.reset()
    assert simulator.getIterNum() == 0


def test_no_samples_leave_the_fluid_alone():
    simulator = drelt.make_simulator(make_params(), HOST)
    world = drelt.DartWorld()
    body = make_body(samples=0)
    world.addSkeleton(body)
    simulator.attachWorld(world)
    simulator.commitInit()
    simulator.step(drelt.COUPLE_MODE.TWO_WAY)
    assert np.all(body.getVelocities() == 0)
