#!/usr/bin/env bash
# Times the hot kernels alone, by Google Benchmark, and prints the median of three for each.
#
#     bench/kernels.sh [FILTER]
#
# FILTER is a regular expression for names. All of them take about a minute.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/lib.sh

scripts/install-deps cmake make g++ libbenchmark-dev >&2
build release kernels >&2
echo "| kernel | CPU ms | items/s |"
echo "|--------|-------:|--------:|"
build/release/bin/kernels --benchmark_filter="${1:-.}" --benchmark_format=csv 2>/dev/null |
    awk -F'",' '/_median"/ {
        name = substr($1, 2)
        sub(/\/.*/, "", name)
        split($2, field, ",")
        printf "| %s | %.2f | %.1f M |\n", name, field[3], field[6] / 1e6
    }'
