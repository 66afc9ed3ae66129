#!/bin/bash
# Builds Kestrine, lets it count a made-up world of some millions of visits in a temporary
# directory, prints the busiest hosts of a day, a week and a month, and writes the report of the month.
# Installs from Debian what is missing; leaves only the build directory behind, with the report in it.
set -euo pipefail
cd "$(dirname "$0")"
source cmake/packages.sh

visits=3000000

echo "== build"
install_missing "${native_packages[@]}" "${test_packages[@]}"
cmake --preset linux-release >/dev/null
cmake --build --preset linux-release --target kestrine mklogdata urlstat -j "$(nproc)"
bin=$PWD/build/linux-release/bin

world=$(mktemp -d)
service=
clean_up() {
    if [[ -n $service ]]; then
        kill -KILL "$service" 2>/dev/null || true
        wait "$service" 2>/dev/null || true
    fi
    rm -rf "$world"
}
trap clean_up EXIT
trap 'exit 1' INT TERM HUP

echo "== make a world of $visits visits"
"$bin/mklogdata" "$world" --seed 1 --visits $visits --accounts 2 --devices 3 \
    --first-date 20240222 --days 14 --set sleepTime=1

home=$world/install/ml
cp "$bin/kestrine" "$home/"

echo "== count"
SECONDS=0
console=$world/console.txt
(cd "$home" && exec ./kestrine) >"$console" 2>&1 </dev/null &
service=$!
until grep -q "wait to find new data" "$console"; do
    if ! kill -0 "$service" 2>/dev/null; then
        echo "the service ended before its first pass was finished:" >&2
        tail -n 20 "$console" >&2
        exit 1
    fi
    sleep 0.2
done
echo "the first pass took $SECONDS s"

kill -TERM "$service"
result=0
wait "$service" || result=$?
service=
if ((result != 0)); then
    echo "the service did not stop in order, exit code $result:" >&2
    tail -n 20 "$console" >&2
    exit 1
fi
echo "stopped in order"

# print_top TITLE PATTERN : the ten busiest hosts of the first period that matches.
print_top() {
    local lists
    mapfile -t lists < <(compgen -G "$world/data/log_data/_urlstat/$2/topn/all.top" | sort)
    if ((${#lists[@]} == 0)); then
        echo "no top list of a $1 was written" >&2
        exit 1
    fi
    local folder=${lists[0]%/topn/all.top}
    printf '\n== busiest hosts of a %s: %s\n' "$1" "${folder#"$world"/data/log_data/_urlstat/}"
    "$bin/urlstat" top -n 10 "${lists[0]}"
}
date="[0-9][0-9][0-9][0-9][0-9][0-9][0-9][0-9]"
print_top day "*/$date"
print_top week "*/week${date}_$date"
print_top month "*/mon${date}_$date"

report=$PWD/build/demo-report.html
"$bin/urlstat" report --root "$world/data/log_data/_urlstat" --account alice --month 2024-02 \
    -o "$report"
printf '\n== report of the month, for a browser: %s\n' "$report"
