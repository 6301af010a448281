# Types of the extension module; the docstrings are those of the bindings.
from collections.abc import Mapping, Sequence
from typing import Any, ClassVar, NoReturn, SupportsIndex, overload

import numpy as np
from numpy.typing import ArrayLike, NDArray
from typing_extensions import Self

# What the module gives is float64 of shape (3,), or (m,) with one element a degree of freedom. What it
# takes (the renderer in float32) is anything that numpy makes such an array of, so a list of numbers too.

class _BindingType(type): ...

class _Bound(metaclass=_BindingType):
    """What all classes of the module derive from."""

class _Handed(_Bound):
    """Made by the module alone: the constructor raises TypeError."""

    def __init__(self, *args: Any, **kwargs: Any) -> NoReturn: ...

class _Enumeration(_Bound):
    """Members compare and join as integers; a joined value is an int."""

    __members__: ClassVar[Mapping[str, Self]]
    def __init__(self, value: SupportsIndex) -> None: ...
    @property
    def name(self) -> str: ...
    @property
    def value(self) -> int: ...
    def __int__(self) -> int: ...
    def __index__(self) -> int: ...
    def __hash__(self) -> int: ...
    def __eq__(self, other: object, /) -> bool: ...
    def __ne__(self, other: object, /) -> bool: ...
    def __lt__(self, other: SupportsIndex, /) -> bool: ...
    def __le__(self, other: SupportsIndex, /) -> bool: ...
    def __gt__(self, other: SupportsIndex, /) -> bool: ...
    def __ge__(self, other: SupportsIndex, /) -> bool: ...
    def __and__(self, other: SupportsIndex, /) -> int: ...
    def __rand__(self, other: SupportsIndex, /) -> int: ...
    def __or__(self, other: SupportsIndex, /) -> int: ...
    def __ror__(self, other: SupportsIndex, /) -> int: ...
    def __xor__(self, other: SupportsIndex, /) -> int: ...
    def __rxor__(self, other: SupportsIndex, /) -> int: ...
    def __invert__(self) -> int: ...
    def __getstate__(self) -> int: ...
    def __setstate__(self, state: int, /) -> None: ...

class SETUP_MODE(_Enumeration):
    """How the scales of a simulation are found: MANUAL from N, l0p and u0p of the parameters;
    GRAVITY from a fall through the box, which needs a node spacing that scripts cannot set."""

    GRAVITY: ClassVar[SETUP_MODE]
    MANUAL: ClassVar[SETUP_MODE]

class COUPLE_MODE(_Enumeration):
    """How one step couples fluid and bodies: TWO_WAY each drives the other; ONE_WAY the bodies
    drive the fluid; NO_FLUID the bodies alone; EMPIRICAL the bodies alone, under a
    flat-plate force model."""

    NO_FLUID: ClassVar[COUPLE_MODE]
    ONE_WAY: ClassVar[COUPLE_MODE]
    TWO_WAY: ClassVar[COUPLE_MODE]
    EMPIRICAL: ClassVar[COUPLE_MODE]

class SAVE_FLAG(_Enumeration):
    """What saveScene writes; join members with |."""

    BODY: ClassVar[SAVE_FLAG]
    FLUID: ClassVar[SAVE_FLAG]

