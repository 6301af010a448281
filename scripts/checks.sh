# shellcheck shell=bash
# Sourced by ./run: tests, formatting, linters, sanitizers.

# run_tests [PYTEST ARGUMENT...]: runs both suites, and fails if either does.
run_tests() {
    need_packages build test
    need_venv
    need_optional_packages
    say "CUDA: $(find_nvcc || echo "no nvcc found, host only")"
    build dev

    local cxx=build/logs/ctest.xml python=build/logs/pytest.xml status=0
    rm -f "$cxx" "$python"
    say "C++ tests"
    run_ctest dev --output-junit "$PWD/$cxx" || status=1
    say "Python tests"
    # the tests start many programs, and their threads must leave the cores to one another
    PYTHONPATH="$PWD/build/dev/python" MPLBACKEND=Agg OMP_WAIT_POLICY="${OMP_WAIT_POLICY:-passive}" \
        "$VENV_PYTHON" -m pytest --junitxml="$python" tests/python "$@" </dev/null || status=1

    say "C++: $(totals "$cxx")"
    say "Python: $(totals "$python")"
    echo "tests: $(totals "$cxx" "$python")"
    ((status == 0)) || fail "tests failed"
}

# run_ctest PRESET [CTEST ARGUMENT...]: many tests run at once, so their threads must not spin while
# they wait.
run_ctest() {
    local preset=$1
    shift
    OMP_WAIT_POLICY=passive ctest --test-dir "build/$preset" --parallel "$(nproc)" \
        --output-on-failure --no-tests=error "$@" </dev/null
}

# totals JUNIT_FILE...: prints "N passed, N failed", and the skipped if there are any.
totals() {
    "$VENV_PYTHON" scripts/junit_totals.py "$@"
}

# cxx_sources: prints our C++ and CUDA sources, each ended by a zero byte.
cxx_sources() {
    local -a folders=()
    local folder
    for folder in src tests bench examples tools; do
        [[ ! -d $folder ]] || folders+=("$folder")
    done
    find "${folders[@]}" -type f -regex '.*\.\(h\|cpp\|cu\|cuh\)' -print0
}

format_sources() {
    need_packages build format
    need_venv
    say "clang-format"
    cxx_sources | xargs -0 -r clang-format -i
    say "ruff"
    "$VENV_PYTHON" -m ruff check --fix-only --quiet .
    "$VENV_PYTHON" -m ruff format .
}

lint_sources() {
    need_packages build format tidy
    need_venv
    configure tidy
    # no build follows that would bring the compile database up to date
    phase "configure-tidy" "configuring tidy" cmake build/tidy
    phase "build-tidy" "generating headers" cmake --build build/tidy --target drelt_gl_loader
    local script status=0
    for script in run .ci/run scripts/*.sh; do bash -n "$script" || status=1; done
    (phase clang-format "clang-format" check_format) || status=1
    (phase ruff "ruff" check_python) || status=1
    (phase tidy "clang-tidy" check_tidy) || status=1
    ((status == 0)) || fail "lint: findings above"
    say "lint: no findings"
}

check_format() {
    cxx_sources | xargs -0 -r clang-format --dry-run -Werror
}

check_python() {
    "$VENV_PYTHON" -m ruff check . && "$VENV_PYTHON" -m ruff format --check .
}

# check_tidy: prints the findings in src/ alone, without the commands and counts.
check_tidy() {
    run-clang-tidy -quiet -p build/tidy -j "$(jobs)" "^$PWD/src/" 2>&1 |
        sed -E '/^clang-tidy(-[0-9]+)? |^[0-9]+ warnings?( and [0-9]+ errors?)? generated|^$/d'
}

run_sanitizers() {
    need_packages build sanitize
    need_venv
    # libarcher tells the thread sanitizer how OpenMP's threads wait for each other; libraries that are
    # built without the sanitizer, OpenMP's own among them, are not checked
    local archer status=0
    archer=$(find /usr/lib/llvm-*/lib -name libarcher.so 2>/dev/null | sort -V | tail -n 1)
    [[ -n $archer ]] || fail "libarcher.so not found: it comes with libomp-dev"

    build asan
    say "C++ tests under address and undefined-behaviour sanitizers"
    ASAN_OPTIONS=detect_stack_use_after_return=1 \
        UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1 run_ctest asan --label-exclude guarded || status=1
    build tsan
    say "parallel operators under the thread sanitizer"
    OMP_TOOL_LIBRARIES=$archer TSAN_OPTIONS=ignore_noninstrumented_modules=1:halt_on_error=1 \
        run_ctest tsan --label-regex operators || status=1
    ((status == 0)) || fail "sanitizers: findings above"
    say "sanitizers: no findings"
}
