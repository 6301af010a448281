"""pybind11 example plugin"""  # sic: prescribed text

import os as _os
from importlib import import_module as _import_module


def _load_with_short_spin():
    """Loads the extension and with it the OpenMP runtime, which reads its settings once.

    By default its threads spin for long while they wait. On busy cores they then keep the thread that
    they wait for from running. So they spin for a short time only, unless the environment says how to
    wait. Processes that the script starts do not inherit the setting.
    """
    settings = ("OMP_WAIT_POLICY", "GOMP_SPINCOUNT", "KMP_BLOCKTIME")
    chosen = any(name in _os.environ for name in settings)
    if not chosen:
        _os.environ["GOMP_SPINCOUNT"] = "2000"
    try:
        _import_module(__name__ + ".drelt")
    finally:
        if not chosen:
            del _os.environ["GOMP_SPINCOUNT"]


_load_with_short_spin()

from .drelt import *  # noqa: E402, F403

# The package shows the extension's names, not the extension. A reload does not bind the extension again.
globals().pop("drelt", None)
del _load_with_short_spin