class simParam(_Bound):
    """Parameters of a simulation, in SI units unless said otherwise. Set setup_mode to MANUAL,
    then N, l0p, u0k, u0p, visp, the box and pml_width, before the simulator is made: it takes
    its grid from here once. A float of -1 is not set; it is filled in at the first use, with
    a printed line where a default is taken."""
    def __init__(self) -> None:
        """Default values."""
    def get_tp(self) -> float:
        """Time step [s], l0p u0k / (N u0p). Fills what is not set; infinite for a zero N or u0p."""
    @property
    def N(self) -> float:
        """Nodes per reference length; the node spacing is l0p / N."""
    @N.setter
    def N(self, value: float) -> None: ...
    @property
    def depth(self) -> float:
        """Size of the box along z [m]."""
    @depth.setter
    def depth(self, value: float) -> None: ...
    @property
    def height(self) -> float:
        """Size of the box along y [m]."""
    @height.setter
    def height(self, value: float) -> None: ...
    @property
    def l0p(self) -> float:
        """Reference length [m]."""
    @l0p.setter
    def l0p(self, value: float) -> None: ...
    @property
    def pml_width(self) -> int:
        """Thickness of the absorbing layer [nodes]."""
    @pml_width.setter
    def pml_width(self, value: int) -> None: ...
    @property
    def rou0p(self) -> float:
        """Density of the fluid [kg/m^3]."""
    @rou0p.setter
    def rou0p(self, value: float) -> None: ...
    @property
    def setup_mode(self) -> SETUP_MODE:
        """A SETUP_MODE."""
    @setup_mode.setter
    def setup_mode(self, value: SETUP_MODE) -> None: ...
    @property
    def slip_ratio(self) -> float:
        """Slip at immersed surfaces: 0 none .. 1 free."""
    @slip_ratio.setter
    def slip_ratio(self, value: float) -> None: ...
    @property
    def u0k(self) -> float:
        """Reference velocity in lattice units; keep it well below 0.3."""
    @u0k.setter
    def u0k(self, value: float) -> None: ...
    @property
    def u0p(self) -> float:
        """Reference velocity [m/s]."""
    @u0p.setter
    def u0p(self, value: float) -> None: ...
    @property
    def visp(self) -> float:
        """Kinematic viscosity [m^2/s]."""
    @visp.setter
    def visp(self, value: float) -> None: ...
    @property
    def width(self) -> float:
        """Size of the box along x [m]."""
    @width.setter
    def width(self, value: float) -> None: ...
    @property
    def x0(self) -> float:
        """Centre of the fluid box at the start, x [m]."""
    @x0.setter
    def x0(self, value: float) -> None: ...
    @property
    def y0(self) -> float:
        """Centre of the fluid box at the start, y [m]."""
    @y0.setter
    def y0(self, value: float) -> None: ...
    @property
    def z0(self) -> float:
        """Centre of the fluid box at the start, z [m]."""
    @z0.setter
    def z0(self, value: float) -> None: ...

class SkeletonSystem(_Bound):
    """A mesh with the joints and links derived from its bones."""
    def __init__(self, model_file: str, gpuId: int) -> None:
        """As make_skeletonSystem."""

class SkeletonJoint(_Handed):
    """A joint of a body. Keeps what it needs of the body alive."""
    def getAccelerations(self) -> NDArray[np.float64]:
        """[m/s^2] or [rad/s^2], one a DOF."""
    def getJointType(self) -> str:
        """Word of the description: 'revolute', ..."""
    def getName(self) -> str:
        """Name of the joint's node."""
    def getNumDofs(self) -> int:
        """Number of degrees of freedom (DOFs)."""
    def getPositions(self) -> NDArray[np.float64]:
        """[m] or [rad], one a DOF."""
    def getVelocities(self) -> NDArray[np.float64]:
        """[m/s] or [rad/s], one a DOF."""
    def setAcceleration(self, dof: int, acceleration: float) -> None:
        """One DOF."""
    def setCommand(self, command: ArrayLike) -> None:
        """Commands of all DOFs for the next step; their meaning follows from the actuator.
        Raises ValueError for a vector of another length, as do the other vectors here, and all
        setters for a number that is not finite."""
    def setForce(self, force: ArrayLike) -> None:
        """Forces [N] or moments [N m]."""
    def setPosition(self, dof: int, position: float) -> None:
        """One DOF. Raises IndexError for a DOF that is not there, as do the other setters of one."""
    def setPositions(self, positions: ArrayLike) -> None:
        """[m] or [rad]."""
    def setVelocity(self, dof: int, velocity: float) -> None:
        """One DOF."""

class SkeletonLink(_Handed):
    """A link of a body. Keeps what it needs of the body alive."""
    def getAngularAcceleration(self) -> NDArray[np.float64]:
        """World axes [rad/s^2], shape (3,)."""
    def getAngularVelocity(self) -> NDArray[np.float64]:
        """World axes [rad/s], shape (3,)."""
    def getLinearAcceleration(self) -> NDArray[np.float64]:
        """World axes [m/s^2], shape (3,)."""
    def getLinearVelocity(self) -> NDArray[np.float64]:
        """World axes [m/s], shape (3,)."""
    def getMass(self) -> float:
        """[kg]. Raises RuntimeError for a link without a body."""
    def getName(self) -> str:
        """Name of the link."""
    def getPosition(self) -> NDArray[np.float64]:
        """World position [m], shape (3,)."""
    def getRotation(self) -> NDArray[np.float64]:
        """Euler angles about x, y, z [rad], shape (3,)."""

