"""Runs the Python tests in the repository's root, and lets them import the examples' modules."""

import sys
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "examples"))


@pytest.fixture(autouse=True)
def _in_repository_root(monkeypatch):
    # paths of meshes in the descriptions count from the working directory
    monkeypatch.chdir(ROOT)
