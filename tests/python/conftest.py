"""Shared by the Python tests: the repository root as working folder, and the example scenes."""

import sys
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "examples"))


@pytest.fixture(autouse=True)
def _in_repository_root(monkeypatch):
    # descriptions name their meshes relative to the working directory
    monkeypatch.chdir(ROOT)