class Markers(_Handed):
    """Probes on a body's skin, read after each step."""
    def getMarkersNormal(self) -> list[NDArray[np.float64]]:
        """Vertex normals, world axes, a list of shape (3,)."""
    def getMarkersPos(self) -> list[NDArray[np.float64]]:
        """World positions [m], a list of shape (3,)."""
    def getMarkersPressure(self) -> list[float]:
        """Densities of the fluid at the markers, lattice units; 1 is the fluid at rest."""
    def getMarkersVel(self) -> list[NDArray[np.float64]]:
        """Momenta of the fluid at the markers, lattice units, a list of shape (3,)."""

class SkeletonDynamics(_Bound):
    """A live articulated body. Vectors over degrees of freedom (DOFs) are in
    the order of its joints."""
    def __init__(
        self,
        Skeleton: SkeletonSystem,
        sampleNum: int = 5000,
        gpuId: int = 0,
        translation: ArrayLike = ...,
        rotation: ArrayLike = ...,
        scaling: ArrayLike = ...,
    ) -> None:
        """Builds the body of a description and places it: translation [m] and rotation
        [degrees; note its default] are added to the root joint's pose; scaling has no effect.
        Raises RuntimeError for a mesh without joints, ValueError for a base link, base frame
        or mimic master that does not exist, another device than the description's, a negative
        number of samples, and a vector that is not finite."""
    def getAccelerations(self) -> NDArray[np.float64]:
        """Of all DOFs [m/s^2, rad/s^2]."""
    def getBaseLink(self) -> SkeletonLink | None:
        """The link that defines the heading; None where the description names none."""
    def getBaseLinkFwd(self) -> NDArray[np.float64]:
        """Forward axis, world, shape (3,)."""
    def getBaseLinkRight(self) -> NDArray[np.float64]:
        """Right axis, world, shape (3,)."""
    def getBaseLinkUp(self) -> NDArray[np.float64]:
        """Up axis, world, shape (3,)."""
    def getCOM(self) -> NDArray[np.float64]:
        """Centre of mass, world [m], shape (3,)."""
    def getCOMAngularVelocity(self) -> NDArray[np.float64]:
        """Lower half of the spatial velocity of the centre of mass, world, shape (3,): its
        linear part [m/s], whatever the name says."""
    def getCOMLinearVelocity(self) -> NDArray[np.float64]:
        """Velocity of the centre of mass, world [m/s], shape (3,)."""
    def getCommands(self) -> NDArray[np.float64]:
        """Commands of the actuated DOFs."""
    def getForces(self) -> NDArray[np.float64]:
        """Generalised forces of all DOFs [N, N m]."""
    def getJoint(self, name: str) -> SkeletonJoint | None:
        """None for an unknown name."""
    def getLink(self, name: str) -> SkeletonLink | None:
        """None for an unknown name."""
    def getMarkers(self) -> Markers:
        """The probes on the body's skin."""
    def getNumDofs(self) -> int:
        """Number of actuated DOFs."""
    def getPositions(self, includeBase: bool = True) -> NDArray[np.float64]:
        """[m, rad], shape (m,); without the first joint's DOFs if includeBase is False."""
    def getVelocities(self, includeBase: bool = True) -> NDArray[np.float64]:
        """[m/s, rad/s], shape (m,); without the first joint's DOFs if includeBase is False."""
    def sample(self, sampleNum: int) -> None:
        """Places about sampleNum samples anew, at rest and on the rest pose until the next
        update(). The surface counts once more at each call: a second one places half.
        Raises ValueError for a number that is negative or does not fit into memory."""
    def setCommands(self, commands: ArrayLike) -> None:
        """Commands of the actuated DOFs for the next step. Raises ValueError for another length
        and for a number that is not finite."""
    def setForces(self, forces: ArrayLike) -> None:
        """Generalised forces of all DOFs for the next step. Raises ValueError for another length
        and for a number that is not finite."""
    def setHead(self, position: ArrayLike, target_orientation: ArrayLike) -> None:
        """Turns the body so that its forward axis points along target_orientation and moves its
        root to position [m]. That pose becomes the zero of the joints: positions that they
        have already come on top of it, and reset() goes back to it. Raises ValueError for a
        number that is not finite."""
    def update(self) -> None:
        """Brings frame, mesh, markers and samples up to the joints' state."""

