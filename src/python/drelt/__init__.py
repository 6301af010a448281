"""pybind11 example plugin"""  # sic: prescribed text

import os as _os


def _load_with_short_spin():
    """Loads the extension and with it the OpenMP runtime, which reads its settings once.

    By default its threads spin for long while they wait. On busy cores they then keep the thread that
    they wait for from running. So they spin for a short time only, unless the environment says how to
    wait. Processes that the script starts do not inherit the setting.
    """
    choices = ("OMP_WAIT_POLICY", "GOMP_SPINCOUNT", "KMP_BLOCKTIME")
    if any(name in _os.environ for name in choices):
        from . import drelt

        return
    _os.environ["GOMP_SPINCOUNT"] = "10000"
    try:
        from . import drelt
    finally:
        _os.environ.pop("GOMP_SPINCOUNT", None)


_load_with_short_spin()

from .drelt import *  # noqa: E402, F403

# the package shows the extension's names, not the extension
del drelt, _load_with_short_spin  # noqa: F821
