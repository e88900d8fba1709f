#!/usr/bin/env bash
# Builds the libFuzzer targets with clang in build/fuzz, replays their committed corpora and
# then fuzzes them for the given number of seconds in all (default 60), shared evenly, each
# target getting at least 20. New inputs found go to build/fuzz/found/<target>; a crash leaves
# its input in build/fuzz/crashes and fails the run.
set -euo pipefail
cd "$(dirname "$0")/.."
budget=${1:-60}
targets=(line_handler markup_roundtrip json_import)
seconds=$(( budget / ${#targets[@]} ))
if [ "$seconds" -lt 20 ]; then
    seconds=20
fi

# -O1 with line tables: quick to compile, fast enough to fuzz, readable stacks.
cmake -S . -B build/fuzz -G Ninja -DCMAKE_CXX_COMPILER=clang++-14 -DCMAKE_BUILD_TYPE=None \
      "-DCMAKE_CXX_FLAGS=-O1 -gline-tables-only" -DTOVREN_BUILD_FUZZ=ON -DTOVREN_BUILD_TESTS=OFF \
      -DTOVREN_BUILD_BENCH=OFF ${CMAKE_CXX_COMPILER_LAUNCHER:+-DCMAKE_CXX_COMPILER_LAUNCHER=$CMAKE_CXX_COMPILER_LAUNCHER} >/dev/null
cmake --build build/fuzz -j "$(nproc)" --target "${targets[@]/#/fuzz_}"

mkdir -p build/fuzz/crashes
for target in "${targets[@]}"; do
    binary=build/fuzz/fuzz/fuzz_$target
    found=build/fuzz/found/$target
    log=build/fuzz/$target.log
    mkdir -p "$found"
    for step in replay fuzz; do
        if [ $step = replay ]; then
            arguments=(-runs=0 fuzz/corpus/"$target")
        else
            arguments=(-max_total_time="$seconds" "$found" fuzz/corpus/"$target")
        fi
        if ! "$binary" -artifact_prefix=build/fuzz/crashes/ -print_final_stats=1 \
                "${arguments[@]}" >"$log" 2>&1; then
            tail -n 60 "$log"
            echo "fuzz_$target failed ($step); the input is in build/fuzz/crashes" >&2
            exit 1
        fi
        echo "fuzz_$target $step: $(grep -m1 -o 'stat::number_of_executed_units: [0-9]*' "$log")"
    done
done
