#!/bin/bash
# run.sh BUILD [TARGET]... : runs the fuzz targets of a build directory (all, or dat_reader, ...),
# each for a bounded time, beginning with inputs that the project's own writers make.
#   KESTRINE_FUZZ_SECONDS  for each target; 20 if not set. When set, what is found is kept in BUILD
#                          and built upon by the next run
#   KESTRINE_FUZZ_SEED     of the random numbers; 1 if not set
# An input that breaks a promise is kept as BUILD/fuzz/TARGET/crash-...; "BUILD/bin/fuzz_TARGET FILE"
# runs it again.
set -euo pipefail

build=$(realpath -- "${1:?usage: run.sh BUILD [TARGET]...}")
shift
seconds=${KESTRINE_FUZZ_SECONDS:-20}
seed=${KESTRINE_FUZZ_SEED:-1}
if (($# == 0)); then
    here=$(dirname "$0")
    mapfile -t all < <(basename -s .cpp "$here"/*.cpp)
    set -- "${all[@]}"
fi

# The targets make and free large buffers for every input: their shadow memory is cleared in place,
# and freed ones do not pile up.
export ASAN_OPTIONS=detect_leaks=1:quarantine_size_mb=8:clear_shadow_mmap_threshold=16777216
export UBSAN_OPTIONS=print_stacktrace=1

# No allocation is larger than a status record (4 MiB); no input takes more than a few milliseconds.
limits=(-max_len=16384 -malloc_limit_mb=8 -rss_limit_mb=512 -timeout=30)

for target in "$@"; do
    program=$build/bin/fuzz_$target
    work=$build/fuzz/$target
    rm -rf "$work/seeds"
    [[ -n ${KESTRINE_FUZZ_SECONDS:-} ]] || rm -rf "$work/found"
    mkdir -p "$work/seeds" "$work/found"
    "$program" --make-corpus "$work/seeds"
    if ! "$program" -seed="$seed" -max_total_time="$seconds" "${limits[@]}" -verbosity=1 \
        -artifact_prefix="$work/" "$work/found" "$work/seeds" >"$work/log" 2>&1 </dev/null; then
        grep -vE '^#[0-9]+\s' "$work/log"
        echo "fuzz_$target failed, seed $seed"
        exit 1
    fi
    sed -nE "s/^#([0-9]+)\s+DONE\s+cov: ([0-9]+) .*/fuzz_$target: seed $seed, $seconds s, \1 runs, \2 edges/p" \
        "$work/log"
done
