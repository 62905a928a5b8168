#!/usr/bin/env bash
# Times whole runs of the released program on generated models, by GNU time, and prints a table for
# docs/performance.md: each row is the median of several runs.
#
#     bench/run.sh [-n RUNS] [-m "MODES"] [-s "SHAPES"] [-p PROGRAM] [TRIANGLES...]
#
# MODES are words of 1 to 4 and thin; SHAPES those of make_model, each with ":shuffled" or without;
# PROGRAM is another build to be timed, such as an older one, to be compared with. Without
# arguments: 3 runs, modes 1 to 4, sphere, plate and bracket in file order and shuffled, with
# 100000 and 1000000 triangles.
set -euo pipefail
here=$PWD
cd "$(dirname "$0")/.."
. scripts/lib.sh

runs=3
modes="1 2 3 4"
shapes="sphere sphere:shuffled plate plate:shuffled bracket bracket:shuffled"
program=
while getopts n:m:s:p: option; do
    case $option in
    n) runs=$OPTARG ;;
    m) modes=$OPTARG ;;
    s) shapes=$OPTARG ;;
    p) program=$(cd "$here" && realpath "$OPTARG") ;;
    *) exit 2 ;;
    esac
done
shift $((OPTIND - 1))
sizes=("$@")
[ ${#sizes[@]} -gt 0 ] || sizes=(100000 1000000)

# Lengths follow the models, whose edges get shorter as their triangles get more.
options_of() {
    case $1 in
    1) echo "-q 1 -r 0.05 -c 0.9" ;;
    2) echo "-q 2 -r 0.05 -c 0.9 -j 0.5" ;;
    3) echo "-q 3 -r 0.05 -c 0.9 -i 0.5" ;;
    4) echo "-q 4 -r 0.05 -c 0.9 -a 30" ;;
    thin) echo "-S -h 0.3 -q 1 -r 0.05 -c 0.9" ;;
    *) echo "bench/run.sh: no mode $1" >&2 && return 1 ;;
    esac
}

# model SHAPE[:shuffled] TRIANGLES: makes the model unless it is there, and sets `file`.
model() {
    local shape=${1%%:*} order=
    [ "$shape" = "$1" ] || order=${1#*:}
    file=$out/$shape-$2${order:+-$order}.stl
    [ -s "$file" ] ||
        build/release/bin/make_model "$shape" "$2" 1 ${order:+"$order"} "$file" >/dev/null
}

median() { sort -n | sed -n "$(((runs + 1) / 2))p"; }

# measure MODEL MODE: one row.
measure() {
    local name=$1 mode=$2 before after wall cpu kilobytes options
    read -ra options <<<"$(options_of "$mode")"
    : >"$out/times"
    for ((i = 0; i < runs; ++i)); do
        /usr/bin/time -a -o "$out/times" -f "%e %U %S %M" \
            "$program" -f "$file" -o "$out/result.stl" "${options[@]}" 2>"$out/log"
    done
    before=$(stl_count "$file")
    after=$(stl_count "$out/result.stl")
    wall=$(awk '{print $1}' "$out/times" | median)
    cpu=$(awk '{print $2 + $3}' "$out/times" | median)
    kilobytes=$(awk '{print $4}' "$out/times" | median)
    awk -v name="$name" -v mode="$mode" -v before="$before" -v after="$after" -v wall="$wall" \
        -v cpu="$cpu" -v kilobytes="$kilobytes" 'BEGIN {
            printf "| %-16s | %9d | %-4s | %9d | %8.2f | %8.2f | %9.0f | %11.0f |\n", name, before,
                   mode, after, wall, cpu, kilobytes / 1024, before / (wall > 0 ? wall : 0.01)
        }'
}

scripts/install-deps cmake make g++ libgtest-dev time
build release velmora make_model >&2
program=${program:-build/release/bin/velmora}
out=build/bench
mkdir -p "$out"

echo "Commit $(git rev-parse --short HEAD 2>/dev/null || echo unknown), $(g++ --version | head -n 1)," \
    "$(sed -n 's/^model name[^:]*: //p' /proc/cpuinfo | head -n 1), median of $runs runs."
echo
echo "| model            | triangles | mode |      left | wall (s) |  CPU (s) | peak (MB) | triangles/s |"
echo "|------------------|----------:|------|----------:|---------:|---------:|----------:|------------:|"
for size in "${sizes[@]}"; do
    for shape in $shapes; do
        model "$shape" "$size"
        for mode in $modes; do
            measure "${shape/:/ }" "$mode"
        done
    done
done
