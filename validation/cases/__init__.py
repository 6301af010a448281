"""The cases by name, in the order of a report."""

NAMES = ("kick", "fall")
