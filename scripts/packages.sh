# shellcheck shell=bash
# Sourced by ./run: system packages, under their names in Debian 12.

packages_for() {
    case $1 in
    build)
        echo g++ cmake ninja-build libdart-dev libdart-external-ikfast-dev libassimp-dev \
            libeigen3-dev libhdf5-dev nlohmann-json3-dev libthrust-dev libnanoflann-dev libgtest-dev \
            libbenchmark-dev python3-dev python3-venv \
            libglfw3-dev python3-glad libegl1 libgl1-mesa-dri # renderer: build, then run
        ;;
    test) echo xvfb ;;
    format) echo clang-format ;;
    tidy) echo clang clang-tidy libomp-dev ;; # clang-tidy brings run-clang-tidy, libomp-dev omp.h
    sanitize) echo clang libomp-dev ;;        # libomp-dev brings libarcher
    esac
}

# need_packages GROUP...: installs missing packages; runs apt and sudo only if there are any.
need_packages() {
    [[ ${DRELT_PACKAGES:-} != skip ]] || return 0
    command -v dpkg-query >/dev/null ||
        fail "this system has no dpkg: install the equivalents of $(wanted_packages "$@")" \
            "and set DRELT_PACKAGES=skip"
    local missing
    missing=$(missing_packages "$@")
    [[ -n $missing ]] || return 0

    local -a root=()
    if [[ $(id -u) -ne 0 ]]; then
        root=(sudo)
        [[ -t 0 ]] || root=(sudo -n) # nobody can type a password
        { command -v sudo && "${root[@]}" true; } >/dev/null ||
            fail "missing packages: install them with" \
                "'apt-get install --no-install-recommends $missing' as root and run this again"
    fi
    phase packages "installing $missing" install_packages "$missing" "${root[@]}"
}

wanted_packages() {
    local group
    for group in "$@"; do packages_for "$group"; done | tr ' ' '\n' | sort -u | paste -sd ' '
}

missing_packages() {
    local name
    for name in $(wanted_packages "$@"); do
        [[ $(dpkg-query -W -f='${db:Status-Status}' "$name" 2>/dev/null) == installed ]] ||
            echo "$name"
    done | paste -sd ' '
}

# install_packages "NAME ..." [sudo...]: fetches package lists only if the present ones do not suffice.
install_packages() {
    local -a names
    read -ra names <<<"$1"
    shift
    local -a apt=("$@" env DEBIAN_FRONTEND=noninteractive apt-get -o DPkg::Lock::Timeout=300)
    "${apt[@]}" install -y --no-install-recommends "${names[@]}" && return
    "${apt[@]}" update && "${apt[@]}" install -y --no-install-recommends "${names[@]}"
}
