"""A device failure prints one line on standard error and ends the process with status 1."""

import re
import subprocess
import sys

import pytest

OPERATIONS = [
    "drelt.skeletonFromJson('assets/sphere.json', 77)",
    "drelt.make_skeletonSystem('assets/sphere.glb', 77)",
]


@pytest.mark.parametrize("operation", OPERATIONS)
def test_an_impossible_device_ends_the_process(operation):
    script = f"import drelt\n{operation}\nprint('still here')"
    done = subprocess.run(
        [sys.executable, "-c", script], capture_output=True, text=True, check=False
    )
    assert done.returncode == 1, done.stderr
    line = r'CUDA error at \S+:\d+ code=101\(cudaErrorInvalidDevice\) "cudaSetDevice\(\w+\)" \n'
    assert re.fullmatch(line, done.stderr)
    assert "still here" not in done.stdout
