#!/bin/bash
# build.sh BUILD : makes the Debian package of a build directory, and a later revision of it for an
# upgrade; what lintian and systemd say of it.
set -euo pipefail

cd "$1"
rm -rf packages
for release in 1 2; do
    cpack -D CPACK_DEBIAN_PACKAGE_RELEASE=$release
done
packages=(packages/kestrine_*.deb)
[[ ${#packages[@]} == 2 ]]

# Root is a fact of containers; the other tag wants a number of Debian's own list of issues.
lintian --allow-root --fail-on error,warning --suppress-tags initial-upload-closes-no-bugs \
    "${packages[0]}"

# systemd looks for the program where the unit has it, and for units that a bare root lacks.
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
dpkg-deb -x "${packages[0]}" "$work"
unit=$work/kestrine.service
sed "s#=/usr/bin/#=$work/usr/bin/#" "$work/usr/lib/systemd/system/kestrine.service" >"$unit"
grep -q "^ExecStart=$work" "$unit"
complaints=$(systemd-analyze verify --man=no "$unit" 2>&1)
echo "$complaints"
[[ -z $complaints ]]
systemd-analyze security --offline=true --no-pager --threshold=15 "$unit" | tail -n 1
