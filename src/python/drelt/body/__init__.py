"""From any mesh with bones to a body that can be simulated.

`python -m drelt.body import MESH OUT/` does it from the command line, import_mesh() from a script. show() prints and
draws an existing description, check() lists all its problems. docs/body.md describes the files.
"""

from .check import Problem, check, schema
from .errors import BodyError
from .importer import Body, import_mesh
from .picture import draw_body
from .show import show

__all__ = ["Body", "BodyError", "Problem", "check", "draw_body", "import_mesh", "schema", "show"]
