"""python -m drelt.body import MESH OUT/ | show DESCRIPTION | check DESCRIPTION"""

import argparse
import sys

from .. import setVerbosity
from .check import check
from .errors import BodyError
from .importer import import_mesh
from .options import OPTIONS, WORDS
from .show import show


def make_parser():
    parser = argparse.ArgumentParser(prog="python -m drelt.body", description=__doc__)
    commands = parser.add_subparsers(dest="command", required=True)
    add_import(commands)
    shown = commands.add_parser(
        "show", help="print a description's links, joints and sizes, and draw it"
    )
    shown.add_argument("description", metavar="DESCRIPTION")
    shown.add_argument("--picture", metavar="PNG", help="file to draw the body to")
    shown.add_argument(
        "--positions", type=float, nargs="+", help="of all degrees of freedom: the pose to show"
    )
    checked = commands.add_parser("check", help="list all problems of a description")
    checked.add_argument("description", metavar="DESCRIPTION")
    return parser


def add_import(commands):
    parser = commands.add_parser(
        "import", help="make a clean mesh with a description from a mesh with bones"
    )
    parser.add_argument("mesh", metavar="MESH", help="any file that Assimp reads")
    parser.add_argument("out", metavar="OUT", help="new folder for the results")
    add = parser.add_argument
    add("--name", help="of the files (default: that of the mesh)")
    add("--length", type=float, help="longest side of the body's box [m] (default: as in the file)")
    add(
        "--up",
        default="y",
        help="the file's axis that points up: x, y, z, -x, -y, -z (%(default)s)",
    )
    add("--forward", default="x", help="the file's axis that points forward (%(default)s)")
    add("--density", type=float, help="of the body [kg/m^3]")
    add("--density-ratio", type=float, help="of the body to the fluid (default: 1.05)")
    add(
        "--fluid-density",
        type=float,
        default=OPTIONS["fluid_density"],
        help="[kg/m^3] (%(default)g)",
    )
    add("--mass", choices=WORDS["mass"], default="excess",
        help="excess over the fluid, for coupled steps, or total, for steps without fluid (%(default)s)")  # fmt: skip
    add(
        "--coupling",
        choices=WORDS["coupling"],
        default="semi-implicit",
        help="of the run (%(default)s)",
    )
    add(
        "--nodes",
        type=float,
        default=OPTIONS["nodes"],
        help="node spacings per length (%(default)g)",
    )
    add("--spacing", type=float, help="node spacing [m], instead of --nodes")
    add(
        "--speed", type=float, help="of the body or the flow [m/s] (default: one length per second)"
    )
    add(
        "--viscosity", type=float, help="kinematic [m^2/s] (default: for a Reynolds number of 1000)"
    )
    add("--samples", type=int, help="on the skin (default: 1.5 per squared node spacing)")
    add("--joint", action="append", default=[], metavar="PATTERN=WORDS",
        help="what joints do, as 'spine*=revolute,servo,z,limits=-30:30'; may be repeated")  # fmt: skip
    add("--drop", action="append", default=[], metavar="PATTERN",
        help="bones that are left out; their weights go to the bone above; may be repeated")  # fmt: skip
    add("--skip", action="append", default=[], metavar="PATTERN",
        help="meshes that are left out, such as floors; may be repeated")  # fmt: skip
    add("--thickness", type=float, help="of open sheets [m] (default: the node spacing)")
    add("--open-surface", choices=WORDS["open_surface"], default="auto",
        help="fill the holes of open surfaces, or thicken them to sheets (%(default)s)")  # fmt: skip
    add("--merge", action="store_true", help="one mesh with one material (default: one for each)")
    add(
        "--follow",
        default="",
        metavar="BONE",
        help="the grid follows the link of this bone; auto: the largest",
    )
    add("--rigid", action="store_true", help="one rigid link, also for a mesh without bones")
    add("--nodes-as-bones", action="store_true", help="every node with a mesh is a bone")
    add("--no-picture", dest="picture", action="store_false", help="draw no picture")


def run_import(arguments):
    options = {key: value for key, value in vars(arguments).items() if key in OPTIONS}
    body = import_mesh(arguments.mesh, arguments.out, **options)
    for note in body.notes:
        print(f"- {note}")
    for warning in body.warnings:
        print(f"heed: {warning}", file=sys.stderr)
    print(f"{len(body.links)} links, {len(body.dofs)} degrees of freedom; wrote {body.description}, "
          f"report.md and run.py beside it")  # fmt: skip
    return 0


def run_show(arguments):
    print(show(arguments.description, arguments.picture, arguments.positions), end="")
    return 0


def run_check(arguments):
    problems = check(arguments.description)
    for problem in problems:
        print(problem)
    print(f"{len(problems)} problems" if problems else "no problems")
    return 1 if problems else 0


def with_directions(words):
    """Joins --up and --forward with what follows: argparse would take -y for an option."""
    result = []
    for word in words:
        if result and result[-1] in ("--up", "--forward"):
            result[-1] += f"={word}"
        else:
            result.append(word)
    return result


def main(words=None):
    arguments = make_parser().parse_args(with_directions(sys.argv[1:] if words is None else words))
    setVerbosity(0)
    commands = {"import": run_import, "show": run_show, "check": run_check}
    try:
        return commands[arguments.command](arguments)
    except (BodyError, OSError) as error:
        print(f"drelt.body: {error}", file=sys.stderr)
        return 2


if __name__ == "__main__":
    sys.exit(main())
