# shellcheck shell=bash
# Sourced by ./run: C++ tests and benchmark for a machine that has a GPU driver and nothing else.

# bundle: build/bundle/bin holds the executables, build/bundle/lib every library that they need beside
# the C library; the executables look there (run path $ORIGIN/../lib). They read assets/ and
# tests/vectors/ from the working directory: run them from the root of a copy of this repository.
bundle() {
    need_packages build
    need_venv
    export DRELT_NATIVE=OFF # the other machine may know fewer instructions
    export DRELT_CUDA_ARCHITECTURES=${DRELT_CUDA_ARCHITECTURES:-$RELEASE_ARCHITECTURES}
    build dev
    build release drelt_bench
    local out=build/bundle library
    rm -rf "$out"
    mkdir -p "$out/bin" "$out/lib"
    find build/dev/tests/unit -maxdepth 2 -type f -perm -u+x -name 'test_*' \
        -exec cp {} "$out/bin/" \;
    cp build/release/bench/drelt_bench "$out/bin/"
    while read -r library; do
        cp -L "$library" "$out/lib/"
    done < <(libraries_of "$out"/bin/*)
    strip --strip-unneeded "$out"/bin/* "$out"/lib/*
    say "$(du -sh "$out" | cut -f 1) in $out; on the other machine, from the root of a copy of this" \
        "repository: for t in $out/bin/test_*; do DRELT_TEST_DEVICE=0 \$t; done"
}

# libraries_of FILE...: paths of the shared libraries of executables, less those of the C library.
libraries_of() {
    ldd "$@" | awk '$2 == "=>" && $3 ~ /^\// { print $3 }' | sort -u |
        grep -vE '/(libc|libm|libdl|librt|libpthread|ld-linux[^/]*)\.so'
}
