# shellcheck shell=bash
# scripts/lib.sh - what the scripts share; they source it after going to the top directory.

export LC_ALL=C
jobs=$(nproc 2>/dev/null || echo 2)

say() { printf '== %s\n' "$*"; }

# build PRESET [TARGET...]: configures and builds; what the tools say is shown only if they fail.
build() {
    local preset=$1 log=build/$1-build.log start=$SECONDS
    shift
    mkdir -p build
    say "building $preset (all that is said goes to $log) ..."
    if ! { cmake --preset "$preset" && cmake --build --preset "$preset" -j "$jobs" ${1:+--target "$@"}; } \
        >"$log" 2>&1; then
        tail -n 80 "$log"
        say "FAILED: building $preset"
        return 1
    fi
    say "built $preset in $((SECONDS - start)) s"
}

# stl_count FILE: the triangles that a binary STL file announces.
stl_count() { od -An -tu4 --endian=little -j80 -N4 "$1" | tr -d ' '; }
