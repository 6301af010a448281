"""Runs the quickest cases of the validation at their coarse size, and its report."""

import importlib
import sys

import pytest
from conftest import ROOT

sys.path.insert(0, str(ROOT))

from validation.cases import NAMES
from validation.report import Results, write_report


@pytest.mark.parametrize("name", ["fall", "momentum", "ring"])
def test_a_coarse_case_passes(name):
    results = importlib.import_module(f"validation.cases.{name}").run(coarse=True)
    assert any(result.passed for result in results)
    assert [result for result in results if result.passed is False] == []


def test_every_module_is_a_named_case():
    found = {file.stem for file in (ROOT / "validation" / "cases").glob("*.py")} - {"__init__"}
    assert found == set(NAMES)


def test_a_report_tells_what_failed(tmp_path):
    results = Results("trial")
    results.near("close", 1.01, 1.0, "theory", relative=0.02)
    results.near("far", 1.03, 1.0, "theory", relative=0.02)
    results.near("no number", float("nan"), 1.0, "theory", absolute=0.02)
    results.outcome("words", "ran", "diverges", "theory")
    results.told("only told", 2.0)
    results.plot("A line", "x", "y", {"rise": ([0, 1], [0, 1])}, {"level": 1.0})
    assert [result.passed for result in results] == [True, False, False, False, None]
    text = write_report([results], tmp_path).read_text()
    assert "1 of 4 checks passed" in text
    assert "| trial | far | 1.03 | 1 | 2% | theory | **NO** |" in text
    assert (tmp_path / "trial_0.png").stat().st_size > 5000