class DartWorld(_Bound):
    """The bodies of a simulation."""
    def __init__(self, Gravity: ArrayLike = ...) -> None:
        """[m/s^2]"""
    def addSkeleton(self, SkeletonDynamics: SkeletonDynamics | None) -> None:
        """Adds a body; the first one drives the fluid grid. Raises RuntimeError once a simulator
        has committed this world."""
    def getSkeleton(self, index: int) -> SkeletonDynamics:
        """Raises IndexError for an index without a body."""
    def getTimestep(self) -> float:
        """[s]"""
    def reset(self) -> None:
        """All joints to their first positions and velocities, time to zero; a pose given by
        setHead stays."""
    def setGravity(self, gravity: ArrayLike) -> None:
        """[m/s^2], shape (3,). Raises ValueError for a number that is not finite."""
    def setTimestep(self, timestep: float) -> None:
        """[s]; each step of a simulator sets its own. Raises ValueError unless positive and finite."""
    @property
    def time(self) -> float:
        """Simulated time [s]."""

class simulator3D(_Bound):
    """Fluid and bodies, coupled. Order of use: make it, attachWorld, commitInit, then step and
    save. Keeps its parameters and its world alive."""
    def __init__(self, param: simParam, gpuId: int) -> None:
        """As make_simulator."""
    def attachWorld(self, world: DartWorld) -> None:
        """Sets the bodies. Raises RuntimeError after commitInit."""
    def commitInit(self) -> None:
        """Brings fluid and bodies to the device: call it once all is set, before the first step.
        The grid is centred on the frame that it follows. Raises RuntimeError without a world
        or with an empty one, ValueError where device ids differ or u0k, u0p, rou0p and the time
        step are not finite and positive, or visp and slip_ratio cannot be."""
    def getIterNum(self) -> int:
        """Steps done since the start or the reset."""
    def getIterPerSave(self, frame_rate: int) -> int:
        """Steps between two frames at frame_rate frames a second, truncated. Raises ValueError
        for a frame rate of zero or less."""
    def log(self) -> None:
        """Prints scales and grid."""
    def reset(self) -> None:
        """Back to the start of fluid and bodies. The density stays as it was last saved. Raises
        RuntimeError before commitInit."""
    def saveFluidData(self, fluid_name: str) -> None:
        """Writes the fluid into the fluid folder, under this stem."""
    def saveObjectsData(self, object_name: str) -> None:
        """Writes meshes and markers of all bodies into the objects folder, under this stem."""
    def saveScene(self, frame: int, save_flags: SupportsIndex) -> None:
        """Writes frame number `frame` as VTK files; save_flags joins members of SAVE_FLAG. Missing
        folders are created. Raises RuntimeError before commitInit."""
    def step(self, couple_mode: COUPLE_MODE) -> None:
        """
        One time step of get_tp() seconds. Raises RuntimeError before commitInit, and where a
        body or the force on it diverges: build the scene anew then.
        """
    @property
    def fluidFolderName(self) -> str:
        """Folder of the fluid files under the root."""
    @fluidFolderName.setter
    def fluidFolderName(self, value: str) -> None: ...
    @property
    def mainDataFolderPath(self) -> str:
        """Root of the output tree, with a slash at its end."""
    @mainDataFolderPath.setter
    def mainDataFolderPath(self, value: str) -> None: ...
    @property
    def objectsFolderName(self) -> str:
        """Folder of the object and marker files under the root."""
    @objectsFolderName.setter
    def objectsFolderName(self, value: str) -> None: ...

