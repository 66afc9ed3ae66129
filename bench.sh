#!/bin/bash
# Builds Kestrine and prints a table of what it costs: ratios of CPU times measured in turn, and of
# memory. Installs from Debian what is missing; leaves only the build directory behind.
#   ./bench.sh                  some three minutes on two processors
#   ./bench.sh --quick          a third of that, less exact
#   ./bench.sh --base REVISION  measures the service beside that of another revision of the
#                               repository, which is built below build/ and removed again
# One service runs on a machine: none may run meanwhile. More than 6 GiB must be free in /dev/shm or
# else in TMPDIR.
set -euo pipefail
cd "$(dirname "$0")"
source cmake/packages.sh

install_missing "${native_packages[@]}" "${test_packages[@]}"
exec python3 -B bench/run.py "$@"
