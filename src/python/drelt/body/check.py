"""All problems of a description at once, with file, path of the key, value and what is allowed."""

import json
import math
from collections import Counter
from dataclasses import dataclass
from importlib import import_module
from pathlib import Path

from .. import SkeletonSystem, make_skDynamics, skeletonFromJson
from .errors import BodyError

HOST = -1
SCHEMA = Path(__file__).with_name("body.schema.json")
LARGEST = 1e30
SINGLE = ("revolute", "continuous", "prismatic")


@dataclass
class Problem:
    """path: of the key, as joints.tail.axis; found: the value as JSON; allowed: what may stand there."""

    file: str
    path: str
    found: str
    allowed: str

    def __str__(self):
        place = f" at {self.path}" if self.path else ""
        return f"{self.file}{place}: got {self.found}; {self.allowed}"


def schema():
    """The JSON Schema (draft 7) of a description, as a dict."""
    return json.loads(SCHEMA.read_text(encoding="utf-8"))


def check(description):
    """A list of Problem; empty for a description that a body can be built from.

    Compares the file with the schema, its names with the joints and links that follow from the mesh, and its
    numbers with what a body can have; at last it builds the body. Needs the package jsonschema; raises BodyError
    without it.
    """
    try:
        validator = import_module("jsonschema").Draft7Validator(schema())
    except ImportError as error:
        raise BodyError(
            "check needs the package jsonschema: pip install 'drelt[body]', or pip install jsonschema"
        ) from error
    file = str(description)
    try:
        content = json.loads(Path(description).read_text(encoding="utf-8"))
    except OSError as error:
        return [
            Problem(
                file, "", "no file that can be read", f"{error.strerror}: check name and folder"
            )
        ]
    except ValueError as error:
        return [Problem(file, "", "text that is no JSON", str(error))]
    problems = [from_schema(file, error) for error in validator.iter_errors(content)]
    if isinstance(content, dict):
        found = Checker(file, content)
        found.names()
        found.numbers()
        problems += found.problems
    if not problems:
        problems += built(file)
    return problems


def dotted(path):
    text = ""
    for key in path:
        text += f"[{key}]" if isinstance(key, int) else (f".{key}" if text else str(key))
    return text


def short(value):
    text = json.dumps(value)
    return text if len(text) <= 60 else text[:57] + "..."


def from_schema(file, error):
    """One of jsonschema's errors in our words."""
    rule, value = error.validator, error.validator_value
    path = list(error.absolute_path)
    if rule == "required":
        missing = next(
            key for key in value if key not in error.instance and repr(key) in error.message
        )
        about = (
            error.schema.get("properties", {})
            .get(missing, {})
            .get("description", "see docs/body.md")
        )
        hint = ""
        if missing == "radius " and "radius" in error.instance:
            hint = '. The key ends in a blank: write "radius "'
        return Problem(
            file, dotted([*path, missing]), "nothing", f"the key is needed: {about}{hint}"
        )
    if rule == "enum":
        return Problem(
            file, dotted(path), short(error.instance), "allowed are " + ", ".join(map(str, value))
        )
    if rule == "type":
        return Problem(
            file, dotted(path), short(error.instance), f"give a {value}" + about_of(error)
        )
    if rule in ("minItems", "maxItems"):
        return Problem(
            file, dotted(path), short(error.instance), "give three numbers" + about_of(error)
        )
    return Problem(file, dotted(path), short(error.instance), error.message + about_of(error))


def about_of(error):
    about = error.schema.get("description")
    return f": {about}" if about else ""


