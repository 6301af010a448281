"""Runs all cases, or the named ones, and writes a report: `./run validate [CASE...]`."""

import argparse
import importlib
import sys
import time

import drelt

from . import ROOT
from .cases import NAMES
from .report import table, write_report


def main():
    parser = argparse.ArgumentParser(prog="./run validate", description=__doc__)
    parser.add_argument(
        "cases", nargs="*", metavar="CASE", help=f"of {', '.join(NAMES)}; all by default"
    )
    parser.add_argument("--coarse", action="store_true", help="small grids and short times")
    parser.add_argument(
        "--out", default=str(ROOT / "data" / "validation"), help="folder of the report"
    )
    arguments = parser.parse_args()
    unknown = [name for name in arguments.cases if name not in NAMES]
    if unknown:
        parser.error(f"no case {', '.join(unknown)}; there are {', '.join(NAMES)}")
    drelt.setVerbosity(0)
    found = []
    for name in arguments.cases or NAMES:
        start = time.perf_counter()
        case = importlib.import_module(f".cases.{name}", __package__)
        found.append(case.run(arguments.coarse))
        print(table(found[-1]), flush=True)
        print(f"{name}: {time.perf_counter() - start:.0f} s", flush=True)
        file = write_report(found, arguments.out)  # after each case: a long run may be stopped
    failed = [result for results in found for result in results if result.passed is False]
    print(f"{len(failed)} checks failed; report in {file}")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
