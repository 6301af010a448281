"""What joints do: words by pattern, and axes from the plane in which a chain of bones bends.

A choice reads PATTERN=WORD,WORD,... as in "spine*=revolute,servo,z,limits=-30:30". Words: a joint type, an
actuator, and an axis: x, y, z (of the bone), X, Y, Z (of the body: forward, up, right), with a minus for the
opposite, or auto. With a value: axis=A:B:C, limits=LOW:HIGH [degrees, or m for a prismatic joint], spring, damping,
friction, effort, velocity, mimic=JOINT:MULTIPLIER:OFFSET.
"""

import fnmatch
import math
from dataclasses import dataclass, field
from typing import Optional

import numpy as np

from .errors import BodyError
from .rig import no_match

TYPES = ("revolute", "continuous", "prismatic", "fixed", "floating", "planar")
ACTUATORS = ("force", "passive", "servo", "mimic", "acceleration", "velocity", "locked")
SINGLE = ("revolute", "continuous", "prismatic")
NUMBERS = ("spring", "damping", "friction", "effort", "velocity")
STRAIGHT = math.sin(math.radians(5.0))  # chains that bend less have no plane
ROUNDING = 1e-9  # smaller components of an axis are none
AXES = {"x": (1, 0, 0), "y": (0, 1, 0), "z": (0, 0, 1)}


@dataclass
class JointChoice:
    """A joint's member of the description. axis: in the bone's frame; origin: how it was found."""

    type: str = "revolute"
    actuator: str = "servo"
    axis: tuple = (0.0, 1.0, 0.0)
    origin: str = ""
    limits: Optional[tuple] = None
    numbers: dict = field(default_factory=dict)
    mimic: Optional[tuple] = None

    def description(self):
        lower, upper = self.limits or (-math.pi, math.pi)
        # a servo without limits has no bound of its velocity, but needs one to act
        use = self.type in SINGLE and (
            self.limits is not None or self.actuator in ("servo", "velocity")
        )
        result = {
            "type": self.type,
            "actuator": self.actuator,
            "axis": [float(f"{x:.9g}") for x in self.axis],
            "springStiffness": self.numbers.get("spring", 0.0),
            "useLimits": use or "effort" in self.numbers or "velocity" in self.numbers,
            "useDynamcis": "damping" in self.numbers or "friction" in self.numbers,
            "dynamics": {
                "damping": self.numbers.get("damping", 0.0),
                "friction": self.numbers.get("friction", 0.0),
            },
            "limit": {
                "effort": self.numbers.get("effort", 1e4),
                "velocity": self.numbers.get("velocity", 1e3),
                "lower": lower,
                "upper": upper,
            },
        }
        if self.mimic:
            joint, multiplier, offset = self.mimic
            result["mimic"] = {"joint": joint, "multiplier": multiplier, "offset": offset}
        return result


def parse(choice):
    """Pattern and changes of a choice as the text of an option gives it."""
    pattern, equals, words = choice.partition("=")
    if not (pattern and equals and words):
        raise BodyError(
            f"--joint '{choice}': give PATTERN=WORD,WORD,... as in 'spine*=revolute,servo,z'"
        )
    changes = {}
    for word in words.split(","):
        key, value = parse_word(word.strip(), choice)
        changes[key] = value
    return pattern, changes


def parse_word(word, choice):
    name, equals, value = word.partition("=")
    try:
        if not equals:
            if word in TYPES:
                return "type", word
            if word in ACTUATORS:
                return "actuator", word
            if word == "auto" or word.lstrip("-").lower() in AXES:
                return "axis", word
        elif name in NUMBERS:
            number = float(value)
            if math.isfinite(number) and number >= 0:
                return name, number
        elif name == "axis":
            return "axis", direction([float(x) for x in value.split(":")])
        elif name == "limits":
            low, high = (float(x) for x in value.split(":"))
            if low <= high:
                return "limits", (low, high)
        elif name == "mimic":
            joint, *factors = value.split(":")
            numbers = [float(x) for x in factors]
            multiplier, offset = numbers + [1.0, 0.0][len(numbers) :]
            return "mimic", (joint, multiplier, offset)
    except (ValueError, BodyError):
        pass
    raise BodyError(
        f"--joint '{choice}': '{word}' is no word for a joint. Types are {', '.join(TYPES)}; actuators "
        f"{', '.join(ACTUATORS)}; axes x, y, z, X, Y, Z, auto or axis=A:B:C; others limits=LOW:HIGH, "
        "mimic=JOINT:MULTIPLIER:OFFSET, " + ", ".join(f"{n}=NUMBER" for n in NUMBERS)
    )


def direction(values):
    vector = np.array(values, dtype=float)
    length = np.linalg.norm(vector)
    if vector.shape != (3,) or not np.isfinite(length) or length == 0:
        raise BodyError("a direction needs three numbers that are not all zero")
    vector = vector / length
    return tuple(float(x) if abs(x) > ROUNDING else 0.0 for x in vector)


