# shellcheck shell=bash
# Sourced by ./run: configure and build with the presets of CMakePresets.json, in build/PRESET.

# jobs: prints how many compilers run at once. A source that includes DART takes 1 to 2 GB.
jobs() {
    local cores memory limit
    cores=$(nproc)
    memory=$(awk '/^MemAvailable/ { print int($2 / 2000000) }' /proc/meminfo)
    limit=$(cat /sys/fs/cgroup/memory.max 2>/dev/null || true) # a container's, or "max"
    [[ ! $limit =~ ^[0-9]+$ ]] || ((limit / 2000000000 >= memory)) || memory=$((limit / 2000000000))
    ((memory > 0)) || memory=1
    echo "${DRELT_JOBS:-$((cores < memory ? cores : memory))}"
}

# find_nvcc: prints the CUDA compiler; fails if there is none or with DRELT_CUDA=OFF.
find_nvcc() {
    [[ ${DRELT_CUDA:-ON} != OFF ]] || return 1
    command -v nvcc && return
    local folder
    for folder in "${CUDA_HOME:-}" "${CUDA_PATH:-}" /usr/local/cuda /opt/cuda; do
        if [[ -n $folder && -x $folder/bin/nvcc ]]; then
            echo "$folder/bin/nvcc"
            return
        fi
    done
    return 1
}

RELEASE_ARCHITECTURES="75-real;80-real;90"

# machine_arguments PRESET: prints the CMake arguments, one per line, that adapt dev and release builds to
# the machine. dev compiles for one GPU architecture (the machine's own if it has a GPU), release for
# those in use, with portable code for newer ones.
machine_arguments() {
    local nvcc architectures=75
    [[ $1 == dev || $1 == release ]] || return 0
    echo "-DDRELT_NATIVE=${DRELT_NATIVE:-ON}"
    if ! nvcc=$(find_nvcc); then
        echo -DDRELT_CUDA=OFF
        return
    fi
    [[ ! -e /dev/nvidia0 ]] || architectures=native
    [[ $1 != release ]] || architectures=$RELEASE_ARCHITECTURES
    printf '%s\n' -DDRELT_CUDA=ON "-DCMAKE_CUDA_COMPILER=$nvcc" \
        "-DCMAKE_CUDA_ARCHITECTURES=${DRELT_CUDA_ARCHITECTURES:-$architectures}"
}

# configure PRESET: runs CMake if folder, presets, interpreter or arguments have changed. ninja notices
# changes of CMakeLists.txt by itself.
configure() {
    local preset=$1 folder=build/$1 state
    local -a arguments=("-DPYTHON_EXECUTABLE=$VENV_PYTHON" "-DPython_EXECUTABLE=$VENV_PYTHON")
    local -a machine
    mapfile -t machine < <(machine_arguments "$preset")
    arguments+=("${machine[@]}")
    state="$PWD $(cksum <CMakePresets.json) $(cat .venv/requirements.stamp) ${arguments[*]}"
    if [[ ! -f $folder/build.ninja || $(cat "$folder/configured.stamp" 2>/dev/null) != "$state" ]]; then
        phase "configure-$preset" "configuring $preset" \
            cmake --fresh --preset "$preset" -B "$folder" "${arguments[@]}"
        echo "$state" >"$folder/configured.stamp"
    fi
}

# build PRESET [TARGET...]
build() {
    local preset=$1
    shift
    configure "$preset"
    phase "build-$preset" "building $preset" \
        cmake --build "build/$preset" --parallel "$(jobs)" ${1:+--target "$@"}
}