class trajectoryPoint3d(_Bound):
    """One control point of a trajectory."""
    def __init__(self) -> None:
        """A point at the origin."""
    @property
    def data(self) -> NDArray[np.float64]:
        """Position (3) [m]. Reading gives a copy: assign a whole vector."""
    @data.setter
    def data(self, value: ArrayLike) -> None: ...

class trajectoryPosePoint3d(trajectoryPoint3d):
    """A place on a path and the direction of the path there; data is the place."""
    def __init__(self) -> None:
        """A pose point, all zero."""
    def getOrientation(self) -> NDArray[np.float64]:
        """Unit tangent (3) of the path; zero where the curve stands still."""
    def getPosition(self) -> NDArray[np.float64]:
        """Place on the path (3) [m]."""

class trajectory3d(_Bound):
    """A path in space along control points. Order of use: setPoints, fit, then draw or write it."""
    def __init__(self) -> None:
        """A trajectory without points."""
    def fit(self) -> None:
        """Lays a uniform cubic B-spline along the control points. It takes four points or more to
        evaluate the curve then."""
    def setPoints(self, points: Sequence[trajectoryPoint3d]) -> None:
        """Sets the control points: the data of a list of trajectoryPoint3d. The curve changes only
        at the next fit."""

class poseTrajectory(trajectory3d):
    """A path to follow. Order of use: setPoints, fit, sample, then the queries.
    getReferencePose gives the progress of a body at position (3) [m], from 0 to 1: without an
    index that of the nearest of all samples (nan if there are none); with the index posIdx of
    the call before, that of the sample reached within look_forward samples, plus the distance
    [m] from it to the body's projection. It raises IndexError without samples and for an index
    past the last one."""
    def __init__(self) -> None:
        """A trajectory without points and samples."""
    def getCurvature(self, t: float) -> NDArray[np.float64]:
        """The second derivative (3) [m] at parameter t of the curve's first segment, t being
        clamped to 0 .. 1. Raises as getPose."""
    def getLastIdx(self) -> int:
        """Index of the sample that the latest getTargetPose or getReferencePose with an index
        found; pass it to the next one."""
    def getPose(self, t: float) -> trajectoryPosePoint3d:
        """The pose at progress t, 0 the start and 1 the end of the curve; t is clamped. Raises
        RuntimeError before fit, ValueError for a curve of fewer than four points."""
    @overload
    def getReferencePose(self, position: ArrayLike) -> float:
        """Get Pose t using spline"""
    @overload
    def getReferencePose(self, position: ArrayLike, posIdx: int, look_forward: int = 10) -> float:
        """Get Pose t using samples within lookforward range"""
    def getSampleNum(self) -> int:
        """Number of samples."""
    def getTargetPose(
        self, position: ArrayLike, preSampleIdx: int, look_forward: int
    ) -> trajectoryPosePoint3d:
        """The sample after the one that a body at position (3) [m] has reached, searched from
        preSampleIdx over look_forward samples; never back. getLastIdx gives the index reached.
        Raises IndexError without samples and at the last one."""
    def sample(self, sample_num: int) -> None:
        """Takes sample_num poses at even steps of the curve's parameter, the end left out. Raises
        RuntimeError before fit, ValueError for a negative number or a curve of fewer than four
        points."""

class debugLine(_Bound):
    """A polyline for VTKWriter."""
    def __init__(self) -> None:
        """A line without vertices."""
    @property
    def vertices(self) -> list[NDArray[np.float64]]:
        """List of positions (3) [m]. Reading gives a copy: assign a whole list."""
    @vertices.setter
    def vertices(self, value: Sequence[ArrayLike]) -> None: ...

class VTKWriter(_Handed):
    """Writes legacy VTK files as text. Missing folders are created. A file that cannot be written
    gives False, and one warning per folder on standard error."""
    @staticmethod
    def writeLines(lines: Sequence[debugLine], file_path: str) -> bool:
        """Writes a list of debugLine. Gives whether the file was written."""
    @staticmethod
    def writeTrajectory(trajectory: trajectory3d, file_path: str) -> bool:
        """Writes the fitted curve with its first derivatives, 200 samples a control point.
        Gives whether the file was written. Raises RuntimeError before fit, ValueError for
        fewer than four control points; no file is touched then."""

