"""The type stub agrees with the module, and all that is public is described, in the same words in both."""

import ast
import inspect
import os
import re
import subprocess
import sys
from pathlib import Path

import drelt
import pytest

STUB = Path(__file__).resolve().parents[2] / "src" / "python" / "drelt.pyi"

VECTOR = re.compile(r"numpy\.ndarray\[numpy\.float(?:32|64)\[[3m], 1\]\]")


def stub_types(text, vector, sequence):
    """The types of one of pybind11's signatures as the stub writes them."""
    return re.sub(r"\b[Ll]ist\[", sequence, VECTOR.sub(vector, text)).replace("drelt.", "")


def module_signature(line):
    """pybind11's "name(a: type = value) -> type" as (parameters, result)."""
    taken, _, result = line.rpartition(" -> ")
    parameters = []
    for part in re.split(r"(?:\(|, )(?=\w+: )", taken)[1:]:
        name, _, rest = re.sub(r"\)$", "", part).partition(": ")
        kind, default, _ = rest.partition(" = ")
        name = "" if name == "self" else re.sub(r"^arg\d+$", "positional", name)
        parameters.append(
            (name, "" if not name else stub_types(kind, "ArrayLike", "Sequence["), bool(default))
        )
    return parameters, stub_types(result, "NDArray[np.float64]", "list[")


def module_entries(name, member):
    """[(signature, text)] of a member, one an overload, without pybind11's additions."""
    text = (inspect.getdoc(member) or "").split("\n\nMembers:")[0]
    if isinstance(member, type):
        return [(None, " ".join(text.split()))]
    if isinstance(member, property):
        _, result = module_signature(member.fget.__doc__.strip())
        return [(([("", "", False)], result), " ".join(text.split()))]  # takes self alone
    pieces = re.split(rf"^(?:\d+\. )?({name}\(.*\) -> .*)$", text, flags=re.MULTILINE)[1:]
    return [
        (module_signature(line), " ".join(said.split()))
        for line, said in zip(pieces[::2], pieces[1::2])
    ]


def in_module():
    """{qualified name: entries} of the classes, their own members, and the functions."""
    found = {}
    for name, member in vars(drelt).items():
        if name.startswith("_"):
            continue
        found[name] = module_entries(name, member)
        if not inspect.isclass(member) or hasattr(member, "__members__"):
            continue  # an enumeration is described as a whole
        constructed = (member.__init__.__doc__ or "").startswith("__init__(self: drelt.")
        for inner in vars(member):
            if not inner.startswith("_") or (inner == "__init__" and constructed):
                found[f"{name}.{inner}"] = module_entries(inner, getattr(member, inner))
    return found


def stub_signature(node):
    """As module_signature. None and what converts to an integer are more than pybind11 can say."""

    def kind(annotation):
        text = "" if annotation is None else ast.unparse(annotation)
        return text.replace(" | None", "").replace("SupportsIndex", "int")

    arguments = node.args.posonlyargs + node.args.args
    first_default = len(arguments) - len(node.args.defaults)
    parameters = []
    for i, argument in enumerate(arguments):
        name = "positional" if argument in node.args.posonlyargs else argument.arg
        parameters.append(
            ("" if name == "self" else name, kind(argument.annotation), i >= first_default)
        )
    return parameters, kind(node.returns)


def in_stub():
    """The same of the stub. A setter has no entry."""
    found = {}

    def add(name, node):
        if any(getattr(d, "attr", "") == "setter" for d in node.decorator_list):
            return
        signature = None if isinstance(node, ast.ClassDef) else stub_signature(node)
        text = " ".join((ast.get_docstring(node) or "").split())
        found.setdefault(name, []).append((signature, text))

    for node in ast.parse(STUB.read_text(encoding="utf-8")).body:
        if isinstance(node, (ast.ClassDef, ast.FunctionDef)) and not node.name.startswith("_"):
            add(node.name, node)
            for inner in node.body:
                if isinstance(inner, ast.FunctionDef):
                    add(f"{node.name}.{inner.name}", inner)
    return found


def test_all_that_is_public_is_described():
    entries = in_module()
    assert {"simParam.get_tp", "VTKWriter.writeLines", "skeletonFromJson"} <= entries.keys()
    bare = [name for name, said in entries.items() if not said or not all(text for _, text in said)]
    assert bare == []


@pytest.mark.skipif(sys.version_info < (3, 9), reason="ast.unparse came with Python 3.9")
def test_the_stub_has_the_signatures_and_words_of_the_bindings():
    # stubtest cannot do this: the functions that pybind11 makes tell it no signature
    assert in_stub() == in_module()


def test_the_stub_has_the_names_of_the_module(tmp_path):
    pytest.importorskip("mypy")
    environment = dict(
        os.environ,
        PYTHONPATH=str(Path(drelt.__file__).parent),
        MYPYPATH=str(STUB.parent),
        MYPY_CACHE_DIR=str(tmp_path),
    )
    done = subprocess.run(
        [sys.executable, "-m", "mypy.stubtest", "drelt"],
        env=environment,
        cwd=tmp_path,
        capture_output=True,
        text=True,
        check=False,
    )
    assert done.returncode == 0, done.stdout + done.stderr
