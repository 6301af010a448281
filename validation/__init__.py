"""Runs with known answers, through the module as a script uses it: `./run validate [CASE...]`.

Each module in `cases` has a function `run(coarse)` that returns its Results. coarse asks for a small
grid and a short time: enough to find a fault, not to compare with measurements.
"""

import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
sys.path += [str(ROOT / "tools"), str(ROOT / "examples")]  # the generator of meshes, the gaits
