"""Compares the whole public surface of the module, in its order, with a table written by hand.

The table writes a parameter as `name: type` if scripts may use the keyword, as the bare type if they
may not, and as `_: type` if the keyword may have any name. vec3 and vecm are arrays of float64 with
three or any number of rows, fvec3 is one of float32 with three; rows have three columns, a matrix has
any number of them, indices are int32, a box is two points, an image is an array of bytes, and fields
have any shape. A function's docstring is in the
table only if its words are fixed.
"""

import re
from types import ModuleType

import drelt
import pytest

TABLE = '''
enum SETUP_MODE: GRAVITY = 1, MANUAL = 0
enum COUPLE_MODE: NO_FLUID = 2, ONE_WAY = 1, TWO_WAY = 0, EMPIRICAL = 3
enum SAVE_FLAG: BODY = 1, FLUID = 2
enum COUPLING: EXPLICIT = 0, SEMI_IMPLICIT = 1
enum WEIGHTS: AREA = 0, NORMALISED = 1
enum OPEN_PLANES: COPY = 0, CHARACTERISTIC = 1, CHARACTERISTIC_CONSTANT = 2
enum UNITS: LATTICE = 0, SI = 1

make_simParams() -> simParam
class simParam
    __init__() -> None
    x0: float
    y0: float
    z0: float
    width: float
    height: float
    depth: float
    N: float
    l0p: float
    u0k: float
    u0p: float
    rou0p: float
    visp: float
    slip_ratio: float
    pml_width: int
    setup_mode: SETUP_MODE
    get_tp() -> float
    coupling: COUPLING
    weights: WEIGHTS
    retraction: float
    open_planes: OPEN_PLANES
    far_density: float
    current: vec3

skeletonFromJson(json_name: str, gpuId: int) -> SkeletonSystem
make_skeletonSystem(str, int) -> SkeletonSystem
make_skDynamics(SkeletonSystem, int, int, vec3, vec3, vec3) -> SkeletonDynamics
make_skWorld(vec3) -> DartWorld
readMeshFile(path: str) -> dict
enum FLUID_FORCE: OUTER = 0, ON_LINK = 1
class SkeletonSystem
    __init__(model_file: str, gpuId: int) -> None
    getJoints() -> list
    getLinks() -> list
class SkeletonJoint
    getJointType() -> str
    getName() -> str
    getNumDofs() -> int
    setCommand(_: vecm) -> None
    setForce(_: vecm) -> None
    setPositions(_: vecm) -> None
    setPosition(_: int, _: float) -> None
    getPositions() -> vecm
    getVelocities() -> vecm
    setVelocity(_: int, _: float) -> None
    getAccelerations() -> vecm
    setAcceleration(_: int, _: float) -> None
class SkeletonLink
    getMass() -> float
    getName() -> str
    getAngularVelocity() -> vec3
    getLinearVelocity() -> vec3
    getAngularAcceleration() -> vec3
    getLinearAcceleration() -> vec3
    getPosition() -> vec3
    getRotation() -> vec3
    getFluidForce(which: FLUID_FORCE = FLUID_FORCE.OUTER) -> vec3
    getFluidTorque(which: FLUID_FORCE = FLUID_FORCE.OUTER) -> vec3
class Markers
    getMarkersPos() -> list of vec3
    getMarkersNormal() -> list of vec3
    getMarkersPressure() -> list of float
    getMarkersVel() -> list of vec3
class SkeletonDynamics
    __init__(Skeleton: SkeletonSystem, sampleNum: int = 5000, gpuId: int = 0, translation: vec3 = (0, 0, 0), rotation: vec3 = (1, 1, 1), scaling: vec3 = (1, 1, 1)) -> None
    setHead(position: vec3, target_orientation: vec3) -> None
    sample(sampleNum: int) -> None
    getBaseLinkFwd() -> vec3
    getBaseLinkRight() -> vec3
    getBaseLinkUp() -> vec3
    getBaseLink() -> SkeletonLink
    getLink(name: str) -> SkeletonLink
    getJoint(name: str) -> SkeletonJoint
    update() -> None
    getNumDofs() -> int
    getForces() -> vecm
    getVelocities(includeBase: bool = True) -> vecm
    getPositions(includeBase: bool = True) -> vecm
    getAccelerations() -> vecm
    getCOM() -> vec3
    getCOMLinearVelocity() -> vecm
    getCOMAngularVelocity() -> vecm
    setForces(_: vecm) -> None
    getCommands() -> vecm
    setCommands(_: vecm) -> None
    getMarkers() -> Markers
    getFluidWrench(which: FLUID_FORCE = FLUID_FORCE.OUTER) -> vecm
    getJointPower() -> vecm
    getJointNames() -> list of str
    getDofNames() -> list of str
    getDescription() -> SkeletonSystem
    getBoundingBox() -> box
    getSurfaceArea() -> float
    getVolume() -> float
    getSamplePositions() -> rows
    getSampleVelocities() -> rows
    getSampleForces() -> rows
    getSampleLinks() -> indices
    getSampleArea() -> float
    getSkinVertices() -> rows
    getSkinFaces() -> index rows
    getSkinFaceLinks() -> indices
    getLinkNames() -> list of str
class DartWorld
    __init__(Gravity: vec3 = (0, 0, 0)) -> None
    addSkeleton(SkeletonDynamics: SkeletonDynamics) -> None
    getSkeleton(index: int) -> SkeletonDynamics
    setTimestep(_: float) -> None
    getTimestep() -> float
    setGravity(_: vec3) -> None
    reset() -> None
    time: float, read only

make_simulator(simParam, int) -> simulator3D
class simulator3D
    __init__(param: simParam, gpuId: int) -> None
    attachWorld(world: DartWorld) -> None
    mainDataFolderPath: str
    fluidFolderName: str
    objectsFolderName: str
    log() -> None
    commitInit() -> None
    step(couple_mode: COUPLE_MODE, count: int = 1) -> None
    getIterNum() -> int
    getIterPerSave(frame_rate: int) -> int
    reset() -> None
    saveScene(frame: int, save_flags: int) -> None
    saveObjectsData(object_name: str) -> None
    saveFluidData(fluid_name: str) -> None
    setCurrent(velocity: vec3) -> None
    getCurrent() -> vec3
    restart() -> None
    saveState(path: os.PathLike, extra: object = None) -> None
    loadState(path: os.PathLike) -> dict
    getVelocity(units: UNITS = UNITS.SI) -> field of float32
    getDensity(units: UNITS = UNITS.SI) -> field of float32
    getPressure(units: UNITS = UNITS.SI) -> field of float32
    getSpreadForce(units: UNITS = UNITS.SI) -> field of float64
    getLayerTypes() -> field of int32
    getGridOrigin() -> vec3
    getGridSpacing() -> float
    getGridShape() -> tuple
    getGridVelocity() -> vec3
    toDataset(units: UNITS = UNITS.SI) -> object
    setFields(velocity: field of float64, density: Optional[field of float64] = None, non_equilibrium: bool = True, units: UNITS = UNITS.SI) -> None

make_pool(list of simulator3D) -> simulatorPool
class simulatorPool
    __init__(simulators: list of simulator3D) -> None
    getSimulator(index: int) -> simulator3D
    step(couple_mode: COUPLE_MODE, commands: Optional[field of float64] = None, count: int = 1) -> None
    getPositions(body: int = 0, includeBase: bool = True) -> matrix
    getVelocities(body: int = 0, includeBase: bool = True) -> matrix
    getCOM(body: int = 0) -> matrix
    getCOMLinearVelocity(body: int = 0) -> matrix
    getBaseLinkFwd(body: int = 0) -> matrix
    getBaseLinkRight(body: int = 0) -> matrix
    getBaseLinkUp(body: int = 0) -> matrix
    getMarkersPressure(body: int = 0) -> matrix
    getIterNum() -> list of int
    getFailedWorlds() -> list of int

make_trajectory() -> poseTrajectory
make_tpPoint() -> trajectoryPosePoint3d
make_controller(float, float, float) -> PDControl1D
make_renderer(int, int) -> tinyRenderer
class trajectoryPoint3d
    __init__() -> None
    data: vec3
class trajectoryPosePoint3d(trajectoryPoint3d)
    __init__() -> None
    getPosition() -> vec3
    getOrientation() -> vec3
class trajectory3d
    __init__() -> None
    setPoints(_: list of trajectoryPoint3d) -> None
    fit() -> None
class poseTrajectory(trajectory3d)
    __init__() -> None
    sample(sample_num: int) -> None
    getLastIdx() -> int
    getTargetPose(position: vec3, preSampleIdx: int, look_forward: int) -> trajectoryPosePoint3d
    getSampleNum() -> int
    getPose(t: float) -> trajectoryPosePoint3d
    getCurvature(t: float) -> vec3
    getReferencePose(position: vec3) -> float: Get Pose t using spline
    getReferencePose(position: vec3, posIdx: int, look_forward: int = 10) -> float: Get Pose t using samples within lookforward range
class debugLine
    __init__() -> None
    vertices: list of vec3
class VTKWriter
    static writeLines(lines: list of debugLine, file_path: str) -> bool
    static writeTrajectory(trajectory: trajectory3d, file_path: str) -> bool
class PDControl1D
    __init__(Kp: float, Kd: float, timestep: float) -> None
    feedback(value: float, timestep: float) -> float
    set_value(desired_value: float) -> None
    set_dvalue(desired_dvalue: float = 0) -> None
    reset() -> None
    getState() -> dict
    setState(state: dict) -> None
class tinyRenderer
    __init__(width: int, height: int) -> None
    render() -> None
    savePPM(_: str) -> None
    savePNG(file_name: str) -> None
    getImage() -> image
    setDepthRange(near: float, far: float) -> None
    setDepthFromScene(enclose: bool = True) -> None
    setCamera(position: fvec3, target: fvec3, worldup: fvec3) -> None
    setLight(position: fvec3, diffuse: fvec3 = (1, 1, 1), specular: fvec3 = (1, 1, 1)) -> None
    addCube() -> None
    addDynamics(dynamics: SkeletonDynamics) -> None
    addLines(points: rows, colour: fvec3 = (1, 1, 1), on_top: bool = False) -> None
    addTriangles(points: rows, normals: rows, colour: fvec3 = (0.8, 0.8, 0.8)) -> None
    addGrid(centre: vec3 = (0, 0, 0), height: float = 0, spacing: float = 0.1, cells: int = 10) -> None
    addAxes(origin: vec3 = (0, 0, 0), length: float = 0.1) -> None
    addTrajectory(trajectory: trajectory3d) -> None

setVerbosity(level: int) -> None
'''  # fmt: skip


