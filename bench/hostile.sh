#!/usr/bin/env bash
# Times the released program on hostile models against a clean model (the ball) of as
# many triangles in the same mode, and prints a table for docs/reliability.md: processor time in
# seconds, and in brackets how many times that of the clean model it is.
#
#     bench/hostile.sh [-k "KINDS"] [-m "MODES"] [-l LIMIT] [-p PROGRAM] [TRIANGLES]
#
# KINDS are the hostile ones of make_model or its shapes, with more options behind commas, as in
# "soup,-m,0.5"; MODES are words of 1 to 4, thin and again. A run that takes longer than LIMIT seconds
# of the processor (600) is ended and shown as such. 100000 triangles when nothing is said.
set -euo pipefail
here=$PWD
cd "$(dirname "$0")/.."
. scripts/lib.sh

kinds="point line copies book umbrella flower star saw soup crowd moebius shells huge tiny wide
    infinite huge,-K,inf wide,-K,inf infinite,-K,inf sphere,-m,1e-30 sphere,-m,1000 sphere,-m,0.5
    soup,-m,0.5 crowd,-m,0.01 umbrella,-m,0.01 fan"
modes="1 2 3 4 thin again"
limit=600
program=
while getopts k:m:l:p: option; do
    case $option in
    k) kinds=$OPTARG ;;
    m) modes=$OPTARG ;;
    l) limit=$OPTARG ;;
    p) program=$(cd "$here" && realpath "$OPTARG") ;;
    *) exit 2 ;;
    esac
done
shift $((OPTIND - 1))
size=${1:-100000}

options_of() {
    case $1 in
    1) echo "-q 1 -r 1 -c 0.5" ;;
    2) echo "-q 2 -r 1 -c 0.5 -j 2" ;;
    3) echo "-q 3 -r 1 -c 0.5 -i 5" ;;
    4) echo "-q 4 -r 1 -c 0.5 -a 30" ;;
    thin) echo "-q 1 -r 1 -c 0.5 -S -h 0.3" ;;
    again) echo "-q 1 -r 1 -c 0.5 -S -P -h 0.3" ;;
    *) echo "bench/hostile.sh: no mode $1" >&2 && return 1 ;;
    esac
}

# time_of KIND MODE: processor seconds of one run, or what ended it.
time_of() {
    local kind=${1%%,*} more=${1#*,} file options status=0
    [ "$kind" != "$1" ] || more=
    file=$out/$kind-$size.stl
    [ -s "$file" ] || build/release/bin/make_model "$kind" "$size" 1 "$file" >/dev/null
    read -ra options <<<"$(options_of "$2") ${more//,/ }"
    {
        time bash -c 'ulimit -t "$1" && shift && exec "$@"' limited "$limit" "$program" -f "$file" \
            -o "$out/result.stl" "${options[@]}" >/dev/null 2>"$out/log"
    } 2>"$out/time" || status=$?
    case $status in
    0) awk 'END { print $1 + $2 }' "$out/time" ;;
    137 | 152) echo "over $limit" ;;
    *) echo "status $status" ;;
    esac
}

scripts/install-deps cmake make g++ libgtest-dev
build release velmora make_model >&2
program=${program:-build/release/bin/velmora}
out=build/hostile
mkdir -p "$out"
TIMEFORMAT='%3U %3S'

declare -A clean
row="| clean            |"
head="| $size triangles |"
line="|---|"
for mode in $modes; do
    # The mean of ten: one run of a small model is soon over.
    clean[$mode]=$(for _ in {1..10}; do time_of sphere "$mode"; done |
        awk '{ sum += $1 } END { printf "%.3f", sum / NR }')
    head+=" $mode |"
    line+="---|"
    row+=" ${clean[$mode]} |"
done
printf '%s\n' "$head" "$line" "$row"
for kind in $kinds; do
    printf '| %-16s |' "$kind"
    for mode in $modes; do
        seconds=$(time_of "$kind" "$mode")
        awk -v s="$seconds" -v c="${clean[$mode]}" 'BEGIN {
            if (s ~ /[a-z]/) printf " %s |", s
            else printf " %.2f (%.1f) |", s, s / (c > 0.001 ? c : 0.001)
        }'
    done
    echo
done
