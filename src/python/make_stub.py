"""make_stub.py FOLDER: writes the type stub of the package drelt in FOLDER, from the module itself.

pybind11-stubgen writes what the module's own signatures say. This adds what they cannot say: which
types arguments are converted from, what may be None, and which classes scripts cannot make.
"""

import re
import sys
import tempfile
from pathlib import Path
from types import WrapperDescriptorType

from pybind11_stubgen import main as write_stub

ARRAY = re.compile(r"numpy\.ndarray\b")
# parameters take whatever numpy can make an array of, any sequence, whatever converts to an integer, and
# paths in any form
TAKEN = (
    (ARRAY, "numpy.typing.ArrayLike"),
    (re.compile(r"\blist\["), "typing.Sequence["),
    (re.compile(r": int\b"), ": typing.SupportsIndex"),
    (re.compile(r"\bos\.PathLike\b"), "str | bytes | os.PathLike"),
)
# functions that give arrays of other numbers than float64
GIVEN_NUMBERS = {
    **dict.fromkeys(("getVelocity", "getDensity", "getPressure"), "float32"),
    **dict.fromkeys(
        ("getLayerTypes", "getSampleLinks", "getSkinFaces", "getSkinFaceLinks"), "int32"
    ),
}
JOINED_FLAGS = re.compile(r"def __(?:r?and|r?or|r?xor|invert)__\(")
NONE_RETURNED = ("getBaseLink", "getLink", "getJoint")
HEADER = """\
import numpy
import numpy.typing
import os
import typing
class _BoundClass(type): ...
"""
NO_CONSTRUCTOR = """\
    def __init__(self, none: typing.NoReturn, /, *args: typing.Any, **kwargs: typing.Any) -> None:
        \"\"\"
        Only the module makes these objects: the constructor raises TypeError.
        \"\"\"
"""


def substituted(text, rules):
    for pattern, by in rules:
        text = pattern.sub(by, text)
    return text


def signature(line):
    """Gives a line "def name(parameters) -> result:" the types that users need."""
    taken, arrow, given = line.rpartition(" -> ")
    name = taken.partition("(")[0].split()[-1]
    number = GIVEN_NUMBERS.get(name, "float64")
    given = ARRAY.sub(f"numpy.typing.NDArray[numpy.{number}]", given)
    if JOINED_FLAGS.search(taken):
        given = given.replace("typing.Any", "int")
    if any(f"def {name}(" in taken for name in NONE_RETURNED):
        given = given.replace(":", " | None:")
    if taken.startswith("def make_") and not taken.endswith("()"):
        taken = taken[:-1] + ", /)"  # pybind11-stubgen drops a slash at the end
    return substituted(taken, TAKEN) + arrow + given


def with_refused_constructor(text, name):
    """The text with an __init__ before the first member of the class."""
    at = text.index(f"\nclass {name}(")
    first = re.compile(r"^    (?:def|@)", re.MULTILINE).search(text, at).start()
    return text[:first] + NO_CONSTRUCTOR + text[first:]


def stub(module, folder):
    # the module's signatures write m and n for any number of rows and columns
    options = ["--numpy-array-remove-parameters", "--ignore-unresolved-names=^[mn]$", "--exit-code"]
    write_stub([module.__name__, "-o", str(folder), *options])
    (written,) = Path(folder).rglob("*.pyi")
    lines = written.read_text(encoding="utf-8").splitlines(keepends=True)
    lines = [line for line in lines if not line.startswith(("import ", "__all__"))]
    lines = [re.sub(r"^class (\w+):", r"class \1(metaclass=_BoundClass):", line) for line in lines]
    lines = [signature(line) if line.lstrip().startswith("def ") else line for line in lines]
    text = "".join(lines).replace("annotations\n", "annotations\n" + HEADER, 1)
    for name, member in vars(module).items():
        if isinstance(member, type) and isinstance(member.__init__, WrapperDescriptorType):
            text = with_refused_constructor(text, name)
    return text


def main(package_folder):
    sys.path.insert(0, package_folder)
    import drelt

    with tempfile.TemporaryDirectory() as folder:
        text = stub(drelt, folder)
    Path(drelt.__file__).with_suffix(".pyi").write_text(text, encoding="utf-8")


if __name__ == "__main__":
    main(sys.argv[1])
