"""Runs with known answers, through the module as a script uses it: `./run validate [CASE...]`.

Each module in `cases` has a function `run(coarse)` that returns its Results. coarse asks for a small
grid and a short time: enough to find a fault, not to compare with measurements.
"""