class Checker:
    """What the schema cannot say."""

    def __init__(self, file, content):
        self.file, self.content, self.problems = file, content, []

    def add(self, path, value, allowed):
        self.problems.append(Problem(self.file, dotted(path), short(value), allowed))

    def section(self, key):
        found = self.content.get(key)
        return found if isinstance(found, dict) else {}

    def names(self):
        system = self.system()
        joints, links = self.section("joints"), self.section("links")
        if system is not None:
            wanted = {
                "joints": [j["name"] for j in system.getJoints()],
                "links": [k["key"] for k in system.getLinks()],
            }
            if not wanted["joints"]:
                self.add(["model_file"], self.content["model_file"], "give a mesh with bones")
            for key, names in wanted.items():
                for name in names:
                    if name not in self.section(key):
                        self.add(
                            [key, name],
                            None,
                            f"the mesh has this name in its {key}; add a member for it",
                        )
                for name in self.section(key):
                    if name not in names:
                        self.add(
                            [key, name],
                            name,
                            f"the mesh has no such name; its {key} are {some(names)}",
                        )
        live = [link.get("name") for link in links.values() if isinstance(link, dict)]
        for name, count in Counter(str(n) for n in live).items():
            if count > 1:
                self.add(["links"], name, f"{count} links have this name; give each its own")
        for key in ("baseLinkName", "baseFrameName"):
            name = self.content.get(key)
            if isinstance(name, str) and name and name not in live:
                self.add([key], name, f"give the name of a link: {some(live)}")
        for name, joint in joints.items():
            mimic = joint.get("mimic") if isinstance(joint, dict) else None
            if (
                isinstance(mimic, dict)
                and isinstance(mimic.get("joint"), str)
                and mimic["joint"] not in joints
            ):
                self.add(
                    ["joints", name, "mimic", "joint"],
                    mimic["joint"],
                    f"give a joint: {some(joints)}",
                )

    def system(self):
        """The mesh with what follows from it; None if it cannot be loaded."""
        model = self.content.get("model_file")
        if not isinstance(model, str):
            return None
        if not Path(model).is_file():
            self.add(["model_file"], model, f"there is no such file, seen from {Path.cwd()}")
            return None
        try:
            return SkeletonSystem(model, HOST)
        except (RuntimeError, ValueError) as error:
            self.add(["model_file"], model, str(error))
            return None

    def numbers(self):
        for name, joint in self.section("joints").items():
            if isinstance(joint, dict):
                self.joint(["joints", name], joint)
        for name, link in self.section("links").items():
            if not isinstance(link, dict):
                continue
            at = ["links", name]
            for key in ("size", "radius "):
                values = link.get(key)
                values = values if isinstance(values, list) else [values]
                if any(is_number(v) and not 1 / LARGEST <= v <= LARGEST for v in values):
                    self.add([*at, key], link[key], "give positive lengths, from 1e-30 to 1e30 m")
            if is_number(link.get("mass")) and not abs(link["mass"]) <= LARGEST:
                self.add([*at, "mass"], link["mass"], "give a mass, none beyond 1e30 kg")

    def joint(self, at, joint):
        single = joint.get("type", "revolute") in SINGLE
        axis = joint.get("axis")
        if single and isinstance(axis, list) and len(axis) >= 3 and not any(axis[:3]):
            self.add([*at, "axis"], axis, "give a direction, not only zeros")
        for path in (("springStiffness",), ("dynamics", "damping"), ("dynamics", "friction"),
                     ("limit", "effort"), ("limit", "velocity")):  # fmt: skip
            value = joint
            for key in path:
                value = value.get(key) if isinstance(value, dict) else None
            if single and is_number(value) and not value >= 0:
                self.add([*at, *path], value, "give zero or more")
        limit = joint.get("limit")
        if single and joint.get("useLimits") is True and isinstance(limit, dict):
            low, high = limit.get("lower"), limit.get("upper")
            if is_number(low) and is_number(high) and not low <= high:
                self.add([*at, "limit"], [low, high], "give lower <= upper")


def is_number(value):
    return isinstance(value, (int, float)) and not isinstance(value, bool) and not math.isnan(value)


def some(names, most=12):
    names = [str(name) for name in names]
    return ", ".join(names[:most]) + (f" and {len(names) - most} more" if len(names) > most else "")


def built(file):
    """Builds the body; what its constructors refuse is a problem too."""
    try:
        zero = [0.0, 0.0, 0.0]
        make_skDynamics(skeletonFromJson(file, HOST), 100, HOST, zero, zero, [1.0, 1.0, 1.0])
    except (RuntimeError, ValueError) as error:
        return [Problem(file, "", "a body that cannot be built", str(error))]
    return []
