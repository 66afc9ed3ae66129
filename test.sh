#!/bin/bash
# Builds Kestrine and runs all its tests; installs from Debian what is missing for that.
#   ./test.sh          Linux (release, sanitizers; with Clang build only), Windows (under Wine), and
#                      the fuzz targets, each for 20 s or KESTRINE_FUZZ_SECONDS
#   ./test.sh --quick  Linux release and sanitizers alone
set -euo pipefail
cd "$(dirname "$0")"
source cmake/packages.sh

case "$*" in
    "") quick=0 ;;
    --quick) quick=1 ;;
    *) echo "usage: ./test.sh [--quick]" >&2; exit 2 ;;
esac

# quietly COMMAND... : shows the output of a command only when it fails.
quietly() {
    local output
    if ! output=$("$@" 2>&1 </dev/null); then
        printf '%s\n' "$output"
        return 1
    fi
}

build() {
    local preset=$1
    echo "== $preset: build"
    quietly cmake --preset "$preset"
    quietly cmake --build --preset "$preset" -j "$(nproc)"
}

# Leaves out the lines of tests that start and pass; the summary and every failure stay.
run_tests() {
    local preset=$1
    echo "== $preset: test"
    ctest --preset "$preset" </dev/null 2>&1 |
        grep --line-buffered -vE '^ +Start +[0-9]+:|^ *[0-9]+/[0-9]+ Test +#[0-9]+: .* Passed '
}

# The layout of every source, and what the compilers do not warn of.
lint() {
    echo "== format, clang-tidy"
    find src tools tests fuzz bench -name '*.h' -o -name '*.cpp' |
        xargs clang-format-14 --dry-run -Werror
    quietly run-clang-tidy-14 -p build/linux-clang -quiet -j "$(nproc)" "$PWD/(src|tools)/.*\\.cpp"
}

run_fuzz_targets() {
    echo "== linux-fuzz: build"
    quietly cmake --preset linux-fuzz
    quietly cmake --build --preset linux-fuzz --target fuzz -j "$(nproc)"
    echo "== linux-fuzz: run"
    fuzz/run.sh build/linux-fuzz
}

install_missing "${native_packages[@]}" "${test_packages[@]}"
for preset in linux-release linux-sanitize; do
    build $preset
    run_tests $preset
done

if ((!quick)); then
    install_missing "${cross_packages[@]}"
    build linux-clang
    lint
    build windows-release
    run_tests windows-release
    run_fuzz_targets
fi
echo "all builds and tests succeeded"
