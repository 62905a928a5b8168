#!/usr/bin/env bash
# Times whole runs of the released program and prints a table for docs/performance.md: each row is the
# median of several runs.
#
#     bench/run.sh [-n RUNS] [-m "MODES"] [-s "SHAPES"] [-f "FORMS"] [-b BEFORE] [-p PROGRAM]
#                  [-d DIRECTORY] [TRIANGLES...]
#
# MODES are words of 1 to 4 and thin (-S). SHAPES are those of make_model, each with ":shuffled" or
# without. FORMS are binary, ascii and kvd, for the model and the result alike; such models are written
# by the program, all in the order of its tree. BEFORE is an older build that is timed in turns with the
# program, to be compared with. PROGRAM is timed in the place of the build at hand. With DIRECTORY its
# STL models are timed instead of generated ones. Without arguments: 3 runs, modes 1 to 4 and thin, the
# shapes sphere, plate and bracket, with 10000, 100000 and 1000000 triangles.
set -euo pipefail
here=$PWD
cd "$(dirname "$0")/.."
. scripts/lib.sh

runs=3
modes="1 2 3 4 thin"
shapes="sphere plate bracket"
forms=
before=
program=
models=
while getopts n:m:s:f:b:p:d: option; do
    case $option in
    n) runs=$OPTARG ;;
    m) modes=$OPTARG ;;
    s) shapes=$OPTARG ;;
    f) forms=$OPTARG ;;
    b) before=$(cd "$here" && realpath "$OPTARG") ;;
    p) program=$(cd "$here" && realpath "$OPTARG") ;;
    d) models=$(cd "$here" && realpath "$OPTARG") ;;
    *) exit 2 ;;
    esac
done
shift $((OPTIND - 1))
sizes=("$@")
[ ${#sizes[@]} -gt 0 ] || sizes=(10000 100000 1000000)

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

# model SHAPE[:shuffled] TRIANGLES FORM: makes the model unless it is there, and sets `file`.
model() {
    local shape=${1%%:*} order= form=$3 plain
    [ "$shape" = "$1" ] || order=${1#*:}
    file=$out/$shape-$2${order:+-$order}.stl
    [ -s "$file" ] ||
        build/release/bin/make_model "$shape" "$2" 1 ${order:+"$order"} "$file" >/dev/null
    [ -n "$form" ] || return 0
    plain=$file
    file=${file%.stl}-$form.$(extension "$form")
    # A turn in which nothing is thin: vertices are merged, all triangles stay.
    [ -s "$file" ] || "$program" -f "$plain" -o "$file" -S -h 1e-9 -q 1 -r 0.05 -c 0.9 2>/dev/null
}

extension() {
    case $1 in
    ascii) echo astl ;;
    kvd) echo kvd ;;
    *) echo stl ;;
    esac
}

# is_text FILE: an STL file whose length is not that which its count says.
is_text() { [ "$(stat -c %s "$1")" -ne $((84 + 50 * $(stl_count "$1"))) ]; }

# time_run PROGRAM TIMES MODEL RESULT OPTION...: adds a line to TIMES: seconds of user and system, kB.
time_run() {
    local timed=$1 times=$2 from=$3 to=$4
    shift 4
    { time /usr/bin/time -o "$out/memory" -f %M \
        "$timed" -f "$from" -o "$to" "$@" 2>"$out/log"; } 2>"$out/seconds"
    echo "$(cat "$out/seconds") $(tail -n 1 "$out/memory")" >>"$times"
}
TIMEFORMAT="%3U %3S"

median() { awk -v n="$1" '{ print $n }' "$2" | sort -n | sed -n "$(((runs + 1) / 2))p"; }

# count_in PATTERN: the number in the line of the log that the pattern ends in.
count_in() { sed -n "s/^.*$1.*/\\1/p" "$out/log" | head -n 1; }

# measure NAME MODE FORM: one row for `file`.
measure() {
    local options result old=
    read -ra options <<<"$(options_of "$2")"
    case $file in *.stl) ! is_text "$file" || options+=(-F a -O b) ;; esac
    result=$out/result.$(extension "$3")
    rm -f "$out/times" "$out/times-before"
    for ((i = 0; i < runs; ++i)); do
        [ -z "$before" ] || time_run "$before" "$out/times-before" "$file" "$result" "${options[@]}"
        time_run "$program" "$out/times" "$file" "$result" "${options[@]}"
    done
    [ -z "$before" ] || old="$(median 1 "$out/times-before") $(median 3 "$out/times-before")"
    echo "$(count_in ' \([0-9]*\) triangles read') $(count_in ' : \([0-9]*\) triangles\.')" \
        "$(median 1 "$out/times") $(median 2 "$out/times") $(median 3 "$out/times") $old" |
        awk -v name="$1" -v mode="$2" -v form="${3:-binary}" '{
            printf "| %s | %d | %s | %s | %d | %.2f | %.2f | %.0f |", name, $1, mode, form, $2, $3,
                   $4, $5 / 1024
            if (NF > 5) printf " %.2f | %.0f | %.1f |", $6, $7 / 1024, $6 / ($3 > 0 ? $3 : 0.001)
            print ""
        }'
}

scripts/install-deps cmake make g++ time >&2
build release velmora make_model >&2
program=${program:-build/release/bin/velmora}
out=build/bench
mkdir -p "$out"

echo "Commit $(git rev-parse --short HEAD 2>/dev/null || echo unknown), $(g++ --version | head -n 1)," \
    "$(sed -n 's/^model name[^:]*: //p' /proc/cpuinfo | head -n 1), median of $runs runs."
echo
echo "| model | triangles | mode | form | left | user s | system s | peak MB |${before:+ before: user s | peak MB | times |}"
echo "|-------|----------:|------|------|-----:|-------:|---------:|--------:|${before:+---------------:|--------:|------:|}"
if [ -n "$models" ]; then
    for file in "$models"/*.stl; do
        for mode in $modes; do
            measure "$(basename "$file" .stl)" "$mode" ""
        done
    done
    exit
fi
for size in "${sizes[@]}"; do
    for shape in $shapes; do
        for form in ${forms:-""}; do
            model "$shape" "$size" "$form"
            for mode in $modes; do
                measure "${shape/:/ }" "$mode" "$form"
            done
        done
    done
done