class PDControl1D(_Bound):
    """Proportional-derivative controller: Kp (desired - value) - Kd rate, the rate being the
    difference to the value of the call before over the time step. Units are the script's."""
    def __init__(self, Kp: float, Kd: float, timestep: float) -> None:
        """As make_controller."""
    def feedback(self, value: float, timestep: float) -> float:
        """The output for a value measured timestep seconds after the one before. The first call
        takes its difference from 0."""
    def reset(self) -> None:
        """Forgets the measurements and the desired value; the gains stay."""
    def set_dvalue(self, desired_dvalue: float = 0.0) -> None:
        """Sets the desired value too: the desired rate is always 0."""
    def set_value(self, desired_value: float) -> None:
        """Sets the desired value."""

class tinyRenderer(_Bound):
    """Draws a scene and saves frames as images. It uses a window if there is a display; without
    one it draws the same images. It shows what lies 0.1 to 100 m ahead of the camera."""
    def __init__(self, width: int, height: int) -> None:
        """As make_renderer."""
    def addCube(self) -> None:
        """Adds a cube with edges of 1 m along the axes, centred at the origin."""
    def addDynamics(self, dynamics: SkeletonDynamics) -> None:
        """Adds the skin of a body. Raises ValueError for None."""
    def addTrajectory(self, trajectory: trajectory3d) -> None:
        """Adds the control points of a trajectory as a green line without the last point. The points
        are those at the next frame. Raises ValueError for None."""
    def render(self) -> None:
        """Draws one frame. The first call prints whether it uses a window. If there is no OpenGL, it
        prints that, and no call draws anything."""
    def savePPM(self, file_name: str) -> None:
        """Writes the latest frame as a binary PPM. Its rows run from the bottom of the image to the top. A
        file that cannot be written gives one warning per folder on standard error. Raises RuntimeError
        with the reason if no frame has been drawn."""
    def setCamera(self, position: ArrayLike, target: ArrayLike, worldup: ArrayLike) -> None:
        """Looks from position to target (3 each) [m], with the direction worldup (3) upwards."""
    def setLight(
        self, position: ArrayLike, diffuse: ArrayLike = ..., specular: ArrayLike = ...
    ) -> None:
        """Sets the light's position (3) [m] and its colours (3 each): red, green and blue from 0 to 1.
        The first frame takes the colours, every frame the position."""

def make_controller(Kp: float, Kd: float, timestep: float, /) -> PDControl1D:
    """New controller from Kp, Kd and a time step [s]."""

def make_renderer(width: int, height: int, /) -> tinyRenderer:
    """Makes a renderer of images of this width and height [pixels]. Raises ValueError for a
    side that is not positive or above 16384."""

def make_simParams() -> simParam:
    """New parameters with default values."""

def make_simulator(param: simParam, gpuId: int, /) -> simulator3D:
    """New simulator from a simParam and a device id: builds the grid. Raises ValueError for a box
    or node spacing that cannot be, RuntimeError where the grid does not fit into memory."""

def make_skDynamics(
    Skeleton: SkeletonSystem,
    sampleNum: int,
    gpuId: int,
    translation: ArrayLike,
    rotation: ArrayLike,
    scaling: ArrayLike,
    /,
) -> SkeletonDynamics:
    """New body from a description, number of samples, device id, translation [m],
    rotation [degrees] and scaling (without effect)."""

def make_skWorld(gravity: ArrayLike, /) -> DartWorld:
    """New world with this gravity [m/s^2]."""

def make_skeletonSystem(model_file: str, gpuId: int, /) -> SkeletonSystem:
    """New description from a model file and a device id."""

def make_tpPoint() -> trajectoryPosePoint3d:
    """New pose point, all zero."""

def make_trajectory() -> poseTrajectory:
    """New poseTrajectory without points."""

def skeletonFromJson(json_name: str, gpuId: int) -> SkeletonSystem:
    """Reads a skeleton description file (JSON) and the mesh that it names; a relative path of
    the mesh counts from the working directory. Raises RuntimeError with the JSON
    library's text for a file that cannot be read or lacks values."""
