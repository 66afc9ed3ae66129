#!/bin/bash
# Builds Kestrine and runs all its tests; installs from Debian what is missing for that.
#   ./test.sh          Linux (release, sanitizers; what Clang and clang-tidy warn of), Windows (under
#                      Wine), and the fuzz targets, each for 20 s or KESTRINE_FUZZ_SECONDS. The sweeps
#                      try every 7th point, each beginning elsewhere
#   ./test.sh --full   the same, the sweeps of Linux release trying every point
#   ./test.sh --quick  Linux release and sanitizers alone
# Tests mostly wait: they run beside the next build, and what they say appears when they have ended.
set -euo pipefail
cd "$(dirname "$0")"
source cmake/packages.sh

quick=0 step=7
case "$*" in
    "") ;;
    --full) step=1 ;;
    --quick) quick=1 ;;
    *) echo "usage: ./test.sh [--full | --quick]" >&2; exit 2 ;;
esac
export KESTRINE_SWEEP_STEP=${KESTRINE_SWEEP_STEP:-$step}

# quietly COMMAND... : shows the output of a command only when it fails.
quietly() {
    local output
    if ! output=$("$@" 2>&1 </dev/null); then
        printf '%s\n' "$output"
        return 1
    fi
}

# Commands beside the others, each a process group, so that none outlives this script.
set -m
declare -A running
outputs=$(mktemp -d)
end_all() {
    local group
    for group in "${running[@]}"; do
        kill -- "-$group" && wait "$group" || true
    done 2>/dev/null
    rm -rf "$outputs"
}
trap end_all EXIT

# beside NAME COMMAND... : starts a command beside what follows.
beside() {
    local name=$1
    shift
    "$@" >"$outputs/$name" 2>&1 </dev/null &
    running[$name]=$!
}

# join NAME... : waits for commands, shows what they said, and fails if one of them did.
join() {
    local name result=0
    for name in "$@"; do
        wait "${running[$name]}" || result=$?
        unset "running[$name]"
        cat "$outputs/$name"
        ((result == 0)) || return "$result"
    done
}

build() {
    local preset=$1
    shift
    echo "== $preset: build"
    quietly cmake --preset "$preset"
    quietly cmake --build --preset "$preset" -j "$(nproc)" "$@"
}

# Leaves out the lines of tests that start and pass; the summary and every failure stay.
run_tests() {
    local preset=$1
    echo "== $preset: test"
    ctest --preset "$preset" </dev/null 2>&1 |
        grep --line-buffered -vE '^ +Start +[0-9]+:|^ *[0-9]+/[0-9]+ Test +#[0-9]+: .* Passed '
}

# The layout of every source, and what Clang and clang-tidy warn of.
lint() {
    echo "== format, clang-tidy"
    find src tools tests fuzz bench -name '*.h' -o -name '*.cpp' |
        xargs clang-format-14 --dry-run -Werror
    # Each source that is read includes a dozen of ours. Two checks look at the very file alone: they
    # get those that they could say something of.
    quietly cmake --preset linux-clang-joined
    quietly run-clang-tidy-14 -p build/linux-clang-joined -quiet -j "$(nproc)"
    local single
    mapfile -t single < <(grep -rlE --include='*.cpp' \
        '^ *(using +[A-Za-z0-9_:]+::[A-Za-z0-9_]+;|namespace +[A-Za-z0-9_]+ *=)' src tools)
    if ((${#single[@]} > 0)); then
        quietly cmake --preset linux-clang
        quietly clang-tidy-14 -p build/linux-clang --quiet \
            --checks='-*,misc-unused-alias-decls,misc-unused-using-decls' "${single[@]}"
    fi
}

install_missing "${native_packages[@]}" "${test_packages[@]}"
if ((!quick)); then
    # In the background nobody can be asked for a password; root needs none.
    ((EUID == 0)) || install_missing "${cross_packages[@]}"
    beside packages install_missing "${cross_packages[@]}"
fi
build linux-release
beside linux-release run_tests linux-release

# One service runs on a machine, so the tests of Linux take turns. Wine is a machine of its own.
if ((!quick)); then
    join packages
    build windows-release
    beside windows-release run_tests windows-release
fi
build linux-sanitize
join linux-release
beside linux-sanitize run_tests linux-sanitize

if ((!quick)); then
    lint
    build linux-fuzz --target fuzz kestrine
    echo "== linux-fuzz: run"
    mapfile -t targets < <(basename -s .cpp fuzz/*.cpp)
    for target in "${targets[@]}"; do
        beside "$target" fuzz/run.sh build/linux-fuzz "$target"
    done
    join "${targets[@]}" windows-release
fi
join linux-sanitize
echo "all builds and tests succeeded"
