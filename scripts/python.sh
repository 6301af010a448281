# shellcheck shell=bash
# Sourced by ./run: the virtual environment. Build, tests and examples all use its interpreter, whichever
# one is first on the PATH.

VENV_PYTHON=$PWD/.venv/bin/python
export PYTHONNOUSERSITE=1
unset PYTHONHOME PYTHONPATH

# need_venv: makes .venv if it is missing or its interpreter is gone, and installs requirements.txt.
need_venv() {
    if ! python_serves "$VENV_PYTHON" pip; then
        local base
        base=$(find_python)
        phase venv "making .venv with $base" "$base" -m venv --clear .venv
    fi
    need_requirements requirements
}

# need_optional_packages: installs what optional parts of the module need, for their tests.
need_optional_packages() {
    need_requirements requirements-optional
}

# need_requirements NAME: installs NAME.txt if that has changed.
need_requirements() {
    local stamp=.venv/$1.stamp state
    state="$(cksum <"$1.txt") $(python_version)"
    if [[ $(cat "$stamp" 2>/dev/null) != "$state" ]]; then
        phase pip "installing Python packages" \
            "$VENV_PYTHON" -m pip install --disable-pip-version-check -r "$1.txt"
        echo "$state" >"$stamp"
    fi
}

python_version() {
    "$VENV_PYTHON" -c 'import sys; print(sys.version, sys.base_prefix)'
}

# python_serves PYTHON MODULE: whether pybind11 2.13 supports the version, and PYTHON has its headers and
# MODULE.
python_serves() {
    local answer
    answer=$("$1" - "$2" 2>/dev/null <<'PYTHON'
import importlib, os, sys, sysconfig
importlib.import_module(sys.argv[1])
header = os.path.join(sysconfig.get_paths()["include"], "Python.h")
if (3, 7) <= sys.version_info[:2] <= (3, 13) and os.path.exists(header):
    print("yes")
PYTHON
    ) && [[ $answer == yes ]]
}

# find_python: prints the interpreter to make .venv from: $PYTHON, or the first suitable one.
find_python() {
    local wish=${PYTHON:-} name
    # a version manager's shim may later start another interpreter: take the real path
    local name_itself='import sys; print(sys.executable)'
    if [[ -n $wish ]]; then
        python_serves "$wish" ensurepip ||
            fail "PYTHON=$wish cannot be used: give CPython 3.7 to 3.13 with its" \
                "headers (Python.h) and the modules venv and ensurepip"
        "$wish" -c "$name_itself"
        return
    fi
    local -a candidates
    mapfile -t candidates < <(type -aP python3 python3.{13,12,11,10,9,8,7})
    for name in "${candidates[@]}" /usr/bin/python3; do
        if python_serves "$name" ensurepip; then
            "$name" -c "$name_itself"
            return
        fi
    done
    fail "no suitable interpreter: ./run needs CPython 3.7 to 3.13 with its headers (Python.h) and" \
        "the modules venv and ensurepip; install python3-dev and python3-venv, or set PYTHON"
}
