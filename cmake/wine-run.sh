#!/bin/bash
# wine-run.sh PREFIX PROGRAM [ARGUMENT]... : runs a Windows program in the Wine prefix PREFIX,
# which is made on first use.
set -euo pipefail

prefix=$(realpath -m -- "$1")
shift

find_wine() {
    local candidate
    for candidate in wine64 wine64-stable /usr/lib/wine/wine64 /usr/lib/*/wine/wine64 wine wine-stable; do
        if command -v "$candidate"; then
            return
        fi
    done
    echo "wine-run.sh: no Wine found" >&2
    return 1
}

wine=$(find_wine)
export WINEPREFIX=$prefix WINEARCH=win64 WINEDEBUG=-all
# Wine offers to fetch .NET and HTML support, and adds menu entries to the desktop: none is wanted.
export WINEDLLOVERRIDES="mscoree,mshtml,winemenubuilder.exe="
# Its caches, settings and sockets stay with the prefix.
export HOME=$prefix/home TMPDIR=$prefix/tmp
unset "${!XDG_@}"
# The programs have no window, and an X server must not make a difference.
unset DISPLAY WAYLAND_DISPLAY

# Tests start side by side: the first one makes the prefix, the others wait. The mark is set last,
# so that an interrupted start is made anew.
mark=$prefix/.complete
if [[ ! -e $mark ]]; then
    mkdir -p "$HOME" "$TMPDIR"
    exec {lock}>"$prefix.lock"
    flock "$lock"
    if [[ ! -e $mark ]]; then
        "$wine" wineboot --init </dev/null >/dev/null 2>&1 {lock}>&-
        touch "$mark"
    fi
    exec {lock}>&-
fi

exec "$wine" "$@"
