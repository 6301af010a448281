# shellcheck shell=bash
# Sourced by ./run: packs C++ tests and benchmark for a machine that has only a GPU driver.

# bundle: puts the executables into build/bundle/bin and all their libraries except the C library into
# build/bundle/lib, where the executables look for them (run path $ORIGIN/../lib). They read assets/ and
# tests/vectors/ from the working directory: run them from the root of a copy of this repository.
bundle() {
    need_packages build
    need_venv
    export DRELT_NATIVE=OFF # the other processor may lack instructions of this one
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

# libraries_of FILE...: prints the shared libraries of executables, without those of the C library.
libraries_of() {
    ldd "$@" | awk '$2 == "=>" && $3 ~ /^\// { print $3 }' | sort -u |
        grep -vE '/(libc|libm|libdl|librt|libpthread|ld-linux[^/]*)\.so'
}
