"""The cases by name, in the order of a report."""

NAMES = ("kick", "fall", "ring", "follow", "current", "density", "fin", "momentum", "fish", "eel")