def plain(signature):
    """One of pybind11's signature lines in the table's words, without self."""
    text = signature.replace("drelt.", "")
    text = re.sub(r"\(self: \w+(, )?", "(", text)
    if ", /)" in text:
        text = re.sub(r"\w+: ", "", text.replace(", /)", ")"))
    text = re.sub(r"\barg\d+: ", "", text)
    text = re.sub(r"numpy\.ndarray\[numpy\.float64\[(3|m), 1\]\]", r"vec\1", text)
    text = text.replace("numpy.ndarray[numpy.float32[3, 1]]", "fvec3")
    text = re.sub(r"numpy\.ndarray\[numpy\.float64\[m, 3\](, flags\.\w+)*\]", "rows", text)
    text = text.replace("numpy.ndarray[numpy.int32[m, 3]]", "index rows")
    text = text.replace("numpy.ndarray[numpy.int32[m, 1]]", "indices")
    text = text.replace("numpy.ndarray[numpy.float64[m, n]]", "matrix")
    text = text.replace("numpy.ndarray[numpy.float64[2, 3]]", "box")
    text = text.replace("numpy.ndarray[numpy.uint8]", "image")
    text = re.sub(r"numpy\.ndarray\[numpy\.(\w+)\]", r"field of \1", text)
    text = re.sub(r"\b[Ll]ist\[(\w+)\]", r"list of \1", text)
    text = re.sub(r"array\(\[([^]]*)\](, dtype=float32)?\)", r"(\1)", text)
    return re.sub(r"\b(\d+)\.0?(?=\W)", r"\1", text)


