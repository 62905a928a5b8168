# shellcheck shell=bash
# scripts/bytes.sh - runs of a program in many ways, and the comparison of what came out. Who sources
# this has said where it all goes: $out.

# name, shape, triangles, order
models=(
    "sphere sphere 6000"
    "plate plate 6000"
    "bracket bracket 4000 shuffled"
    "town town 3000"
    "flat flat 3000 shuffled"
    "fan fan 2000"
)

# name and options; each meets each model
ways=(
    "mode1 -q 1 -r 0.05 -c 0.9"
    "mode1-loose -q 1 -r 2 -c 0.3 -e removed.stl -K 1e6"
    "mode2 -q 2 -r 0.05 -c 0.9 -j 4"
    "mode2-grid -q 2 -j 8 -g 2"
    "mode3 -q 3 -r 0.2 -c 0.9 -i 6"
    "mode4 -q 4 -r 0.2 -c 0.9 -a 35"
    "mode4-one-step -q 4 -r 1 -c 0.5 -a 8 -e removed.stl"
    "coarse-merge -q 1 -r 0.5 -c 0.8 -m 0.3"
    "thin -q 1 -r 0.05 -c 0.9 -S -h 0.3"
    "thin-again -q 1 -r 0.05 -c 0.9 -S -h 0.5 -P"
    "text -q 1 -r 0.1 -c 0.9 -O a"
    "native -q 1 -r 0.1 -c 0.9 -O m"
)

# make_models: writes them to $out/models.
make_models() {
    mkdir -p "$out/models"
    for model in "${models[@]}"; do
        read -r name shape triangles order <<<"$model"
        build/release/bin/make_model "$shape" "$triangles" 1 ${order:+"$order"} \
            "$out/models/$name.stl" >/dev/null
    done
}

# run_all PROGRAM DIRECTORY: every model in every way; the logs lose the lines that tell times.
run_all() {
    local program=$1 dir=$2 model way
    rm -rf "$dir"
    for model in "${models[@]}"; do
        model=${model%% *}
        for way in "${ways[@]}"; do
            local options
            read -ra options <<<"$way"
            run_one "$program" "$dir/$model/${options[0]}" "$model" "${options[@]:1}"
        done
        # What the native form and the text kept, read again.
        run_one "$program" "$dir/$model/from-native" "$model" -f ../native/out.kvd -O b \
            -q 3 -r 0.1 -c 0.9 -i 3
        run_one "$program" "$dir/$model/from-text" "$model" -f ../text/out.astl -O b \
            -q 4 -r 0.1 -c 0.9 -a 27.3
    done
}

# run_one PROGRAM DIRECTORY MODEL OPTION...: runs inside the directory, so that all names in the
# log are the same for all programs.
run_one() {
    local program=$1 dir=$2 model=$3 status=0
    shift 3
    mkdir -p "$dir"
    (cd "$dir" && timeout 300 "$program" -f ../../../models/"$model".stl -o out "$@" 2>log.full) ||
        status=$?
    sed '/ time (u+s) /d; /(info): (more than /d; /(info): rate is /d' "$dir/log.full" >"$dir/log"
    rm "$dir/log.full"
    if [ "$status" -ne 0 ] || ! ls "$dir"/out.* >/dev/null 2>&1; then
        cat "$dir/log"
        say "FAILED: $program ended with $status in $dir (options: $*)"
        return 1
    fi
}

# compare FIRST OTHER: names the files of $out/OTHER that differ from those of $out/FIRST, and shows
# the first of them when it is a log.
compare() {
    local first=$out/$1 other=$out/$2 differing=$out/differing.txt log
    if diff -rq "$first" "$other" >"$differing"; then return 0; fi
    head -n 15 "$differing"
    log=$(sed -n "s|^Files $first/\(.*/log\) and .*|\1|p" "$differing" | head -n 1)
    [ -z "$log" ] || diff "$first/$log" "$other/$log" | head -n 20 || true
    say "FAILED: $2 differs from $1 in $(wc -l <"$differing") files"
    return 1
}
