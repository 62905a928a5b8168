#!/usr/bin/env bash
# Times the stages of a run in mode 1 and prints a table: processor time of each, and the floor, which is
# the time that this machine's memory takes for the bytes that the stage can't do without. The result is
# held against that of the program.
#
#     bench/stages.sh [-n RUNS] [SHAPE [TRIANGLES [shuffled]]]
#
# Without arguments: the median of 3 runs on the sphere with 1000000 triangles in file order.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/lib.sh

runs=3
while getopts n: option; do
    case $option in
    n) runs=$OPTARG ;;
    *) exit 2 ;;
    esac
done
shift $((OPTIND - 1))
shape=${1:-sphere}
size=${2:-1000000}
order=${3:-}

scripts/install-deps cmake make g++ >&2
build release velmora make_model stages >&2
out=build/bench
mkdir -p "$out"
model=$out/$shape-$size${order:+-$order}.stl
[ -s "$model" ] || build/release/bin/make_model "$shape" "$size" 1 ${order:+"$order"} "$model" >&2

build/release/bin/velmora -f "$model" -o "$out/result.stl" -q 1 -r 0.05 -c 0.9 2>"$out/log"
: >"$out/stages"
for ((i = 0; i < runs; ++i)); do
    build/release/bin/stages "$model" "$out/stages.stl" >>"$out/stages"
    cmp "$out/stages.stl" "$out/result.stl"
done

echo "$shape${order:+, $order}, $(stl_count "$model") triangles, median of $runs runs, milliseconds."
echo
echo "| stage | floor | first turn | second turn | times floor |"
echo "|-------|------:|-----------:|------------:|------------:|"
sort -k1,1n -k3,3n "$out/stages" | awk -F'\t' -v middle="$(((runs + 1) / 2))" '
    ++seen[$1] == middle {
        name = $5
        if (!(name in floor)) { order[++n] = name; floor[name] = $4 }
        took[name, $2 == 2] = $3
        sum[$2 == 2] += $3
        floors += $4
    }
    function cell(name, second) {
        return (name, second) in took ? sprintf("%.0f", took[name, second]) : ""
    }
    END {
        for (i = 1; i <= n; ++i) {
            name = order[i]
            printf "| %s | %.0f | %s | %s | %.1f |\n", name, floor[name], cell(name, 0),
                   cell(name, 1), took[name, !((name, 0) in took)] / floor[name]
        }
        printf "| all %.0f | %.0f | %.0f | %.0f | %.1f |\n", sum[0] + sum[1], floors, sum[0], sum[1],
               (sum[0] + sum[1]) / floors
    }'