def signatures(name, function):
    """The signature of a function, or of each of its overloads with its description."""
    lines = [line.strip() for line in function.__doc__.splitlines() if line.strip()]
    if lines[0] != f"{name}(*args, **kwargs)":
        return [plain(lines[0])]
    starts = [i for i, line in enumerate(lines) if re.match(rf"\d+\. {name}\(", line)]
    return [
        f"{plain(lines[i].split('. ', 1)[1])}: {' '.join(lines[i + 1 : end])}"
        for i, end in zip(starts, [*starts[1:], None])
    ]


def attribute(name, member):
    """A property's type, which getter and setter share."""
    kind = plain(member.fget.__doc__).partition(" -> ")[2].strip()
    if member.fset is None:
        return f"{name}: {kind}, read only"
    assert re.fullmatch(rf"\((\w+, )?{kind}\) -> None", plain(member.fset.__doc__.strip())), name
    return f"{name}: {kind}"


def class_lines(name, cls):
    """The class and what it adds to its bases, in the order of definition."""
    if hasattr(cls, "__members__"):
        members = ", ".join(f"{key} = {int(value)}" for key, value in cls.__members__.items())
        return [f"enum {name}: {members}"]
    bases = ", ".join(base.__name__ for base in cls.__bases__ if base.__module__ == "drelt")
    lines = [f"class {name}({bases})" if bases else f"class {name}"]
    for key, member in vars(cls).items():
        made = key == "__init__" and member.__doc__.startswith("__init__(self")
        if key.startswith("_") and not made:
            continue
        if isinstance(member, property):
            lines.append(f"    {attribute(key, member)}")
        else:
            static = "static " if isinstance(member, staticmethod) else ""
            lines += [f"    {static}{line}" for line in signatures(key, getattr(cls, key))]
    return lines


def surface():
    """All that is public in the module, in the order of definition, one line per name."""
    lines = []
    for name, member in vars(drelt).items():
        if not name.startswith("_") and not isinstance(member, ModuleType):
            is_class = isinstance(member, type)
            lines += class_lines(name, member) if is_class else signatures(name, member)
    return lines


def agrees(wanted, found):
    return re.fullmatch(re.escape(wanted).replace("_:", r"\w+:"), found) is not None


def test_the_module_is_as_the_table_has_it():
    wanted, found = [line for line in TABLE.splitlines() if line], surface()
    # keywords that may have any name take the table's; every difference that remains is a fault
    matched = [w if agrees(w, f) else f for w, f in zip(wanted, found)] + found[len(wanted) :]
    assert matched == wanted
    assert drelt.__doc__ == "pybind11 example plugin"


def test_classes_without_a_constructor_refuse_to_be_made():
    for cls in (drelt.SkeletonJoint, drelt.SkeletonLink, drelt.Markers, drelt.VTKWriter):
        with pytest.raises(TypeError, match="No constructor"):
            cls()
