"""The options of an import: their defaults, and checks before anything is read."""

import math

import numpy as np

from .errors import BodyError
from .joints import parse

DIRECTIONS = {"x": (1, 0, 0), "y": (0, 1, 0), "z": (0, 0, 1)}

OPTIONS = {
    "name": None,
    "length": None,
    "up": "y",
    "forward": "x",
    "density": None,
    "density_ratio": None,
    "fluid_density": 1000.0,
    "mass": "excess",
    "coupling": "semi-implicit",
    "nodes": 48,
    "spacing": None,
    "speed": None,
    "viscosity": None,
    "samples": None,
    "joint": (),
    "drop": (),
    "skip": (),
    "thickness": None,
    "open_surface": "auto",
    "merge": False,
    "follow": "",
    "rigid": False,
    "nodes_as_bones": False,
    "picture": True,
}
POSITIVE = (
    "length", "density", "density_ratio", "fluid_density", "nodes", "spacing", "speed", "viscosity",
    "samples", "thickness",
)  # fmt: skip
WORDS = {
    "mass": ("excess", "total"),
    "coupling": ("explicit", "semi-implicit"),
    "open_surface": ("auto", "fill", "thicken"),
}
DENSITY_RATIO = 1.05  # of a body to the fluid, if neither it nor a density is given


def checked(given):
    """All options with their defaults, checked before anything is read."""
    unknown = sorted(set(given) - set(OPTIONS))
    if unknown:
        raise BodyError(f"there is no option '{unknown[0]}'; there are {', '.join(OPTIONS)}")
    options = {**OPTIONS, **given}
    for key in POSITIVE:
        value = options[key]
        if value is not None and not (isinstance(value, (int, float)) and 0 < value < math.inf):
            raise BodyError(f"{key.replace('_', '-')} is {value}; give a positive number")
    for key, words in WORDS.items():
        if options[key] not in words:
            raise BodyError(
                f"{key.replace('_', '-')} is '{options[key]}'; choose {' or '.join(words)}"
            )
    if options["density"] and options["density_ratio"]:
        raise BodyError("a density and a density ratio were given; give one of them")
    if options["rigid"] and options["nodes_as_bones"]:
        raise BodyError("rigid makes one link, nodes-as-bones several; choose one of them")
    options["samples"] = options["samples"] and int(options["samples"])
    for key in ("joint", "drop", "skip"):
        options[key] = [options[key]] if isinstance(options[key], str) else list(options[key])
    for choice in options["joint"]:
        parse(choice)
    axes(options["up"], options["forward"])
    return options


def axes(up, forward):
    """The rotation that takes the file's forward and up to x and y."""
    rows = []
    for option, word in (("forward", forward), ("up", up)):
        letter = word[-1:]
        if letter not in DIRECTIONS or word[:-1] not in ("", "-", "+"):
            raise BodyError(f"{option} is '{word}'; give x, y, z, -x, -y or -z")
        rows.append((-1 if word[:-1] == "-" else 1) * np.array(DIRECTIONS[letter], dtype=float))
    if rows[0] @ rows[1] != 0:
        raise BodyError(
            f"forward '{forward}' and up '{up}' lie on one axis; give two different ones"
        )
    return np.array([rows[0], rows[1], np.cross(rows[0], rows[1])])