def choose(bones, used, extent, choices):
    """A JointChoice for each bone. used: whether a bone moves a part of the skin. extent: of the skin's box.

    The root floats. Other bones turn by servos; those that move no skin or have no length are fixed.
    """
    parsed = [parse(choice) for choice in choices]
    names = [bone.name for bone in bones]
    for pattern, _ in parsed:
        if not any(fnmatch.fnmatchcase(name, pattern) for name in names):
            raise BodyError(no_match("--joint", pattern, names))
    result = []
    for k, bone in enumerate(bones):
        if bone.parent < 0:
            found = JointChoice("floating", "passive")
        elif not used[k]:
            found = JointChoice("fixed", "passive", origin="moves no skin of its own")
        elif not length_of(bones, k):
            found = JointChoice("fixed", "passive", origin="has no length")
        else:
            found = JointChoice()
        axis = "auto"
        for pattern, changes in parsed:
            if fnmatch.fnmatchcase(bone.name, pattern):
                axis = changes.get("axis", axis)
                apply(found, changes)
        if found.type in ("fixed", "floating", "planar"):
            found.axis = (0.0, 1.0, 0.0)
        else:
            found.axis, found.origin = axis_of(bones, k, axis, extent)
        if found.limits and found.type != "prismatic":
            found.limits = tuple(math.radians(x) for x in found.limits)
        result.append(found)
    for choice, bone in zip(result, bones):
        if choice.mimic and choice.mimic[0] not in names:
            raise BodyError(no_match(f"--joint {bone.name}=mimic", choice.mimic[0], names))
        if choice.actuator == "mimic" and not choice.mimic:
            raise BodyError(f"the joint '{bone.name}' has the actuator mimic; say mimic=JOINT too")
    return result


def apply(found, changes):
    for key, value in changes.items():
        if key in NUMBERS:
            found.numbers[key] = value
        elif key != "axis":
            setattr(found, key, value)
    if (
        "type" in changes
        and "actuator" not in changes
        and changes["type"] in ("fixed", "floating", "planar")
    ):
        found.actuator = "passive"
    if "mimic" in changes and "actuator" not in changes:
        found.actuator = "mimic"


def tip_of(bones, k):
    """Where a bone ends: the mean of its children, as for the link."""
    bone = bones[k]
    if bone.children:
        return np.mean([bones[child].place for child in bone.children], axis=0)
    return bone.end


def length_of(bones, k):
    size = np.linalg.norm(np.ptp([bone.place for bone in bones], axis=0)) + np.linalg.norm(
        tip_of(bones, k) - bones[k].place
    )
    length = float(np.linalg.norm(tip_of(bones, k) - bones[k].place))
    return length if length > 1e-6 * size else 0.0


def axis_of(bones, k, wanted, extent):
    """The axis in the bone's frame, and how it was found."""
    turn = bones[k].turn
    if wanted == "auto":
        world, origin = guess(bones, k, extent)
        return direction(turn.T @ world), origin
    if isinstance(wanted, tuple):
        return wanted, "given, of the bone"
    letter, sign = wanted.lstrip("-"), -1.0 if wanted.startswith("-") else 1.0
    vector = sign * np.array(AXES[letter.lower()], dtype=float)
    if letter.islower():
        return direction(vector), "given, of the bone"
    return direction(turn.T @ vector), "given, of the body"


def guess(bones, k, extent):
    """The normal of the plane in which the bones bend; across straight ones, the body's wider side."""
    here = bones[k].place
    ahead = tip_of(bones, k) - here
    behind = here - bones[bones[k].parent].place
    normal = np.cross(behind, ahead)
    scale = np.linalg.norm(behind) * np.linalg.norm(ahead)
    if scale > 0 and np.linalg.norm(normal) > STRAIGHT * scale:
        return signed(normal), "normal to the bend of the bones"
    points = chain_through(bones, k)
    spread, axes = np.linalg.svd(points - points.mean(axis=0))[1:]
    if len(points) > 2 and spread[1] > STRAIGHT * spread[0]:
        return signed(axes[2]), "normal to the plane of the chain"
    along = ahead / (np.linalg.norm(ahead) or 1.0)
    # fish are tall and bend sideways, sheets are flat and bend across; in doubt upwards
    order = sorted((1, 2, 0), key=lambda axis: -round(float(extent[axis] / max(extent)), 2))
    axis = np.eye(3)[next(axis for axis in order if abs(along[axis]) < 0.8)]
    return axis - (along @ axis) * along, "straight chain: along the body's wider side"


def signed(normal):
    largest = np.argmax(np.abs(normal))
    return normal * np.sign(normal[largest])


def chain_through(bones, k):
    """Places from the root to the bone, and on along the longest way to a leaf."""
    points, at = [], k
    while at >= 0:
        points.insert(0, bones[at].place)
        at = bones[at].parent
    while bones[k].children:
        k = max(bones[k].children, key=lambda child: length_of(bones, child))
        points.append(bones[k].place)
    points.append(tip_of(bones, k))
    return np.array(points)
