"""Prints "N passed, N failed", and the skipped if there are any, over JUnit files.

usage: junit_totals.py FILE...   A file that does not exist counts nothing.
"""

import os
import sys

from junitparser import JUnitXml, TestSuite


def cases(path):
    root = JUnitXml.fromfile(path)
    for suite in [root] if isinstance(root, TestSuite) else root:
        yield from suite


def main(paths):
    found = [case for path in paths if os.path.exists(path) for case in cases(path)]
    skipped = sum(case.is_skipped for case in found)
    failed = sum(not (case.is_passed or case.is_skipped) for case in found)
    text = f"{len(found) - failed - skipped} passed, {failed} failed"
    print(text + (f", {skipped} skipped" if skipped else ""))


if __name__ == "__main__":
    main(sys.argv[1:])
